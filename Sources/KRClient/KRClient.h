#pragma once
// Start and stop of the library, and printing of failures.

#include "IO/Location.h"
#include "KRClient/KRClientExceptions.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRC {

// Starts the base client library with the host's arguments, handed through
// untouched; its answer enables or disables the cached project check.
void InitKRClient(const ZR::PagedArray<ZR::UniString, 8>& arguments);
void CloseKRClient();

// The whole chain of an exception and its causes, as text.
ZR::UniString ToString(const ZR::ZRException& exception);
void DebugPrintEx(const ZR::ZRException& exception);

bool FileExist(const IO::Location& location);

}  // namespace KRC
