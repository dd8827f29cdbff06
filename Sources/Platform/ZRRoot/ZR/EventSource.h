#pragma once
/// @file
/// Observers. A source calls its observers on the sender's thread, the last
/// attached first. An observer attached during a walk is not called by it; an
/// observer may detach itself or others from inside its call. A destroyed
/// observer is never touched: it detaches itself from every source it knows.

#include <cstdint>
#include <mutex>
#include <vector>

#include "ZR/ZRRootExport.h"

namespace ZR {

class EventSource;

class ZRROOT_EXPORT EventObserver {
public:
    EventObserver() = default;
    EventObserver(const EventObserver&) : EventObserver() {}
    EventObserver& operator=(const EventObserver&) { return *this; }
    virtual ~EventObserver();
    virtual void SourceDestroyed(EventSource* source) { (void)source; }

private:
    friend class EventSource;
    std::vector<EventSource*> mSources;
};

class ZRROOT_EXPORT EventSource {
public:
    EventSource() = default;
    EventSource(const EventSource&) : EventSource() {}
    EventSource& operator=(const EventSource&) { return *this; }
    virtual ~EventSource();

    void Attach(EventObserver& observer);
    void Detach(EventObserver& observer);
    bool IsAttached(const EventObserver& observer) const;
    std::size_t GetObserverCount() const { return mObservers.size(); }

protected:
    /// Walks the observers as described above and calls f on each.
    template <typename F>
    void ForEachObserver(F&& f) const {
        std::uint64_t lastSeq = mNextSeq;
        std::size_t index = mObservers.size();
        while (true) {
            if (index > mObservers.size()) index = mObservers.size();
            /// Pass over entries not older than the last one visited (or new since the walk began).
            while (index > 0 && mObservers[index - 1].seq >= lastSeq) --index;
            if (index == 0) break;
            --index;
            const Entry entry = mObservers[index];
            lastSeq = entry.seq;
            f(entry.observer);
        }
    }

private:
    struct Entry {
        EventObserver* observer;
        std::uint64_t seq;
    };
    friend class EventObserver;
    void Forget(EventObserver* observer);

    std::vector<Entry> mObservers;
    std::uint64_t mNextSeq = 0;
};

namespace TS {

/// The same walk, safe to attach, detach and send from several threads. The
/// walk holds a recursive lock, so an observer may attach or detach from its
/// call, and a detach from another thread waits for the walk to end.
class EventSource;

class ZRROOT_EXPORT EventObserver {
public:
    EventObserver() = default;
    EventObserver(const EventObserver&) = delete;
    EventObserver& operator=(const EventObserver&) = delete;
    virtual ~EventObserver();
    virtual void SourceDestroyed(EventSource* source) { (void)source; }

private:
    friend class EventSource;
    std::mutex mMutex;
    std::vector<EventSource*> mSources;
};

class ZRROOT_EXPORT EventSource {
public:
    EventSource() = default;
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;
    virtual ~EventSource();

    void Attach(EventObserver& observer);
    void Detach(EventObserver& observer);

protected:
    template <typename F>
    void ForEachObserver(F&& f) {
        std::unique_lock<std::recursive_mutex> lock(mMutex);
        std::uint64_t lastSeq = mNextSeq;
        while (true) {
            const Entry* next = nullptr;
            for (auto it = mObservers.rbegin(); it != mObservers.rend(); ++it)
                if (it->seq < lastSeq) {
                    next = &*it;
                    break;
                }
            if (!next) break;
            lastSeq = next->seq;
            EventObserver* observer = next->observer;
            /// Recursive: the observer may attach or detach from its call.
            f(observer);
        }
    }

private:
    struct Entry {
        EventObserver* observer;
        std::uint64_t seq;
    };
    friend class EventObserver;
    void Forget(EventObserver* observer);

    std::recursive_mutex mMutex;
    std::vector<Entry> mObservers;
    std::uint64_t mNextSeq = 0;
};

}  // namespace TS
}  // namespace ZR
