#include "KRClient/ProjectConnectionInfo.h"

#include "KRCB/Paths.h"

namespace KRC {

ProjectConnectionInfo& ProjectConnectionInfo::operator=(const IO::Location& location) {
    Clear();
    userName = location.GetUserName();
    refreshToken = location.GetPassword();
    serverUrl = KRCB::GetPortalServerUrl(location);
    projectPath = KRCB::GetProjectPath(location);
    return *this;
}

bool ProjectConnectionInfo::operator==(const ProjectConnectionInfo& other) const {
    return serverUrl.IsEqual(other.serverUrl, ZR::kIgnoreCase) &&
           userName.IsEqual(other.userName, ZR::kIgnoreCase) && projectPath == other.projectPath &&
           refreshToken == other.refreshToken && lockedState == other.lockedState;
}

void ProjectConnectionInfo::Clear() {
    serverUrl.Clear();
    projectPath.Clear();
    userName.Clear();
    refreshToken.Clear();
    lockedState = false;
}

bool ProjectConnectionInfo::IsComplete() const {
    return !serverUrl.IsEmpty() && !projectPath.IsEmpty() && !userName.IsEmpty();
}

const IO::Location& ProjectConnectionInfo::ToKerrowLocation(IO::Location* location) const {
    KRCB::CreateServerLocation(*location, serverUrl, userName, refreshToken);
    KRCB::SetProjectPath(*location, projectPath);
    return *location;
}

}  // namespace KRC
