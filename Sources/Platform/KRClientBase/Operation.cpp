#include "KRCB/Operation.h"

#include <list>
#include <utility>

namespace KRCB::Operation {

namespace {

struct Running {
    std::uint64_t serial;
    ZR::UniString name;
    bool busy;
};

// Guards are few and short-lived: a list in start order is all it takes.
struct Registry {
    std::mutex lock;
    std::uint64_t nextSerial = 1;
    std::list<Running> running;
};

Registry& GetRegistry() {
    static Registry registry;
    return registry;
}

std::string CacheKey(const ZR::UniString& server, const ZR::UniString& user,
                     const ZR::UniString& ownerId) {
    std::string key;
    key.reserve(server.GetLength() + user.GetLength() + ownerId.GetLength() + 2);
    key.append(server.Std()).push_back('\0');
    key.append(user.Std()).push_back('\0');
    key.append(ownerId.Std());
    return key;
}

}  // namespace

OperationGuard::OperationGuard(const ZR::UniString& name, bool busy) : mName(name), mBusy(busy) {
    Registry& registry = GetRegistry();
    std::lock_guard lock(registry.lock);
    mSerial = registry.nextSerial++;
    registry.running.push_back({mSerial, mName, mBusy});
}

OperationGuard::~OperationGuard() {
    Registry& registry = GetRegistry();
    std::lock_guard lock(registry.lock);
    registry.running.remove_if([this](const Running& r) { return r.serial == mSerial; });
}

bool OperationGuard::IsBusy() {
    Registry& registry = GetRegistry();
    std::lock_guard lock(registry.lock);
    for (const Running& r : registry.running)
        if (r.busy) return true;
    return false;
}

ZR::PagedArray<ZR::UniString> OperationGuard::GetRunningOperations() {
    Registry& registry = GetRegistry();
    std::lock_guard lock(registry.lock);
    ZR::PagedArray<ZR::UniString> names;
    for (const Running& r : registry.running) names.Add(r.name);
    return names;
}

OperationCache& OperationCache::GetInstance() {
    static OperationCache cache;
    return cache;
}

bool OperationCache::CacheEnabled() const {
    std::lock_guard lock(mLock);
    return mEnabled;
}

void OperationCache::SetCacheEnabled(bool enabled) {
    std::lock_guard lock(mLock);
    mEnabled = enabled;
    if (!enabled) mUsers.clear();
}

bool OperationCache::ContainsUsers(const ZR::UniString& server, const ZR::UniString& user,
                                   const ZR::Array<ZR::UniString>& ownerIds,
                                   ZR::Array<ZR::UniString>& known,
                                   ZR::Array<ZR::UniString>& missing) const {
    known.Clear();
    missing.Clear();
    std::lock_guard lock(mLock);
    if (!mEnabled || server.IsEmpty() || user.IsEmpty()) return false;
    for (const ZR::UniString& id : ownerIds)
        (mUsers.count(CacheKey(server, user, id)) ? known : missing).Add(id);
    return true;
}

void OperationCache::AddUsers(const ZR::UniString& server, const ZR::UniString& user,
                              const ZR::Array<ZR::UniString>& ownerIds) {
    std::lock_guard lock(mLock);
    if (!mEnabled) return;
    for (const ZR::UniString& id : ownerIds) mUsers.insert(CacheKey(server, user, id));
}

void OperationCache::Clear() {
    std::lock_guard lock(mLock);
    mUsers.clear();
}

}  // namespace KRCB::Operation

namespace KRCB {

int BusyStateGuard::GetCount() {
    int count = 0;
    for (const ZR::UniString& name : Operation::OperationGuard::GetRunningOperations())
        if (name == ZR::UniString("BusyState")) ++count;
    return count;
}

}  // namespace KRCB
