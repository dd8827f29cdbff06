#pragma once
/// @file
/// Which project on which server a user means. Converts to and from a project
/// location: the user name is the location's user, the refresh token its password.

#include "IO/Location.h"
#include "KRClient/KRClientExport.h"
#include "ZR/UniString.h"

namespace KRC {

class KRCLIENT_EXPORT ProjectConnectionInfo {
public:
    ProjectConnectionInfo() = default;
    explicit ProjectConnectionInfo(const IO::Location& location) { *this = location; }
    ProjectConnectionInfo& operator=(const IO::Location& location);

    /// Server URL and user name compare without regard to case; path and token exactly.
    bool operator==(const ProjectConnectionInfo& other) const;
    bool operator!=(const ProjectConnectionInfo& other) const { return !(*this == other); }

    void Clear();
    void Init() { Clear(); }
    /// Server URL, project path and user name are set; the token doesn't count.
    bool IsComplete() const;
    bool IsCompleteForKerrowLocation() const { return IsComplete(); }
    const IO::Location& ToKerrowLocation(IO::Location* location) const;

    ZR::UniString GetServerUrl() const { return serverUrl; }
    void SetServerUrl(const ZR::UniString& value) { serverUrl = value; }
    ZR::UniString GetProjectPath() const { return projectPath; }
    void SetProjectPath(const ZR::UniString& value) { projectPath = value; }
    ZR::UniString GetUserName() const { return userName; }
    void SetUserName(const ZR::UniString& value) { userName = value; }
    ZR::UniString GetRefreshToken() const { return refreshToken; }
    void SetRefreshToken(const ZR::UniString& value) { refreshToken = value; }
    bool GetLockedState() const { return lockedState; }
    void SetLockedState(bool value) { lockedState = value; }

private:
    ZR::UniString serverUrl;
    ZR::UniString projectPath;
    ZR::UniString userName;
    ZR::UniString refreshToken;
    bool lockedState = false;
};

}  // namespace KRC
