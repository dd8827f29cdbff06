#pragma once
// The foundation's debug output: standard error unless redirected.

#include <cstdio>
#include <string>

namespace ZR {
// Redirects debug output to a function (tests); null restores standard error.
using DebugOutput = void (*)(const std::string& text);
void SetDebugOutput(DebugOutput output);
}  // namespace ZR

void DBPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
