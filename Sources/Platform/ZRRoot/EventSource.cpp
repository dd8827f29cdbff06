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

EventObserver::~EventObserver() {
    std::vector<EventSource*> sources;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        sources = mSources;
    }
    for (EventSource* source : sources) source->Detach(*this);
}

EventSource::~EventSource() {
    std::vector<Entry> observers;
    {
        std::lock_guard<std::recursive_mutex> lock(mMutex);
        observers.swap(mObservers);
    }
    for (auto it = observers.rbegin(); it != observers.rend(); ++it) {
        {
            std::lock_guard<std::mutex> lock(it->observer->mMutex);
            auto& list = it->observer->mSources;
            list.erase(std::remove(list.begin(), list.end(), this), list.end());
        }
        it->observer->SourceDestroyed(this);
    }
}

void EventSource::Attach(EventObserver& observer) {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    for (const Entry& e : mObservers)
        if (e.observer == &observer) return;
    mObservers.push_back({&observer, mNextSeq++});
    std::lock_guard<std::mutex> olock(observer.mMutex);
    observer.mSources.push_back(this);
}

void EventSource::Detach(EventObserver& observer) {
    std::lock_guard<std::recursive_mutex> lock(mMutex);
    auto it = std::find_if(mObservers.begin(), mObservers.end(),
                           [&](const Entry& e) { return e.observer == &observer; });
    if (it == mObservers.end()) return;
    mObservers.erase(it);
    std::lock_guard<std::mutex> olock(observer.mMutex);
    auto& list = observer.mSources;
    list.erase(std::remove(list.begin(), list.end(), this), list.end());
}

}  // namespace TS
}  // namespace ZR
