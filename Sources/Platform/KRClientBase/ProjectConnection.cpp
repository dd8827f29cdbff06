#include "KRCB/ProjectConnection.h"

#include "KRCB/Paths.h"

namespace KRCB {

ZR::UniString ProjectConnectionManagerInterface::GetPortalServerUrl() const {
    return KRCB::GetPortalServerUrl(GetKerrowLocation());
}

ProjectConnectionManager::ProjectConnectionManager(const IO::Location& location, bool secondary)
    : mLocation(location), mSecondary(secondary) {
    if (!secondary && location.IsServer()) {
        mSignalClient = std::make_unique<SignalClient>(
            KRCB::GetPortalServerUrl(location), location.GetUserName(), location.GetPassword());
        mSignalClient->SetProjectLocation(location);
    }
}

ProjectConnectionManager::~ProjectConnectionManager() {
    // Before anything the monitor's callbacks might reach goes.
    StopMailboxMonitor();
}

ZR::UniString ProjectConnectionManager::GetProjectPath() const {
    return KRCB::GetProjectPath(mLocation);
}

ZR::UniString ProjectConnectionManager::GetSessionId() const {
    if (!mSessionId.IsEmpty() || !mCachedProjectInfo) return mSessionId;
    return mCachedProjectInfo->GetSessionId();
}

ZR::UniString ProjectConnectionManager::GetProjectId() const {
    return mCachedProjectInfo ? mCachedProjectInfo->GetProjectId() : ZR::UniString();
}

void ProjectConnectionManager::SetCachedProjectInfo(CachedProjectInfo* info, bool existed) {
    mCachedProjectInfo.reset(info);
    mCachedProjectInfoExisted = existed;
}

void ProjectConnectionManager::RemoveCachedProjectInfo() {
    mCachedProjectInfo.reset();
    mCachedProjectInfoExisted = false;
}

IO::Location ProjectConnectionManager::GetCacheFolderLocation() const {
    return mCachedProjectInfo ? mCachedProjectInfo->GetCacheFolderLocation() : IO::Location();
}

void ProjectConnectionManager::CreateMailboxMonitor(
    const ZR::Ref<Mailbox::ContactFactory>& factory) {
    mContactFactory = factory;
    if (mMailboxMonitor || mSecondary || !mLocation.IsServer()) return;
    mMailboxMonitor = std::make_shared<Mailbox::MailboxMonitor>(mLocation, factory);
}

void ProjectConnectionManager::StartMailboxMonitor() {
    if (mMailboxMonitor) mMailboxMonitor->Start();
}

void ProjectConnectionManager::StopMailboxMonitor() {
    if (mMailboxMonitor) mMailboxMonitor->Stop();
}

void ProjectConnectionManager::SetUserAttributes(UserAttributes* attributes) {
    mUserAttributes.reset(attributes);
}

void ProjectConnectionManager::PasswordChanged(const IO::Location& location) {
    mLocation = location;
    if (mSignalClient) mSignalClient->SetProjectLocation(location);
    if (mMailboxMonitor && location.IsServer())
        mMailboxMonitor->SetRefreshToken(location.GetPassword());
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

namespace KRCB {

int UserAttributes::Write(ZR::OChannel& channel) const {
    if (int status = channel.WriteUInt16(static_cast<std::uint16_t>(mShortUserId))) return status;
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mPermissions.GetSize())))
        return status;
    for (PermissionID id : mPermissions)
        if (int status = channel.WriteInt32(id)) return status;
    return 0;
}

int UserAttributes::Read(ZR::IChannel& channel) {
    std::uint16_t shortId = 0;
    std::uint32_t count = 0;
    if (int status = channel.ReadUInt16(shortId)) return status;
    if (int status = channel.ReadUInt32(count)) return status;
    const std::uint64_t remaining = channel.GetRemaining();
    if (remaining != ZR::IChannel::kUnknownRemaining && std::uint64_t{count} * 4 > remaining)
        return ZR::kErrTooLarge;
    ZR::HashSet<PermissionID> permissions;
    for (std::uint32_t i = 0; i < count; ++i) {
        std::int32_t id = 0;
        if (int status = channel.ReadInt32(id)) return status;
        permissions.Add(id);
    }
    mShortUserId = static_cast<std::int16_t>(shortId);
    mPermissions = std::move(permissions);
    return 0;
}

}  // namespace KRCB
