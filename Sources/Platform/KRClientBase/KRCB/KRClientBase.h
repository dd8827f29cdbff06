#pragma once
/// @file
/// Start and stop of the base client library.
///
/// Arguments are "Key=Value" texts; unknown keys are ignored. Known keys:
///   BaseFolder=DIR   the folder of the base client's own data (the login data
///                    store). Without it: $XDG_DATA_HOME/KRClientBase, else
///                    ~/.local/share/KRClientBase; never a shared folder such
///                    as /tmp, where another user could make it first.
/// A folder that is made gets mode 0700 at once: it will hold tokens.
/// InitKRClientBase answers false if there is no such folder or it can't be
/// made or used; the base client then runs without one, and the login data
/// operations throw, saying why.

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB {

/// The folder of the base client's data; empty before the first start and
/// while the base client runs without a usable one.
KRCB_EXPORT IO::Location GetBaseDataFolder();
/// Between InitKRClientBase and CloseKRClientBase, with or without a folder.
KRCB_EXPORT bool IsStarted();
/// Why there is no usable base folder; empty when there is one.
KRCB_EXPORT ZR::UniString GetBaseFolderProblem();

}  // namespace KRCB

KRCB_EXPORT bool InitKRClientBase(const ZR::PagedArray<ZR::UniString, 8>& arguments);
KRCB_EXPORT void CloseKRClientBase();
