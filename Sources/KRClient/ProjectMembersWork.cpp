// The worker half of ProjectMembers: listens for the "members changed"
// signal, fetches the members on a thread of its own, and hands the list back
// through the message loop. It never touches the owner's tables itself.

#include "KRClient/Internal/ProjectMembersWork.h"

#include <atomic>
#include <mutex>

#include "KRCB/Clients.h"
#include "KRCB/LowMessageLoopExecutor.h"
#include "KRCB/Operation.h"
#include "KRClient/KRClient.h"
#include "KRClient/ProjectConnectionProvider.h"
#include "KRClient/ProjectMembers.h"
#include "Kerrow/Exceptions.h"
#include "ZR/Debug.h"

namespace KRC {

namespace {

// A stop test found the flag set: unwind without posting anything.
struct Stopped {};

}  // namespace

ProjectMembers::Work::Work(KRCB::SignalClient& signalClient,
                           KRCB::ProjectConnectionManagerInterface* connectionManager,
                           ProjectConnectionProvider* connectionProvider)
    : signalClient(&signalClient),
      connectionProvider(connectionProvider),
      executor(new ZR::PooledExecutor(1, 1, 300000, ZR::UniString())) {
    if (connectionManager) {
        connectionData.serverUrl = connectionManager->GetPortalServerUrl();
        connectionData.loginName = connectionManager->GetLoginName();
        connectionData.refreshToken = connectionManager->GetRefreshToken();
        connectionData.sessionId = connectionManager->GetSessionId();
        connectionData.projectId = connectionManager->GetProjectId();
        connectionData.isSecondary = connectionManager->IsSecondary();
    }
    signalClient.Attach(static_cast<KRCB::SignalObserver&>(*this));
}

ProjectMembers::Work::~Work() {
    // No notifier and no signal may reach a half-destroyed object.
    ReleaseDependents();
    DetachFromSources();
    ShutDown();
    delete executor;
}

void ProjectMembers::Work::ShutDown() {
    try {
        executor->Cancel();
        executor->WaitTermination(5000, true, nullptr);
    } catch (const ZR::ZRException& e) {
        KRCB::LogException(e);
    }
}

void ProjectMembers::Work::StopListening() {
    DetachFromSources();
}

void ProjectMembers::Work::SetSelf(ZR::Ref<Work, ZR::AtomicCounter>* reference) {
    std::lock_guard<std::mutex> lock(selfMutex);
    self = reference;
}

ZR::Ref<ProjectMembers::Work, ZR::AtomicCounter> ProjectMembers::Work::GetSelf() {
    std::lock_guard<std::mutex> lock(selfMutex);
    return self ? *self : ZR::Ref<Work, ZR::AtomicCounter>();
}

bool ProjectMembers::Work::CheckSignalType(const KRCB::SignalId& id) const {
    return id == KRCB::kSignalMembersChanged;
}

void ProjectMembers::Work::SignalReceived(KRCB::SignalClient*, const KRCB::Signal&) {
    // After Stop the manager behind the provider may be going away.
    if (stopFlag || !connectionProvider) return;
    // The check of a new connection may repair the session: it writes the
    // registry, the manager and the login data, which belong to the host's
    // thread. So it runs there, on the loop, not on the signal client's.
    KRCB::LowMessageLoopExecutor loop;
    if (loop.CanExecuteTask()) loop.Execute(ZR::RunnableTask(new CheckConnectionTask(this)));
}

void ProjectMembers::Work::CheckConnectionTask::Execute(ZR::DependentResource* resource) {
    auto* work = dynamic_cast<Work*>(resource);
    if (work) work->RefreshIfOpen();
}

void ProjectMembers::Work::RefreshIfOpen() {
    if (stopFlag) return;
    try {
        ZR::Ref<BorrowedReadProjectConnection, ZR::AtomicCounter> borrowed =
            connectionProvider->GetBorrowedReadProjectConnection();
        ZR::Ref<ReadProjectConnection, ZR::AtomicCounter> connection = borrowed->GetConnection();
        if (connection->IsOpen(nullptr)) ScheduleRefresh();
    } catch (const ZR::ZRException& e) {
        // A project that can't be opened now has no members to fetch.
        DebugPrintEx(e);
    }
}

void ProjectMembers::Work::ScheduleRefresh() {
    if (stopFlag || signalClient->IsForcedOffline() || connectionData.isSecondary) return;
    ZR::Ref<Work, ZR::AtomicCounter> reference = GetSelf();
    if (!reference || executor->IsShutdown() || executor->IsCanceled()) return;
    // Not merged with a request already queued: each signal queues a fetch.
    executor->Execute(ZR::RunnableTask(new GetProjectMembersTask(reference)));
}

void ProjectMembers::Work::GetProjectMembersTask::Run() {
    if (!work || work->stopFlag) return;
    KRCB::Operation::OperationGuard guard("GetProjectMembersTask", false);
    work->FetchProjectMembers();
}

void ProjectMembers::Work::StopTest() const {
    if (stopFlag) throw Stopped();
}

void ProjectMembers::Work::FetchProjectMembers() {
    try {
        Fetch();
    } catch (const Stopped&) {
    } catch (const KRCB::ForcedOfflineStateException&) {
    } catch (const ZR::InterruptedException&) {
    } catch (const ZR::InterruptedIOException&) {
    } catch (const ZR::InternalErrorException&) {
    } catch (const Communication::Client::ClientConnectionException&) {
    } catch (const Kerrow::PortalServer::Client::PortalServerClientException&) {
    } catch (const Kerrow::Server::Project::Client::ProjectManagerClientException&) {
    } catch (const KRCB::KRClientBaseException&) {
    } catch (const ZR::ZRException& e) {
        DBPrintf("GetProjectMembersTask failed: %s\n", e.GetMessage().ToCString());
        DebugPrintEx(e);
    } catch (...) {
    }
}

void ProjectMembers::Work::Fetch() {
    if (stopFlag || signalClient->IsForcedOffline() || !GetSelf()) return;
    ConnectionData data = connectionData;
    // The signal client carries the token in use now; ours may be stale.
    data.refreshToken = signalClient->GetProjectLocation().GetPassword();

    ZR::Ref<KRCB::Management::ResourceManagerClient> client =
        KRCB::CreateResourceManagerClientOnOpenedProject(signalClient, data.serverUrl,
                                                         data.loginName, data.refreshToken, true,
                                                         true, data.projectId, 0, false);
    StopTest();
    ZR::Ref<Kerrow::Server::Project::Client::ProjectClient> projectClient =
        client->GetProjectClient(data.projectId);
    StopTest();

    auto list = ZR::CountedPtr<ZR::PagedArray<UserInfo>, ZR::AtomicCounter>::Make();
    ZR::PagedArray<Kerrow::Server::Project::ProjectMember> members;
    projectClient->GetProjectMembers(data.sessionId, 1, members);

    ZR::Array<ZR::UniString> newIds;
    for (const auto& member : members)
        if (!cachedUsers.Contains(member.GetServerUserId())) newIds.Add(member.GetServerUserId());

    if (newIds.GetSize() > 0) {
        KRCB::Management::PortalServerNonTransactionalQueryGuard query(*client);
        KRCB::Management::PortalServerClient& portal = projectClient->GetPortalServerClient();
        ZR::HashTable<ZR::UniString, ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter>>
            users;
        portal.GetUsersByIds(newIds, users);
        StopTest();
        for (const auto& [userId, user] : users) {
            try {
                auto cached = ZR::CountedPtr<CachedUserInfo, ZR::AtomicCounter>::Make(user);
                portal.GetUserPermissions(data.projectId, userId, cached->permissions);
                StopTest();
                cachedUsers.Add(userId, cached);
            } catch (const ZR::InterruptedIOException&) {
                throw;
            } catch (const ZR::InternalErrorException&) {
                throw;
            } catch (const ZR::ZRException&) {
                // This user is missing from this refresh and asked for again at the next.
            }
        }
    }
    StopTest();

    for (const auto& member : members) {
        const auto* cached = cachedUsers.Find(member.GetServerUserId());
        if (!cached) continue;
        list->Add(UserInfo((*cached)->user, member.GetUserId(), member.GetLoginName(),
                           (*cached)->permissions));
    }
    StopTest();

    KRCB::LowMessageLoopExecutor loop;
    if (loop.CanExecuteTask()) loop.Execute(ZR::RunnableTask(new NotifyObserversTask(this, list)));
}

void ProjectMembers::Work::NotifyObserversTask::Execute(ZR::DependentResource* resource) {
    auto* work = dynamic_cast<Work*>(resource);
    if (!work) return;
    if (ProjectMembers* owner = work->owner) {
        owner->RefreshProjectMembers(list);
        if (work->owner) owner->NotifyObservers();
    }
}

}  // namespace KRC
