#pragma once
/// @file
/// Whether a project may be shared into a folder, judged from what a result
/// cache already knows of the server.

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/DataQueryResultCache.h"
#include "ZR/Exceptions.h"
#include "ZR/Ref.h"

namespace KRC {

struct ReshareStatus {
    enum Value {
        Ok = 0,
        UnknownProject = 1,
        MissingProject = 2,
        LockedProject = 3,
        ClosedProject = 4,
        IncompatibleModelServer = 5,
        FolderNameTaken = 6,
        LibraryNameTaken = 7,
        ChangeHostProject = 8,
        NoPermission = 9
    };
};

/// Asks the server nothing. projectExists is set to true when a permitted
/// project of that name stands in the folder, never to false; exception
/// receives the version check's failure behind IncompatibleModelServer.
/// A cache without server information raises ZR::NullReferenceException.
KRCLIENT_EXPORT ReshareStatus::Value ReshareCheck(
    const ZR::Ref<KRCB::Management::Entities::ProjectFolder>& folder,
    const ZR::UniString& projectName, const ZR::Ref<UI::DataQueryResultCache>& cache,
    const ZR::UniString& modelServerId, bool& projectExists, ZR::UniString& existingModelServerId,
    ZR::Ref<ZR::ZRException>& exception);

}  // namespace KRC
