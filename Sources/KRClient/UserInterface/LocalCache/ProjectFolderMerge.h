#pragma once
/// @file
/// Lays the locally cached projects over a project folder tree.

#include <functional>

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"
#include "ZR/Containers.h"

namespace KRC::UI::LocalCache {

class KRCLIENT_EXPORT ProjectFolderMerge {
public:
    /// Changes the tree in place: folders that the records' paths need and
    /// the tree lacks are made as CacheProjectFolders, with the case of the
    /// first record that needs them and the flags of their parent; a
    /// project of the same name (without regard to case) is replaced by a
    /// CacheProject over it, keeping its place; other records are appended.
    /// Paths match without regard to case. An empty rootFolder gets a new
    /// root that holds projects and libraries. filter must be callable.
    static void Merge(const ZR::Array<ProjectInfo>& projects,
                      const std::function<bool(const ProjectInfo&)>& filter,
                      ZR::Ref<KRCB::Management::Entities::ProjectFolder>& rootFolder);
};

}  // namespace KRC::UI::LocalCache
