#pragma once
/// @file
/// The foundation's debug output: standard error unless redirected.

#include <cstdio>
#include <string>

#include "ZR/ZRRootExport.h"

namespace ZR {
/// Redirects debug output to a function (tests); null restores standard error.
using DebugOutput = void (*)(const std::string& text);
ZRROOT_EXPORT void SetDebugOutput(DebugOutput output);
}  // namespace ZR

ZRROOT_EXPORT void DBPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
