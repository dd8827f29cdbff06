#pragma once
/// @file
/// Start and stop of the base client library.
///
/// Arguments are "Key=Value" texts; unknown keys are ignored. Known keys:
///   BaseFolder=DIR   the folder of the base client's own data (the login data
///                    store). Without it: $XDG_DATA_HOME/KRClientBase, else
///                    ~/.local/share/KRClientBase.
/// InitKRClientBase answers false if that folder can't be made or used.

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB {

/// The folder of the base client's data; empty before the first start.
KRCB_EXPORT IO::Location GetBaseDataFolder();
KRCB_EXPORT bool IsStarted();

}  // namespace KRCB

KRCB_EXPORT bool InitKRClientBase(const ZR::PagedArray<ZR::UniString, 8>& arguments);
KRCB_EXPORT void CloseKRClientBase();
