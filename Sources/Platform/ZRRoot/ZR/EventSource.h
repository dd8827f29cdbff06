#pragma once
/// @file
/// Observers. A source calls its observers on the sender's thread, the last
/// attached first. An observer attached during a walk is not called by it; an
/// observer may detach itself or others from inside its call. A destroyed
/// observer is never touched: it detaches itself from every source it knows.

#include <algorithm>
#include <cstdint>
#include <memory>
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

class EventObserver;
class EventSource;

namespace Internal {
/// The state of a source, shared with its observers, so that an observer and
/// its source may be destroyed on two threads at once.
struct SourceCore {
    struct Entry {
        EventObserver* observer;
        std::uint64_t seq;
    };
    std::recursive_mutex mutex;
    std::vector<Entry> observers;  // in the order of seq
    std::uint64_t nextSeq = 0;
};
}  // namespace Internal

/// An observer of sources that send from several threads.
///
/// A class deriving from it whose sources may send on another thread calls
/// DetachFromSources() first thing in its own destructor: the base's
/// destructor runs after the derived parts are gone, and a send under way
/// would meet a half-destroyed object.
class ZRROOT_EXPORT EventObserver {
public:
    EventObserver() = default;
    EventObserver(const EventObserver&) = delete;
    EventObserver& operator=(const EventObserver&) = delete;
    virtual ~EventObserver();
    /// Called by a source that stops, with its lock held; source is for
    /// identity only, its derived parts may be gone.
    virtual void SourceDestroyed(EventSource* source) { (void)source; }

protected:
    /// Detaches from every source. Waits for a send under way on another
    /// thread; after it returns no source calls this observer.
    void DetachFromSources();

private:
    friend class EventSource;
    std::mutex mMutex;
    std::vector<std::shared_ptr<Internal::SourceCore>> mSources;
};

/// The walk of ZR::EventSource, safe to attach, detach and send from several
/// threads. A send holds the source's recursive lock for its whole walk, so
/// sends on one source don't overlap, an observer may attach or detach from
/// its call, and an attach or detach from another thread waits for the walk.
/// A call must therefore not wait for a thread that uses the same source.
class ZRROOT_EXPORT EventSource {
public:
    EventSource();
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;
    virtual ~EventSource();

    void Attach(EventObserver& observer);
    void Detach(EventObserver& observer);
    bool IsAttached(const EventObserver& observer) const;
    std::size_t GetObserverCount() const;

protected:
    /// Walks the observers as ZR::EventSource does and calls f on each.
    template <typename F>
    void ForEachObserver(F&& f) {
        std::lock_guard<std::recursive_mutex> lock(mCore->mutex);
        const auto& list = mCore->observers;
        std::uint64_t lastSeq = mCore->nextSeq;
        while (true) {
            // Entries stand in the order of their sequence numbers: the next
            // one is the newest older than the last visited.
            auto it = std::lower_bound(list.begin(), list.end(), lastSeq,
                                       [](const Internal::SourceCore::Entry& e, std::uint64_t seq) {
                                           return e.seq < seq;
                                       });
            if (it == list.begin()) break;
            --it;
            lastSeq = it->seq;
            f(it->observer);
        }
    }
    /// Detaches every observer, calling SourceDestroyed on each, the last
    /// attached first. The destructor does it; a derived class whose observers
    /// may be attached or called from other threads does it first thing in
    /// its own destructor.
    void DetachObservers();

private:
    std::shared_ptr<Internal::SourceCore> mCore;
};

}  // namespace TS
}  // namespace ZR
