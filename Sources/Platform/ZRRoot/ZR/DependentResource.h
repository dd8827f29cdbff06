#pragma once
/// @file
/// Work that depends on an object which may go away first: a notifier posted
/// to the message loop for an observer that the host destroys meanwhile.
///
/// A DependentResource owns a liveness token. A DependentTask built on it
/// calls Execute only while the resource lives, and keeps it alive for the
/// call: a resource being destroyed waits for an Execute already running on
/// it on another thread. A resource that is gone is never touched, not even
/// when a task is built on its pointer afterwards.

#include <memory>

#include "ZR/Runnable.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// An object that tasks may depend on.
///
/// A class deriving from DependentResource must call ReleaseDependents() first
/// thing in its own destructor. The base's destructor runs after the derived
/// parts are gone, so an Execute that it waits for, or one that starts in the
/// meantime, would meet a half-destroyed object.
///
/// An Execute must not wait for the thread that destroys its resource.
class ZRROOT_EXPORT DependentResource {
public:
    DependentResource();
    /// A copy is a resource of its own; tasks on the original don't reach it.
    DependentResource(const DependentResource& other);
    DependentResource& operator=(const DependentResource&) { return *this; }
    virtual ~DependentResource();

    struct Token;

protected:
    /// Ends the object's life for its tasks: after it returns, no Execute runs
    /// on it any more. Waits for those running on other threads; one running
    /// on the calling thread (an Execute that destroys its own resource) is
    /// not waited for. Later calls do nothing.
    void ReleaseDependents() noexcept;

private:
    std::shared_ptr<Token> mToken;
};

/// A task that runs Execute on its resource only while the resource lives.
class ZRROOT_EXPORT DependentTask : public Runnable {
public:
    /// Built on resource, which may be null or already destroyed: Run then
    /// does nothing. The pointer itself is never read. (Should a new resource
    /// have taken the address of a destroyed one, the task goes to the new one;
    /// Execute checks the type it is given.)
    explicit DependentTask(DependentResource* resource);

    /// Calls Execute(resource) if the resource still lives, holding it alive
    /// for the call.
    void Run() override;

    /// The work, given the live resource.
    virtual void Execute(DependentResource* resource) = 0;

private:
    DependentResource* mResource;
    std::shared_ptr<DependentResource::Token> mToken;
};

}  // namespace ZR
