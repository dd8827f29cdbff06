#include "KRClient/ClientProjectData.h"

#include "KRCB/Paths.h"

namespace KRC {

ClientProjectData::ClientProjectData(const ZR::UniString& serverUrl,
                                     const ZR::UniString& modelServerId,
                                     const ZR::UniString& userName, const ZR::UniString& password,
                                     const ZR::UniString& projectFolderPath,
                                     const ZR::UniString& projectName, bool reshare)
    : serverUrl(serverUrl),
      modelServerId(modelServerId),
      userName(userName),
      password(password),
      projectFolderPath(projectFolderPath),
      projectName(projectName),
      reshare(reshare) {}

IO::Location& ClientProjectData::ToKerrowLocation(IO::Location& location) const {
    KRCB::CreateServerLocation(location, serverUrl, userName, password);
    ZR::UniString path = projectFolderPath;
    KRCB::Management::AppendToResourcePath(projectName, path);
    KRCB::SetProjectPath(location, path);
    return location;
}

}  // namespace KRC
