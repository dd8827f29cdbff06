#pragma once
// The resource library's module registry: a module that carries images
// registers at load and answers its handle at unload.

#include <cstdint>

// A handle above 0, or 0 if the module could not be registered.
std::int64_t RSInitModuleImageCache(const void* module);
void RSRemoveModuleImageCache(std::int64_t handle);

namespace ZR {
// How many modules are registered now; for tests.
std::size_t RSRegisteredModuleCount();
}  // namespace ZR
