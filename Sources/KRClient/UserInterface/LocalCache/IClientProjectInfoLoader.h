#pragma once
/// @file
/// The host's source of local project records. The library neither calls nor
/// implements it; the host declares what the two operations mean.

#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"
#include "ZR/Containers.h"

namespace KRC::UI::LocalCache {

class KRCLIENT_EXPORT IClientProjectInfoLoader {
public:
    IClientProjectInfoLoader();
    virtual ~IClientProjectInfoLoader();
    /// Loads the records of every cached project.
    virtual bool LoadProjectInfos(ZR::Array<ProjectInfo>& projects) = 0;
    /// Loads the record of one project by its path.
    virtual bool LoadProjectInfo(const ZR::UniString& path, ProjectInfo& project) = 0;
};

}  // namespace KRC::UI::LocalCache
