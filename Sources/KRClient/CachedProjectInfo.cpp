#include "KRClient/CachedProjectInfo.h"

#include <memory>
#include <string>

#include "IO/File.h"
#include "IO/Internal/StampedFile.h"
#include "KRCB/Paths.h"
#include "KRClient/Internal/ServerUrl.h"
#include "KRClient/KRClientExceptions.h"
#include "ZR/MD5.h"

namespace KRC {

CachedProjectInfoObserver CachedProjectInfoObserver::mSingleton;
CachedProjectInfoObserver& cachedProjectInfoObserver = CachedProjectInfoObserver::mSingleton;

void CachedProjectInfoObserver::SendContentWrittenToDisc(
    const CachedProjectInfo* cachedProjectInfo) const {
    ForEachObserver([&](ZR::EventObserver* observer) {
        static_cast<CachedProjectInfoObserver*>(observer)->ContentWrittenToDisc(cachedProjectInfo);
    });
}

namespace {

// Whether a new record may take the folder of that name in the main folder.
bool IsFreeCacheFolderName(const IO::Folder& mainFolder, const IO::Name& name) {
    bool contains = false;
    if (mainFolder.Contains(name, &contains) != IO::kOk) return false;
    if (!contains) return true;
    // An entry that is no folder can't take a record either.
    const IO::Location folder = mainFolder.GetLocation() + name;
    if (IO::Folder(folder, IO::kNotFoundFail).GetStatus() != IO::kOk) return false;
    bool hasRecord = false;
    if (IO::fileSystem.Contains(folder + IO::Name(kCacheInfoFileName), &hasRecord) != IO::kOk)
        return false;
    return !hasRecord;
}

}  // namespace

CachedProjectInfo::CachedProjectInfo(const IO::Location& folder) : cacheFolder(folder) {
    ReadFromDisc(false);
}

CachedProjectInfo::CachedProjectInfo(const ProjectConnectionInfo& info,
                                     const IO::Location& mainCacheFolder) {
    if (ServerUrlHasUserInfo(info.GetServerUrl()))
        throw ZR::IllegalArgumentException(
            "Failed to make a cache record: the server URL holds a user name or password", ZR_HERE);
    // Every field starts empty by its initialiser.
    IO::Folder mainFolder(mainCacheFolder, IO::kNotFoundCreate);

    ZR::UniString key =
        info.GetServerUrl() + "_" + info.GetProjectPath() + "_" + info.GetUserName();
    ZR::UniString md5Text = MD5::Of(key).GetAsZrString();

    // The MD5 name is free only if the main folder has no entry of it, or one
    // without a "CacheInfo.xml"; a failed look counts as occupied. An occupied
    // name gets the next unused one, so a damaged or unreadable record, or a
    // second record of the same key, is never written over. A killed create
    // leaves no file or a whole one (written through a rename), and the
    // registry finds a whole one before it creates.
    IO::Name name(md5Text);
    if (!IsFreeCacheFolderName(mainFolder, name)) {
        if (mainFolder.GenerateUnusedName(&name, md5Text, ZR::UniString()) != IO::kOk)
            throw FileOpeningError(mainCacheFolder);
    }
    cacheFolder = mainCacheFolder + name;
    IO::fileSystem.CreateFolderTree(cacheFolder);
    SetProjectConnectionInfoInner(info);
    WriteToDiscIfComplete(true);
}

CachedProjectInfo::CachedProjectInfo(const CachedProjectInfo& other)
    : KRCB::CachedProjectInfo(other) {
    *this = other;
}

CachedProjectInfo& CachedProjectInfo::operator=(const CachedProjectInfo& other) {
    if (this == &other) return *this;
    port = other.port;
    serverName = other.serverName;
    portalServerUrl = other.portalServerUrl;
    modelServerPath = other.modelServerPath;
    projectPath = other.projectPath;
    projectName = other.projectName;
    loginName = other.loginName;
    userName = other.userName;
    userId = other.userId;
    sessionId = other.sessionId;
    projectId = other.projectId;
    projectCategoryName = other.projectCategoryName;
    modificationTime = other.modificationTime;
    cacheFolder = other.cacheFolder;
    logonId = other.logonId;
    roleName = other.roleName;
    permissions = other.permissions;
    PermissionsChanged();
    projectForcedOffline = other.projectForcedOffline;
    unsentChanges = other.unsentChanges;
    lastOpenProjectTime = other.lastOpenProjectTime;
    travelPackageCreationTime = other.travelPackageCreationTime;
    travelPackageCreated = other.travelPackageCreated;
    extractedFromTravelPackage = other.extractedFromTravelPackage;
    enableTravelPackageWarningAtClose = other.enableTravelPackageWarningAtClose;
    userColorList = other.userColorList;
    colorMode = other.colorMode;
    projectVersion = other.projectVersion;
    projectBuildNum = other.projectBuildNum;
    projectDetached = other.projectDetached;
    visitCount = other.visitCount;
    updating = other.updating;
    writePending = other.writePending;
    xmlVersion = other.xmlVersion;
    fileStamp = other.fileStamp;
    return *this;
}

void CachedProjectInfo::AssignContent(const CachedProjectInfo& other) {
    const bool ownUpdating = updating;
    const bool ownWritePending = writePending;
    *this = other;
    updating = ownUpdating;
    writePending = ownWritePending;
}

CachedProjectInfo::~CachedProjectInfo() {
    if (updating && writePending) {
        try {
            WriteToDiscIfComplete(true);
        } catch (...) {
            // A destructor must not throw; the failure was reported as an event if it was a file's.
        }
    }
}

bool CachedProjectInfo::CachedProjectInfoExist(const IO::Location& folder) {
    bool contains = false;
    if (IO::fileSystem.Contains(folder + IO::Name(kCacheInfoFileName), &contains) != IO::kOk)
        return false;
    return contains;
}

void CachedProjectInfo::BeginUpdate() {
    updating = true;
}

void CachedProjectInfo::EndUpdate() {
    if (!updating) return;
    updating = false;
    if (writePending) WriteToDiscIfComplete(false);
}

template <typename T>
void CachedProjectInfo::SetField(T& field, const T& value) {
    if (field == value) return;
    field = value;
    WriteToDiscIfComplete(false);
}

void CachedProjectInfo::SetColorMode(short value) {
    SetField<std::int16_t>(colorMode, value);
}
void CachedProjectInfo::SetLastOpenProjectTime(int value) {
    SetField<std::int32_t>(lastOpenProjectTime, value);
}
void CachedProjectInfo::SetProjectBuildNum(int value) {
    SetField<std::int32_t>(projectBuildNum, value);
}
void CachedProjectInfo::SetProjectVersion(const ZR::UniString& value) {
    SetField(projectVersion, value);
}
void CachedProjectInfo::SetTravelPackageCreationTime(int value) {
    SetField<std::int32_t>(travelPackageCreationTime, value);
}
void CachedProjectInfo::SetTravelPackageCreated(bool value) {
    SetField(travelPackageCreated, value);
}
void CachedProjectInfo::SetExtractedFromTravelPackage(bool value) {
    SetField(extractedFromTravelPackage, value);
}
void CachedProjectInfo::EnableTravelPackageWarningAtClose(bool value) {
    SetField(enableTravelPackageWarningAtClose, value);
}
void CachedProjectInfo::SetUserColorListString(ZR::UniString value) {
    SetField(userColorList, value);
}
void CachedProjectInfo::SetVisitCount(unsigned int value) {
    SetField<std::uint32_t>(visitCount, value);
}
void CachedProjectInfo::ProjectDetached() {
    SetField(projectDetached, true);
}

void CachedProjectInfo::ProjectReloaded() {
    if (!projectDetached && !unsentChanges) return;
    projectDetached = false;
    unsentChanges = false;
    WriteToDiscIfComplete(false);
}

void CachedProjectInfo::SetCacheFolder(const IO::Location& folder) {
    SetField(cacheFolder, folder);
}
void CachedProjectInfo::SetLogonId(int value) {
    SetField<std::int32_t>(logonId, value);
}
void CachedProjectInfo::SetModelServerPath(const ZR::UniString& value) {
    SetField(modelServerPath, value);
}
void CachedProjectInfo::SetProjectId(const ZR::UniString& value) {
    SetField(projectId, value);
}
void CachedProjectInfo::SetSessionId(const ZR::UniString& value) {
    SetField(sessionId, value);
}
void CachedProjectInfo::SetUnsentChanges(bool value) {
    SetField(unsentChanges, value);
}
void CachedProjectInfo::SetUserId(const ZR::UniString& value) {
    SetField(userId, value);
}
void CachedProjectInfo::_SetProjectForcedOffline(bool offline) {
    SetField(projectForcedOffline, offline);
}

void CachedProjectInfo::SetPermissions(const ZR::HashSet<ZR::UniString>& value) {
    bool equal = value.GetSize() == permissions.size();
    for (const ZR::UniString& p : permissions) {
        if (!equal) break;
        equal = value.Contains(p);
    }
    if (equal) return;
    permissions.assign(value.begin(), value.end());
    PermissionsChanged();
    WriteToDiscIfComplete(false);
}

const ZR::HashSet<ZR::UniString>& CachedProjectInfo::_GetPermissions() const {
    if (!permissionSet) {
        permissionSet = std::make_unique<ZR::HashSet<ZR::UniString>>();
        for (const ZR::UniString& p : permissions) permissionSet->Add(p);
    }
    return *permissionSet;
}

void CachedProjectInfo::PermissionsChanged() {
    if (!permissionSet) return;
    permissionSet->Clear();
    for (const ZR::UniString& p : permissions) permissionSet->Add(p);
}

void CachedProjectInfo::SetProjectPath(const ZR::UniString& value) {
    if (projectPath == value) return;
    projectPath = value;
    projectName = KRCB::Management::GetProjectName(value);
    WriteToDiscIfComplete(false);
}

void CachedProjectInfo::SetUserName(const ZR::UniString& value) {
    if (userName.IsEqual(value, ZR::kIgnoreCase)) return;
    userName = value;
    WriteToDiscIfComplete(false);
}

bool CachedProjectInfo::IsComplete() const {
    return !loginName.IsEmpty() && !userName.IsEmpty() && !userId.IsEmpty() &&
           !projectPath.IsEmpty() && !projectId.IsEmpty() && !sessionId.IsEmpty() &&
           !portalServerUrl.IsEmpty();
}

const IO::Location& CachedProjectInfo::GetCacheInfoFileLocation(IO::Location* location) const {
    *location = cacheFolder + IO::Name(kCacheInfoFileName);
    return *location;
}

IO::Name CachedProjectInfo::GetLocalFolderName() const {
    IO::Name name;
    cacheFolder.GetLastLocalName(&name);
    return name;
}

std::uint64_t CachedProjectInfo::GetSpace_Mbyte() const {
    std::uint64_t bytes = 0;
    if (IO::fileSystem.CountSize(cacheFolder, &bytes) != IO::kOk) return 0;
    return bytes >> 20;
}

void CachedProjectInfo::_GetCacheEntryList(ZR::Array<IO::Name>& entries) const {
    entries.Add(IO::Name(kCacheInfoFileName));
}

const ProjectConnectionInfo& CachedProjectInfo::GetProjectConnectionInfo(
    ProjectConnectionInfo* info) const {
    info->SetUserName(loginName);
    info->SetRefreshToken(GetRefreshToken());
    info->SetProjectPath(projectPath);
    if (!portalServerUrl.IsEmpty())
        info->SetServerUrl(portalServerUrl);
    else if (!serverName.IsEmpty())
        info->SetServerUrl(serverName);
    return *info;
}

bool CachedProjectInfo::SetProjectConnectionInfo(const ProjectConnectionInfo& info) {
    bool changed = SetProjectConnectionInfoInner(info);
    if (changed) WriteToDiscIfComplete(false);
    return changed;
}

void CachedProjectInfo::Refresh() {
    RefreshIfPresent();
}

bool CachedProjectInfo::RefreshIfPresent(bool* reread) {
    if (reread) *reread = false;
    // One stat: this runs for every record of every walk over a known folder.
    const std::string path = GetCacheInfoFilePath();
    if (path.empty()) return false;
    IO::FileStamp now;
    int status = IO::StatStamp(path.c_str(), &now);
    // Something of the name stands there, but not a file that could be read.
    if (status == IO::kErrIsAFolder) return true;
    if (status != IO::kOk) return false;
    // Inequality, not "newer": a file put back from elsewhere counts too.
    if (now.changeStamp == fileStamp) return true;
    if (reread) *reread = true;
    try {
        ReadFromDisc(true);
    } catch (...) {
        // A record that can't be read now keeps what it had; the next look tries again.
    }
    return true;
}

}  // namespace KRC
