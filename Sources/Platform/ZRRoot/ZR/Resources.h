#pragma once
/// @file
/// The resource library's module registry: a module that carries images
/// registers at load and answers its handle at unload.

#include <cstdint>

#include "ZR/ZRRootExport.h"

/// A handle above 0, or 0 if the module could not be registered.
ZRROOT_EXPORT std::int64_t RSInitModuleImageCache(const void* module);
ZRROOT_EXPORT void RSRemoveModuleImageCache(std::int64_t handle);

namespace ZR {
/// How many modules are registered now; for tests.
ZRROOT_EXPORT std::size_t RSRegisteredModuleCount();
}  // namespace ZR
