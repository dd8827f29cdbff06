#include "ZR/Resources.h"

#include <cstddef>
#include <map>
#include <mutex>

namespace {
struct Registry {
    std::mutex mutex;
    std::int64_t next = 1;
    std::map<std::int64_t, const void*> modules;
};
Registry& TheRegistry() {
    static Registry registry;
    return registry;
}
}  // namespace

std::int64_t RSInitModuleImageCache(const void* module) {
    if (!module) return 0;
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.modules[r.next] = module;
    return r.next++;
}

void RSRemoveModuleImageCache(std::int64_t handle) {
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    r.modules.erase(handle);
}

std::size_t ZR::RSRegisteredModuleCount() {
    auto& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mutex);
    return r.modules.size();
}
