#pragma once
/// @file
/// The in-memory record of one project cache folder and its "CacheInfo.xml".
/// Every change of a field is written to the file at once, or at the end of an
/// update bracket; observers of cachedProjectInfoObserver hear of every write
/// attempt. The refresh token is not a field: it lives in the login data store.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "IO/Location.h"
#include "KRCB/CachedProjectInfo.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/UniString.h"

namespace ZR {
class XMLIChannel;
}

namespace KRC {

class CachedProjectInfo;
class CacheInfoReader;

/// Both the listener's base and, as its one instance, the sender.
class KRCLIENT_EXPORT CachedProjectInfoObserver : public ZR::EventObserver, public ZR::EventSource {
public:
    ~CachedProjectInfoObserver() override = default;
    virtual void ContentWrittenToDisc(const CachedProjectInfo* cachedProjectInfo) {
        (void)cachedProjectInfo;
    }

    void Attach(CachedProjectInfoObserver& observer) { ZR::EventSource::Attach(observer); }
    void Detach(CachedProjectInfoObserver& observer) { ZR::EventSource::Detach(observer); }

    static CachedProjectInfoObserver mSingleton;

protected:
    friend class CachedProjectInfo;
    void SendContentWrittenToDisc(const CachedProjectInfo* cachedProjectInfo) const;
};

extern KRCLIENT_EXPORT CachedProjectInfoObserver& cachedProjectInfoObserver;

inline constexpr const char* kCacheInfoFileName = "CacheInfo.xml";
inline constexpr std::uint16_t kCacheInfoDataVersion = 10;

class KRCLIENT_EXPORT CachedProjectInfo : public KRCB::CachedProjectInfo {
public:
    /// Reads an existing cache folder; file exceptions leave the constructor.
    explicit CachedProjectInfo(const IO::Location& cacheFolder);
    /// Makes a new cache folder under mainCacheFolder and writes its first file.
    /// A server URL holding a user name or password is refused
    /// (ZR::IllegalArgumentException) before anything is made.
    CachedProjectInfo(const ProjectConnectionInfo& connectionInfo,
                      const IO::Location& mainCacheFolder);
    CachedProjectInfo(const CachedProjectInfo& other);
    CachedProjectInfo& operator=(const CachedProjectInfo& other);
    /// Takes the other record's content but keeps this one's update state, so a
    /// copy that was caught inside its own update bracket doesn't hold this one
    /// in an update that nobody will end.
    void AssignContent(const CachedProjectInfo& other);
    /// Writes if an update was left open with a write pending.
    ~CachedProjectInfo() override;

    static bool CachedProjectInfoExist(const IO::Location& cacheFolder);

    /// Update bracket; doesn't nest.
    void BeginUpdate();
    void EndUpdate();
    bool IsUpdating() const { return updating; }

    short GetColorMode() const { return colorMode; }
    void SetColorMode(short value);
    int GetLastOpenProjectTime() const { return lastOpenProjectTime; }
    void SetLastOpenProjectTime(int value);
    int GetProjectBuildNum() const { return projectBuildNum; }
    void SetProjectBuildNum(int value);
    ZR::UniString GetProjectVersion() const { return projectVersion; }
    void SetProjectVersion(const ZR::UniString& value);
    int GetTravelPackageCreationTime() const { return travelPackageCreationTime; }
    void SetTravelPackageCreationTime(int value);
    bool IsTravelPackageCreated() const { return travelPackageCreated; }
    void SetTravelPackageCreated(bool value);
    bool ExtractedFromTravelPackage() const { return extractedFromTravelPackage; }
    void SetExtractedFromTravelPackage(bool value);
    bool IsEnabledTravelPackageWarningAtClose() const { return enableTravelPackageWarningAtClose; }
    void EnableTravelPackageWarningAtClose(bool value);
    ZR::UniString GetUserColorListString() const { return userColorList; }
    void SetUserColorListString(ZR::UniString value);
    unsigned int GetVisitCount() const { return visitCount; }
    void SetVisitCount(unsigned int value);
    bool IsProjectDetached() const { return projectDetached; }
    void ProjectDetached();
    void ProjectReloaded();

    void SetCacheFolder(const IO::Location& folder);
    void SetLogonId(int value);
    void SetModelServerPath(const ZR::UniString& value);
    void SetPermissions(const ZR::HashSet<ZR::UniString>& value);
    void SetProjectId(const ZR::UniString& value);
    void SetProjectPath(const ZR::UniString& value);
    void SetSessionId(const ZR::UniString& value);
    void SetUnsentChanges(bool value);
    void SetUserId(const ZR::UniString& value);
    void SetUserName(const ZR::UniString& value);  ///< compared without regard to case

    /// Fields that only the file sets; read access for tools and tests.
    ZR::UniString GetProjectName() const { return projectName; }
    ZR::UniString GetRoleName() const { return roleName; }
    ZR::UniString GetProjectCategoryName() const { return projectCategoryName; }
    bool HasWritePending() const { return writePending; }

    bool IsComplete() const;
    std::int32_t GetModificationTime() const { return modificationTime; }
    const IO::Location& GetCacheInfoFileLocation(IO::Location* location) const;
    IO::Name GetLocalFolderName() const;
    std::uint64_t GetSpace_Mbyte() const;

    const ProjectConnectionInfo& GetProjectConnectionInfo(ProjectConnectionInfo* info) const;
    bool SetProjectConnectionInfo(const ProjectConnectionInfo& info);

    /// The token is kept in the login data store under server and login name.
    ZR::UniString GetRefreshToken() const;
    void SetRefreshToken(const ZR::UniString& token);

    /// Re-reads the file if it changed since this object last saw it.
    void Refresh();
    /// Refresh with one look at the file: false, and nothing read, if the
    /// folder holds no info file. *reread tells whether the file was read again.
    bool RefreshIfPresent(bool* reread = nullptr);
    /// Writes even inside an update.
    void WriteToDisc() { WriteToDiscIfComplete(true); }

protected:
    std::int32_t _GetLastModificationTime() const override { return modificationTime; }
    std::int16_t _GetPort() const override { return port; }
    ZR::UniString _GetServerName() const override { return serverName; }
    ZR::UniString _GetPortalServerUrl() const override { return portalServerUrl; }
    ZR::UniString _GetModelServerPath() const override { return modelServerPath; }
    ZR::UniString _GetProjectPath() const override { return projectPath; }
    ZR::UniString _GetRefreshToken() const override { return GetRefreshToken(); }
    ZR::UniString _GetUserName_() const override { return userName; }
    ZR::UniString _GetLoginName() const override { return loginName; }
    ZR::UniString _GetUserId() const override { return userId; }
    ZR::UniString _GetSessionId() const override { return sessionId; }
    ZR::UniString _GetProjectId() const override { return projectId; }
    bool _IsChanges() const override { return unsentChanges; }
    bool _IsReservation() const override { return false; }
    const IO::Location& _GetCacheFolderLocation() const override { return cacheFolder; }
    std::int32_t _GetLogonId() const override { return logonId; }
    const ZR::HashSet<ZR::UniString>& _GetPermissions() const override;
    void _GetCacheEntryList(ZR::Array<IO::Name>& entries) const override;
    void _SetChanges(bool changes) override { SetUnsentChanges(changes); }
    void _SetSessionId(const ZR::UniString& id) override { SetSessionId(id); }
    void _SetProjectForcedOffline(bool offline) override;
    bool _IsProjectForcedOffline() const override { return projectForcedOffline; }
    std::int32_t _GetXMLVersion() const override { return xmlVersion; }

private:
    friend class CacheInfoReader;
    struct Unread {};
    /// A record of cacheFolder with every field empty, for a reader to fill.
    CachedProjectInfo(const IO::Location& folder, Unread) : cacheFolder(folder) {}

    template <typename T>
    void SetField(T& field, const T& value);

    void ClearOnReadFailure();
    bool SetProjectConnectionInfoInner(const ProjectConnectionInfo& info);
    void ReadFromDisc(bool keepValuesOnFailure);
    void WriteToDiscIfComplete(bool force) const;
    void WriteFile() const;  ///< steps that may throw, used by WriteToDiscIfComplete
    void ReadFile();         ///< steps that may throw, used by ReadFromDisc
    /// The elements of the file in order: 0, or the status of the first failure.
    int ReadFields(ZR::XMLIChannel& in);
    /// After the fields: the time and stamp of what was read, if known.
    void TakeFileStamp(bool stamped, std::int32_t time, std::uint64_t stamp);
    std::string GetCacheInfoFilePath() const;
    void PermissionsChanged();
    void SetModificationTime() const;
    // The file's time and stamp as they are now; false if they can't be had.
    bool GetFileStamp(std::int32_t* time, std::uint64_t* stamp) const;

    std::int16_t port = 0;
    ZR::UniString serverName;
    ZR::UniString portalServerUrl;
    ZR::UniString modelServerPath;
    ZR::UniString projectPath;
    ZR::UniString projectName;
    ZR::UniString loginName;
    ZR::UniString userName;
    ZR::UniString userId;
    ZR::UniString sessionId;
    ZR::UniString projectId;
    ZR::UniString projectCategoryName;
    mutable std::int32_t modificationTime = 0;
    IO::Location cacheFolder;
    std::int32_t logonId = 0;
    ZR::UniString roleName;
    /// The permissions in their order, without repeats. Kept as a list: a
    /// registry holds many records, and a hash set of a few texts costs
    /// several times their size. The set that _GetPermissions answers is made
    /// at its first call and then kept in step, so a reference to it stays good.
    std::vector<ZR::UniString> permissions;
    mutable std::unique_ptr<ZR::HashSet<ZR::UniString>> permissionSet;
    bool projectForcedOffline = false;
    bool unsentChanges = false;
    std::int32_t lastOpenProjectTime = 0;
    std::int32_t travelPackageCreationTime = 0;
    bool travelPackageCreated = false;
    bool extractedFromTravelPackage = false;
    bool enableTravelPackageWarningAtClose = false;
    ZR::UniString userColorList;
    std::int16_t colorMode = 0;
    ZR::UniString projectVersion;
    std::int32_t projectBuildNum = 0;
    bool projectDetached = false;
    std::uint32_t visitCount = 0;
    bool updating = false;
    mutable bool writePending = false;
    std::int32_t xmlVersion = 0;
    /// Finer than modificationTime (seconds): two writes within one second
    /// by different processes must still be told apart by Refresh.
    mutable std::uint64_t fileStamp = 0;
};

}  // namespace KRC
