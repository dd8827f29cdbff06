#include "KRClient/ClientProjectConnectionManager.h"

#include "KRCB/Entities.h"
#include "KRCB/LoginDataStore.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "KRClient/RegisteredProjects.h"

namespace KRC {

ClientProjectConnectionManager::ClientProjectConnectionManager(const IO::Location& location,
                                                               bool primary)
    : KRCB::ProjectConnectionManager(location, !primary) {
    try {
        bool created = false;
        if (CachedProjectInfo* info =
                registeredProjects.CreateCachedProjectInfo(location, created)) {
            SetCachedProjectInfo(info, !created);
            CreateMailboxMonitor(ZR::Ref<KRCB::Mailbox::ContactFactory>(
                ZR::Ref<Mailbox::UserContactFactory>::Make()));
            ZR::HashSet<KRCB::PermissionID> ids;
            KRCB::Management::Entities::PermissionIDMapper::GetInstance().GetPermissionIDs(
                info->GetPermissions(), ids);
            SetUserAttributes(
                new KRCB::UserAttributes(static_cast<std::int16_t>(info->GetLogonId()), ids));
        }
        cachedProjectInfoObserver.Attach(*this);
    } catch (...) {
        // The manager stands with what was done; a host asks its connections.
    }
}

ClientProjectConnectionManager::~ClientProjectConnectionManager() {
    cachedProjectInfoObserver.Detach(*this);
}

void ClientProjectConnectionManager::ChangeRefreshToken(const ZR::UniString& a,
                                                        const ZR::UniString& b,
                                                        const ZR::UniString& token) {
    auto* record = dynamic_cast<CachedProjectInfo*>(GetCachedProjectInfo());
    if (!record) return;
    record->SetRefreshToken(token);
    ProjectConnectionInfo info(GetKerrowLocation());
    info.SetRefreshToken(token);
    IO::Location location;
    PasswordChanged(info.ToKerrowLocation(&location));
    KRCB::LoginDataStore::ActiveConnection::GetInstance().SetPassword(
        ZR::Ref<KRCB::LoginDataStore::ActiveConnectionData>(
            new KRCB::LoginDataStore::ActiveConnectionData(a, b, token)));
}

void ClientProjectConnectionManager::RewriteCacheInfo(const IO::Location& location) {
    (void)location;
    if (auto* record = dynamic_cast<CachedProjectInfo*>(GetCachedProjectInfo()))
        record->WriteToDisc();
}

void ClientProjectConnectionManager::TransactionComitted() {
    ++transactionCounter;
    KRCB::ProjectConnectionManager::TransactionComitted();
}

void ClientProjectConnectionManager::ContentWrittenToDisc(const CachedProjectInfo* written) {
    auto* own = dynamic_cast<CachedProjectInfo*>(GetCachedProjectInfo());
    if (!own || !written || own == written) return;
    if (own->GetCacheFolderLocation() != written->GetCacheFolderLocation()) return;
    // Keeps the record's own update state: the writer may be inside a bracket.
    own->AssignContent(*written);
}

}  // namespace KRC
