// "CacheInfo.xml": reading at every data version, writing at the current one.

#include <string>
#include <unordered_set>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/StampedFile.h"
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

// Keeps the first of equal texts, in order, as adding to a set would.
void DropRepeats(std::vector<ZR::UniString>& texts) {
    if (texts.size() < 2) return;
    // A few texts are compared with each other; many go through a set.
    constexpr std::size_t kFew = 16;
    std::unordered_set<std::string> seen;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < texts.size(); ++i) {
        bool repeat = false;
        if (texts.size() <= kFew) {
            for (std::size_t k = 0; k < kept && !repeat; ++k) repeat = texts[k] == texts[i];
        } else {
            repeat = !seen.insert(texts[i].Std()).second;
        }
        if (repeat) continue;
        if (kept != i) texts[kept] = std::move(texts[i]);
        ++kept;
    }
    texts.resize(kept);
}

}  // namespace

std::string CachedProjectInfo::GetCacheInfoFilePath() const {
    const std::string& folder = cacheFolder.GetLocalPath().Std();
    if (folder.empty()) return std::string();
    std::string path;
    path.reserve(folder.size() + 1 + std::char_traits<char>::length(kCacheInfoFileName));
    path += folder;
    if (folder != "/") path += '/';
    path += kCacheInfoFileName;
    return path;
}

bool CachedProjectInfo::GetFileStamp(std::int32_t* time, std::uint64_t* stamp) const {
    const std::string path = GetCacheInfoFilePath();
    IO::FileStamp now;
    if (path.empty() || IO::StatStamp(path.c_str(), &now) != IO::kOk) return false;
    *time = now.modificationTime;
    *stamp = now.changeStamp;
    return true;
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
    check(out->Write("PermissionCount", static_cast<std::uint32_t>(permissions.size())));
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

    Check<ErrorReadingFile>(ReadFields(*in), location);
    TakeFileStamp(stamped, time, stamp);
    holder.Close();
}

int CachedProjectInfo::ReadFields(ZR::XMLIChannel& in) {
    // Each step reads one element straight into its field; the first failure ends the read.
#define KRC_READ(key, field) \
    if (int status = in.Read(key, field); status != 0) return status
    std::uint16_t version = 0;
    KRC_READ("DataVersion", &version);
    xmlVersion = version;

    if (version >= 1) KRC_READ("LoginName", &loginName);
    KRC_READ("UserName", &userName);
    KRC_READ("UserId", &userId);
    if (version >= 8) KRC_READ("ProjectPath", &projectPath);
    KRC_READ("ProjectName", &projectName);
    if (projectPath.IsEmpty()) projectPath = projectName;
    if (version >= 3) KRC_READ("ProjectCategoryName", &projectCategoryName);
    KRC_READ("ServerName", &serverName);
    KRC_READ("Port", &port);
    if (version >= 8) KRC_READ("PortalServerUrl", &portalServerUrl);
    if (version >= 10) {
        KRC_READ("ModelServerName", &modelServerPath);
    } else {
        modelServerPath.Clear();
    }
    KRC_READ("SessionId", &sessionId);
    KRC_READ("LogonId", &logonId);
    KRC_READ("RoleName", &roleName);
    if (version >= 2) {
        KRC_READ("UserColorList", &userColorList);
        KRC_READ("ColorMode", &colorMode);
    }
    std::uint32_t count = 0;
    KRC_READ("PermissionCount", &count);
    permissions.clear();
    for (std::uint32_t i = 0; i < count; ++i) {
        ZR::UniString permission;
        KRC_READ("Permission", &permission);
        permissions.push_back(std::move(permission));
    }
    DropRepeats(permissions);
    PermissionsChanged();
    KRC_READ("ProjectId", &projectId);
    KRC_READ("UnsentChange", &unsentChanges);
    if (version >= 2) KRC_READ("ProjectForcedOffline", &projectForcedOffline);
    if (version >= 5) {
        KRC_READ("LastOpenProjectTime", &lastOpenProjectTime);
        KRC_READ("TravelPackageCreationTime", &travelPackageCreationTime);
        KRC_READ("TravelPackageCreated", &travelPackageCreated);
        KRC_READ("ExtractedFromTravelPackage", &extractedFromTravelPackage);
        KRC_READ("EnableTravelPackageWarningAtClose", &enableTravelPackageWarningAtClose);
    }
    if (version >= 6) {
        KRC_READ("ProjectVersion", &projectVersion);
        KRC_READ("ProjectBuild", &projectBuildNum);
        KRC_READ("ProjectDetached", &projectDetached);
    } else {
        projectVersion = version == 5 ? "14.0.0.0 (C-107)" : "13.0.0.0";
    }
    if (version >= 7) {
        KRC_READ("VisitCount", &visitCount);
    } else {
        visitCount = 0;
    }
#undef KRC_READ
    return 0;
}

void CachedProjectInfo::TakeFileStamp(bool stamped, std::int32_t time, std::uint64_t stamp) {
    // A newer writer's file: leave the time alone, so the next Refresh reads it again.
    if (xmlVersion <= kCacheInfoDataVersion) {
        if (stamped) {
            modificationTime = time;
            fileStamp = stamp;
        }
        if (lastOpenProjectTime == 0) lastOpenProjectTime = modificationTime;
    }
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
    permissions.clear();
    PermissionsChanged();
    projectId.Clear();
    projectForcedOffline = false;
    unsentChanges = false;
}

}  // namespace KRC
