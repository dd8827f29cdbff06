// "CacheInfo.xml": reading at every data version, writing at the current one.

#include "IO/File.h"
#include "KRCB/Paths.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/InfoXMLsChannel.h"
#include "KRClient/KRClientExceptions.h"

namespace KRC {
namespace {

constexpr const char* kRootName = "Cache";

// Throws the given file exception unless status is 0.
template <typename E>
void Check(int status, const IO::Location& location) {
    if (status != 0) throw E(location);
}

}  // namespace

bool CachedProjectInfo::GetFileStamp(std::int32_t* time, std::uint64_t* stamp) const {
    IO::Location location;
    IO::File file(GetCacheInfoFileLocation(&location), IO::kNotFoundFail);
    return file.GetStatus() == IO::kOk && file.GetModificationTime(time) == IO::kOk &&
           file.GetChangeStamp(stamp) == IO::kOk;
}

void CachedProjectInfo::SetModificationTime() const {
    std::int32_t time = 0;
    std::uint64_t stamp = 0;
    if (!GetFileStamp(&time, &stamp)) return;
    modificationTime = time;
    fileStamp = stamp;
}

void CachedProjectInfo::WriteToDiscIfComplete(bool force) const {
    if (updating && !force) {
        writePending = true;
        return;
    }
    try {
        WriteFile();
    } catch (const FileOpeningError& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileOpeningFailed, e.GetFileLocation());
    } catch (const ErrorWritingFile& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileWritingFailed, e.GetFileLocation());
    }
    writePending = false;
    // Observers hear of the attempt, failed or not.
    cachedProjectInfoObserver.SendContentWrittenToDisc(this);
}

void CachedProjectInfo::WriteFile() const {
    IO::Location location;
    GetCacheInfoFileLocation(&location);
    InfoXMLsOChannel holder(location, kRootName);
    ZR::XMLOChannel* out = holder.Open();
    if (!out) throw FileOpeningError(location);

    auto check = [&](int status) { Check<ErrorWritingFile>(status, location); };
    check(out->StartDocument());
    check(out->Write("DataVersion", kCacheInfoDataVersion));
    check(out->Write("LoginName", loginName));
    check(out->Write("UserName", userName));
    check(out->Write("UserId", userId));
    check(out->Write("ProjectPath", projectPath));
    check(out->Write("ProjectName", projectName.IsEmpty() && !projectPath.IsEmpty()
                                        ? KRCB::Management::GetProjectName(projectPath)
                                        : projectName));
    check(out->Write("ProjectCategoryName", projectCategoryName));
    check(out->Write("ServerName", serverName));
    check(out->Write("Port", port));
    check(out->Write("PortalServerUrl", portalServerUrl));
    check(out->Write("ModelServerName", modelServerPath));
    check(out->Write("SessionId", sessionId));
    check(out->Write("LogonId", logonId));
    check(out->Write("RoleName", roleName));
    check(out->Write("UserColorList", userColorList.ToCString(), 0));
    check(out->Write("ColorMode", colorMode));
    check(out->Write("PermissionCount", static_cast<std::uint32_t>(permissions.GetSize())));
    for (const ZR::UniString& permission : permissions) check(out->Write("Permission", permission));
    check(out->Write("ProjectId", projectId));
    check(out->Write("UnsentChange", unsentChanges));
    check(out->Write("ProjectForcedOffline", projectForcedOffline));
    check(out->Write("LastOpenProjectTime", lastOpenProjectTime));
    check(out->Write("TravelPackageCreationTime", travelPackageCreationTime));
    check(out->Write("TravelPackageCreated", travelPackageCreated));
    check(out->Write("ExtractedFromTravelPackage", extractedFromTravelPackage));
    check(out->Write("EnableTravelPackageWarningAtClose", enableTravelPackageWarningAtClose));
    check(out->Write("ProjectVersion", projectVersion));
    check(out->Write("ProjectBuild", projectBuildNum));
    check(out->Write("ProjectDetached", projectDetached));
    check(out->Write("VisitCount", visitCount));
    check(out->EndDocument());
    SetModificationTime();
}

void CachedProjectInfo::ReadFromDisc(bool keepValuesOnFailure) {
    // Nothing in memory may be lost to the read.
    if (updating) WriteToDiscIfComplete(true);
    // Read into a copy and take it whole: a file that fails half way must not
    // leave a mix of its values and ours, which the next write would store.
    CachedProjectInfo read(*this);
    read.updating = false;
    read.writePending = false;
    try {
        read.ReadFile();
    } catch (...) {
        if (!keepValuesOnFailure) ClearOnReadFailure();
        throw;
    }
    AssignContent(read);
}

void CachedProjectInfo::ReadFile() {
    IO::Location location;
    GetCacheInfoFileLocation(&location);
    // The stamp is taken before the read: a write landing after it makes the
    // next Refresh read again, where a stamp taken after the read could pair
    // the old content with the new file's stamp and hide that write for good.
    std::int32_t time = 0;
    std::uint64_t stamp = 0;
    const bool stamped = GetFileStamp(&time, &stamp);
    InfoXMLsIChannel holder(location, kRootName);
    ZR::XMLIChannel* in = holder.Open();
    if (!in) {
        if (holder.IsDamaged()) throw ErrorReadingFile(location);
        throw FileOpeningError(location);
    }

    auto check = [&](int status) { Check<ErrorReadingFile>(status, location); };
    std::uint16_t version = 0;
    check(in->Read("DataVersion", &version));
    xmlVersion = version;

    if (version >= 1) check(in->Read("LoginName", &loginName));
    check(in->Read("UserName", &userName));
    check(in->Read("UserId", &userId));
    if (version >= 8) check(in->Read("ProjectPath", &projectPath));
    check(in->Read("ProjectName", &projectName));
    if (projectPath.IsEmpty()) projectPath = projectName;
    if (version >= 3) check(in->Read("ProjectCategoryName", &projectCategoryName));
    check(in->Read("ServerName", &serverName));
    check(in->Read("Port", &port));
    if (version >= 8) check(in->Read("PortalServerUrl", &portalServerUrl));
    if (version >= 10)
        check(in->Read("ModelServerName", &modelServerPath));
    else
        modelServerPath.Clear();
    check(in->Read("SessionId", &sessionId));
    check(in->Read("LogonId", &logonId));
    check(in->Read("RoleName", &roleName));
    if (version >= 2) {
        check(in->Read("UserColorList", &userColorList));
        check(in->Read("ColorMode", &colorMode));
    }
    std::uint32_t count = 0;
    check(in->Read("PermissionCount", &count));
    permissions.Clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        ZR::UniString permission;
        check(in->Read("Permission", &permission));
        permissions.Add(permission);
    }
    check(in->Read("ProjectId", &projectId));
    check(in->Read("UnsentChange", &unsentChanges));
    if (version >= 2) check(in->Read("ProjectForcedOffline", &projectForcedOffline));
    if (version >= 5) {
        check(in->Read("LastOpenProjectTime", &lastOpenProjectTime));
        check(in->Read("TravelPackageCreationTime", &travelPackageCreationTime));
        check(in->Read("TravelPackageCreated", &travelPackageCreated));
        check(in->Read("ExtractedFromTravelPackage", &extractedFromTravelPackage));
        check(in->Read("EnableTravelPackageWarningAtClose", &enableTravelPackageWarningAtClose));
    }
    if (version >= 6) {
        check(in->Read("ProjectVersion", &projectVersion));
        check(in->Read("ProjectBuild", &projectBuildNum));
        check(in->Read("ProjectDetached", &projectDetached));
    } else {
        projectVersion = version == 5 ? "14.0.0.0 (C-107)" : "13.0.0.0";
    }
    if (version >= 7)
        check(in->Read("VisitCount", &visitCount));
    else
        visitCount = 0;

    // A newer writer's file: leave the time alone, so the next Refresh reads it again.
    if (version <= kCacheInfoDataVersion) {
        if (stamped) {
            modificationTime = time;
            fileStamp = stamp;
        }
        if (lastOpenProjectTime == 0) lastOpenProjectTime = modificationTime;
    }
    holder.Close();
}

void CachedProjectInfo::ClearOnReadFailure() {
    port = 0;
    serverName.Clear();
    portalServerUrl.Clear();
    modelServerPath.Clear();
    projectPath.Clear();
    projectName.Clear();
    loginName.Clear();
    userName.Clear();
    userId.Clear();
    modificationTime = 0;
    fileStamp = 0;
    cacheFolder.Clear();
    sessionId.Clear();
    logonId = 0;
    roleName.Clear();
    userColorList.Clear();
    colorMode = 0;
    permissions.Clear();
    projectId.Clear();
    projectForcedOffline = false;
    unsentChanges = false;
}

}  // namespace KRC
