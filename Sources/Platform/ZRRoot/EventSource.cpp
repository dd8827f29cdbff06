#include "ZR/EventSource.h"

#include <algorithm>

namespace ZR {

EventObserver::~EventObserver() {
    // Copy: Detach edits mSources.
    std::vector<EventSource*> sources = mSources;
    for (EventSource* source : sources) source->Detach(*this);
}

EventSource::~EventSource() {
    std::vector<Entry> observers = mObservers;
    mObservers.clear();
    for (auto it = observers.rbegin(); it != observers.rend(); ++it) {
        auto& list = it->observer->mSources;
        list.erase(std::remove(list.begin(), list.end(), this), list.end());
        it->observer->SourceDestroyed(this);
    }
}

void EventSource::Attach(EventObserver& observer) {
    if (IsAttached(observer)) return;
    mObservers.push_back({&observer, mNextSeq++});
    observer.mSources.push_back(this);
}

void EventSource::Detach(EventObserver& observer) {
    auto it = std::find_if(mObservers.begin(), mObservers.end(),
                           [&](const Entry& e) { return e.observer == &observer; });
    if (it == mObservers.end()) return;
    mObservers.erase(it);
    auto& list = observer.mSources;
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
}

bool EventSource::IsAttached(const EventObserver& observer) const {
    return std::any_of(mObservers.begin(), mObservers.end(),
                       [&](const Entry& e) { return e.observer == &observer; });
}

namespace TS {

using Internal::SourceCore;

namespace {

void Unlink(std::vector<std::shared_ptr<SourceCore>>& links, const SourceCore* core) {
    auto it = std::find_if(links.begin(), links.end(),
                           [&](const std::shared_ptr<SourceCore>& l) { return l.get() == core; });
    if (it != links.end()) links.erase(it);
}

}  // namespace

// Lock order: a source's lock, then an observer's; an observer never holds its
// own lock while it takes a source's.

EventObserver::~EventObserver() {
    DetachFromSources();
}

void EventObserver::DetachFromSources() {
    // One source at a time, until none is left: a source attached meanwhile is
    // detached too.
    while (true) {
        std::shared_ptr<SourceCore> core;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            if (mSources.empty()) return;
            core = mSources.back();
        }
        // Waits for a walk under way on another thread. The core outlives its
        // source, so a source destroyed meanwhile is no danger.
        std::lock_guard<std::recursive_mutex> coreLock(core->mutex);
        auto& list = core->observers;
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [&](const SourceCore::Entry& e) { return e.observer == this; }),
                   list.end());
        std::lock_guard<std::mutex> lock(mMutex);
        Unlink(mSources, core.get());
    }
}

EventSource::EventSource() : mCore(std::make_shared<SourceCore>()) {}

EventSource::~EventSource() {
    DetachObservers();
}

void EventSource::DetachObservers() {
    // The lock stays while SourceDestroyed runs: an observer being destroyed
    // on another thread waits in DetachFromSources until the call is over.
    std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
    while (!mCore->observers.empty()) {
        EventObserver* observer = mCore->observers.back().observer;
        mCore->observers.pop_back();
        observer->SourceDestroyed(this);
        // Unlinked only now: till here the observer's DetachFromSources finds
        // this source and so waits for the lock.
        std::lock_guard<std::mutex> olock(observer->mMutex);
        Unlink(observer->mSources, mCore.get());
    }
}

void EventSource::Attach(EventObserver& observer) {
    std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
    for (const auto& e : mCore->observers)
        if (e.observer == &observer) return;
    mCore->observers.push_back({&observer, mCore->nextSeq++});
    std::lock_guard<std::mutex> olock(observer.mMutex);
    observer.mSources.push_back(mCore);
}

void EventSource::Detach(EventObserver& observer) {
    std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
    auto& list = mCore->observers;
    auto it = std::find_if(list.begin(), list.end(),
                           [&](const SourceCore::Entry& e) { return e.observer == &observer; });
    if (it == list.end()) return;
    list.erase(it);
    std::lock_guard<std::mutex> olock(observer.mMutex);
    Unlink(observer.mSources, mCore.get());
}

bool EventSource::IsAttached(const EventObserver& observer) const {
    std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
    return std::any_of(mCore->observers.begin(), mCore->observers.end(),
                       [&](const SourceCore::Entry& e) { return e.observer == &observer; });
}

std::size_t EventSource::GetObserverCount() const {
    std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
    return mCore->observers.size();
}

}  // namespace TS
}  // namespace ZR
