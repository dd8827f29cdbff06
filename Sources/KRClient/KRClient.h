#pragma once
/// @file
/// Start and stop of the library, and printing of failures.

#include "IO/Location.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRC {

/// Starts the base client library with the host's arguments, handed through
/// untouched; its answer enables or disables the cached project check.
KRCLIENT_EXPORT void InitKRClient(const ZR::PagedArray<ZR::UniString, 8>& arguments);
KRCLIENT_EXPORT void CloseKRClient();

/// The whole chain of an exception and its causes, as text.
KRCLIENT_EXPORT ZR::UniString ToString(const ZR::ZRException& exception);
KRCLIENT_EXPORT void DebugPrintEx(const ZR::ZRException& exception);

KRCLIENT_EXPORT bool FileExist(const IO::Location& location);

}  // namespace KRC
