#pragma once
// The worker half of ProjectMembers (not installed).

#include <atomic>
#include <mutex>

#include "KRCB/SignalClient.h"
#include "KRClient/ProjectMembers.h"
#include "ZR/DependentResource.h"
#include "ZR/PooledExecutor.h"
#include "ZR/Runnable.h"

namespace KRC {

class ProjectMembers::Work : public KRCB::SignalObserver,
                             private ZR::TS::EventSource,
                             public ZR::DependentResource {
public:
    /// What a fetch needs, copied from the manager once.
    struct ConnectionData {
        ZR::UniString serverUrl;
        ZR::UniString loginName;
        ZR::UniString refreshToken;  // never logged
        ZR::UniString sessionId;
        ZR::UniString projectId;
        bool isSecondary = false;
    };

    Work(KRCB::SignalClient& signalClient,
         KRCB::ProjectConnectionManagerInterface* connectionManager,
         ProjectConnectionProvider* connectionProvider);
    ~Work() override;

    bool CheckSignalType(const KRCB::SignalId& id) const override;
    void SignalReceived(KRCB::SignalClient* client, const KRCB::Signal& signal) override;

    void ScheduleRefresh();
    /// Cancels the executor and waits up to 5 seconds for its thread.
    void ShutDown();
    void SetSelf(ZR::Ref<Work, ZR::AtomicCounter>* reference);
    /// Detaches from the signal client, waiting for a signal under way: the
    /// host may close the project once Stop returned.
    void StopListening();

    KRCB::SignalClient* signalClient;
    ProjectConnectionProvider* connectionProvider;
    /// Written by the owner's thread, read by the others.
    std::atomic<ProjectMembers*> owner{nullptr};
    std::atomic<bool> stopFlag{false};
    ZR::PooledExecutor* executor;
    ConnectionData connectionData;

private:
    class GetProjectMembersTask : public ZR::Runnable {
    public:
        explicit GetProjectMembersTask(const ZR::Ref<Work, ZR::AtomicCounter>& work) : work(work) {}
        void Run() override;

    private:
        ZR::Ref<Work, ZR::AtomicCounter> work;
    };

    class NotifyObserversTask : public ZR::DependentTask {
    public:
        NotifyObserversTask(Work* work,
                            const ZR::CountedPtr<ZR::PagedArray<UserInfo>, ZR::AtomicCounter>& list)
            : ZR::DependentTask(work), list(list) {}
        void Execute(ZR::DependentResource* resource) override;

    private:
        ZR::CountedPtr<ZR::PagedArray<UserInfo>, ZR::AtomicCounter> list;
    };

    /// Runs RefreshIfOpen on the message loop.
    class CheckConnectionTask : public ZR::DependentTask {
    public:
        explicit CheckConnectionTask(Work* work) : ZR::DependentTask(work) {}
        void Execute(ZR::DependentResource* resource) override;
    };

    /// On the host's thread: ScheduleRefresh if a read connection opens.
    void RefreshIfOpen();
    ZR::Ref<Work, ZR::AtomicCounter> GetSelf();
    void FetchProjectMembers();
    void Fetch();
    void StopTest() const;

    /// Touched only on the executor's one thread.
    ZR::HashTable<ZR::UniString, ZR::CountedPtr<CachedUserInfo, ZR::AtomicCounter>> cachedUsers;
    /// The owner's reference to this object; the owner's destructor clears
    /// it while a signal may be reading it, hence the lock.
    std::mutex selfMutex;
    ZR::Ref<Work, ZR::AtomicCounter>* self = nullptr;
};

}  // namespace KRC
