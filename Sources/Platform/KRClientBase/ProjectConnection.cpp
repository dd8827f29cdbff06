#include "KRCB/ProjectConnection.h"

#include "KRCB/Paths.h"

namespace KRCB {

ProjectConnectionManager::ProjectConnectionManager(const IO::Location& location, bool secondary)
    : mLocation(location), mSecondary(secondary) {
    if (!secondary && location.IsServer()) {
        mSignalClient = std::make_unique<SignalClient>(
            GetPortalServerUrl(location), location.GetUserName(), location.GetPassword());
        mSignalClient->SetProjectLocation(location);
    }
}

ProjectConnectionManager::~ProjectConnectionManager() = default;

ZR::UniString ProjectConnectionManager::GetProjectPath() const {
    return KRCB::GetProjectPath(mLocation);
}

ZR::UniString ProjectConnectionManager::GetSessionId() const {
    if (!mSessionId.IsEmpty() || !mCachedProjectInfo) return mSessionId;
    return mCachedProjectInfo->GetSessionId();
}

void ProjectConnectionManager::SetCachedProjectInfo(CachedProjectInfo* info, bool existed) {
    mCachedProjectInfo.reset(info);
    mCachedProjectInfoExisted = existed;
}

void ProjectConnectionManager::RemoveCachedProjectInfo() {
    mCachedProjectInfo.reset();
    mCachedProjectInfoExisted = false;
}

void ProjectConnectionManager::CreateMailboxMonitor(
    const ZR::Ref<Mailbox::ContactFactory>& factory) {
    // The monitor itself comes with the mail client; the factory waits for it.
    mContactFactory = factory;
}

void ProjectConnectionManager::SetUserAttributes(UserAttributes* attributes) {
    mUserAttributes.reset(attributes);
}

void ProjectConnectionManager::PasswordChanged(const IO::Location& location) {
    mLocation = location;
    if (mSignalClient) mSignalClient->SetProjectLocation(location);
}

void ProjectConnectionManager::TransactionComitted() {
    ++mCommittedTransactions;
}

ProjectConnectionBase::ProjectConnectionBase(
    ProjectConnectionManagerInterface* manager,
    const ZR::Ref<Management::ResourceManagerClient>& client)
    : mManager(manager),
      mClient(client),
      mShouldCheck(manager != nullptr && manager->GetKerrowLocation().IsServer()) {}

ProjectConnectionBase::ProjectConnectionBase(ProjectConnectionManagerInterface* manager, LogInOnUse)
    : mManager(manager), mLogInOnUse(true) {}

ProjectConnectionBase::~ProjectConnectionBase() = default;

ZR::UniString ProjectConnectionBase::GetSessionId() const {
    return mManager ? mManager->GetSessionId() : ZR::UniString();
}

ZR::Ref<Management::ResourceManagerClient> ProjectConnectionBase::EnsureClient() const {
    if (!mClient && mLogInOnUse && mManager && mManager->GetKerrowLocation().IsServer())
        mClient = Management::ResourceManagerClientFactory::CreateAuthenticated(
            mManager->GetKerrowLocation(), true, true);
    return mClient;
}

ZR::UniString ProjectConnectionBase::ProjectIdOfManager() const {
    if (!mManager) return ZR::UniString();
    if (auto* manager = dynamic_cast<ProjectConnectionManager*>(mManager)) {
        if (const CachedProjectInfo* info = manager->GetCachedProjectInfo()) {
            ZR::UniString id = info->GetProjectId();
            if (!id.IsEmpty()) return id;
        }
    }
    ZR::Ref<Management::ResourceManagerClient> client = EnsureClient();
    if (!client) return ZR::UniString();
    return client->GetProjectIdByPath(mManager->GetProjectPath());
}

ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> ProjectConnectionBase::_GetProjectClient() {
    if (!mProjectClient) {
        ZR::Ref<Management::ResourceManagerClient> client = EnsureClient();
        if (!client) return {};
        ZR::UniString projectId = ProjectIdOfManager();
        if (projectId.IsEmpty()) return {};
        mProjectClient = client->GetProjectClient(projectId);
    }
    return mProjectClient;
}

void ProjectConnectionBase::_CloseProjectClient() {
    mProjectClient.Reset();
}

bool ProjectConnectionBase::_IsOpen() const {
    return static_cast<bool>(mClient);
}

void ProjectConnectionBase::_Invoke(ReadProjectService& /*service*/) {}

ZR::UniString ReadProjectConnectionBase::_GetProjectId() const {
    return ProjectIdOfManager();
}

ZR::UniString WriteProjectConnectionBase::_GetProjectId() const {
    return ProjectIdOfManager();
}

void WriteProjectConnectionBase::_Invoke(WriteProjectService& /*service*/) {}

TemporaryReadProjectConnection::TemporaryReadProjectConnection(
    ProjectConnectionManagerInterface* manager)
    : ReadProjectConnectionBase(manager, LogInOnUse{}) {}

}  // namespace KRCB
