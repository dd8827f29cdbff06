// Second paths under which look-ups find a cache while its project is being
// renamed on the server.

#include <atomic>

#include "KRClient/RegisteredProjects.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"

namespace KRC {
namespace {

// Made at first use and kept to the end of the process.
std::atomic<RegisteredProjects::TemporaryModification*> instance{nullptr};

}  // namespace

RegisteredProjects::TemporaryModification&
RegisteredProjects::TemporaryModification::GetInstance() {
    TemporaryModification* made = instance.load(std::memory_order_acquire);
    if (made) return *made;
    ZR::LockGuard<ZR::Lock> guard(ZR::SingletonLock());
    made = instance.load(std::memory_order_relaxed);
    if (!made) {
        made = new TemporaryModification();
        instance.store(made, std::memory_order_release);
    }
    return *made;
}

void RegisteredProjects::TemporaryModification::Enter() {
    ZR::LockGuard<ZR::Lock> guard(lock);
    ++counter;
}

void RegisteredProjects::TemporaryModification::Leave() {
    ZR::LockGuard<ZR::Lock> guard(lock);
    if (counter <= 0) return;
    if (--counter == 0) modifications.Clear();
}

void RegisteredProjects::TemporaryModification::AddCacheRenameModification(
    const ZR::UniString& server, const ZR::UniString& user, const ZR::UniString& path,
    const ZR::UniString& replacement) {
    ZR::LockGuard<ZR::Lock> guard(lock);
    if (counter > 0) modifications.Add({server, user, path, replacement});
}

bool RegisteredProjects::TemporaryModification::GetCacheRenameModification(
    const ZR::UniString& server, const ZR::UniString& user, const ZR::UniString& path,
    ZR::UniString& replacement) {
    {
        // The way of nearly every look-up: no rename under way, nothing opened.
        ZR::LockGuard<ZR::Lock> guard(lock);
        if (counter == 0) return false;
    }
    // Opened and, after the guard below, closed without the lock held.
    UI::Login::UILoginDataStore store(UI::Login::UILoginDataStore::ForReading);
    ZR::LockGuard<ZR::Lock> guard(lock);
    if (counter < 1 || modifications.IsEmpty()) return false;
    for (const CacheRenameModification& entry : modifications) {
        if (store.IsSameServers(server, entry.server) &&
            user.IsEqual(entry.user, ZR::kIgnoreCase) &&
            path.IsEqual(entry.path, ZR::kIgnoreCase)) {
            replacement = entry.replacement;
            return true;
        }
    }
    return false;
}

}  // namespace KRC
