#pragma once
/// @file
/// How a host describes a project it wants to reach, with its parts kept apart.

#include "IO/Location.h"
#include "KRClient/KRClientExport.h"
#include "ZR/EventSource.h"
#include "ZR/UniString.h"

namespace KRC {

/// Server, model server, user, password or token, folder and name of a
/// project. Nothing in the library reads it; it becomes a project location
/// through ToKerrowLocation. It is an event source for the host's use and
/// sends no event of its own.
class KRCLIENT_EXPORT ClientProjectData : public ZR::TS::EventSource {
public:
    /// Every field empty, reshare false.
    ClientProjectData() = default;
    ClientProjectData(const ZR::UniString& serverUrl, const ZR::UniString& modelServerId,
                      const ZR::UniString& userName, const ZR::UniString& password,
                      const ZR::UniString& projectFolderPath, const ZR::UniString& projectName,
                      bool reshare);

    /// URL of the management server.
    const ZR::UniString& GetServerUrl() const { return serverUrl; }
    void SetServerUrl(const ZR::UniString& value) { serverUrl = value; }
    /// Id of the project server.
    const ZR::UniString& GetModelServerId() const { return modelServerId; }
    void SetModelServerId(const ZR::UniString& value) { modelServerId = value; }
    /// Login name of the user.
    const ZR::UniString& GetUserName() const { return userName; }
    void SetUserName(const ZR::UniString& value) { userName = value; }
    /// The password or token that goes into the location.
    const ZR::UniString& GetPassword() const { return password; }
    void SetPassword(const ZR::UniString& value) { password = value; }
    /// Folder of the project on the server.
    const ZR::UniString& GetProjectFolderPath() const { return projectFolderPath; }
    void SetProjectFolderPath(const ZR::UniString& value) { projectFolderPath = value; }
    /// Name of the project.
    const ZR::UniString& GetProjectName() const { return projectName; }
    void SetProjectName(const ZR::UniString& value) { projectName = value; }
    /// A flag of the host.
    bool GetReshare() const { return reshare; }
    void SetReshare(bool value) { reshare = value; }

    /// Sets location to the project location of server, user and password,
    /// with the folder path and the name joined as the project path; the
    /// fields stay as they are. Answers location. A server URL that carries a
    /// user name or password throws ZR::IllegalArgumentException.
    IO::Location& ToKerrowLocation(IO::Location& location) const;

private:
    ZR::UniString serverUrl;
    ZR::UniString modelServerId;
    ZR::UniString userName;
    ZR::UniString password;
    ZR::UniString projectFolderPath;
    ZR::UniString projectName;
    bool reshare = false;
};

}  // namespace KRC
