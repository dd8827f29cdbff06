#pragma once
/// @file
/// Start and stop of the library, and printing of failures.

#include "IO/Location.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRC {

/// Starts the library. The arguments go to the base client untouched, as
/// "Key=Value" texts; unknown keys are ignored. The base client knows:
///
/// | Argument | Meaning |
/// |---|---|
/// | `BaseFolder=DIR` | the base client's own data: the login data file, which holds refresh
/// tokens; made with mode 0700. Without it `$XDG_DATA_HOME/KRClientBase`, else
/// `~/.local/share/KRClientBase`; never a shared folder such as /tmp. |
///
/// No result, and a folder that can't be made or used doesn't make it fail:
/// the base client then runs without one, KRCB::GetBaseFolderProblem() says
/// why, every login data operation throws saying the same, and the cached
/// project check is disabled. A host checks GetBaseFolderProblem right after.
/// The data folder of the registry is given separately, to
/// RegisteredProjects::Init. See docs/FIRST_HOST.md.
KRCLIENT_EXPORT void InitKRClient(const ZR::PagedArray<ZR::UniString, 8>& arguments);
KRCLIENT_EXPORT void CloseKRClient();

/// The whole chain of an exception and its causes, as text.
KRCLIENT_EXPORT ZR::UniString ToString(const ZR::ZRException& exception);
KRCLIENT_EXPORT void DebugPrintEx(const ZR::ZRException& exception);

KRCLIENT_EXPORT bool FileExist(const IO::Location& location);

}  // namespace KRC
