#include "KRClient/UserInterface/LibrariesQueryTask.h"

#include "KRCB/Clients.h"
#include "KRClient/UserInterface/Internal/TaskNotifier.h"
#include "Kerrow/Exceptions.h"

namespace KRC::UI {

namespace {

using Observer = ILibrariesQueryTaskEventObserver;
using LibrariesQueryDependentTask = Internal::TaskDependentTask<Observer>;

}  // namespace

ILibrariesQueryTaskEventObserver::~ILibrariesQueryTaskEventObserver() {
    ReleaseDependents();
}

LibrariesQueryTask::LibrariesQueryTask(
    const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection_,
    unsigned int taskId_, ILibrariesQueryTaskEventObserver* observer_)
    : connection(connection_), taskId(taskId_), observer(observer_) {}

LibrariesQueryTask::~LibrariesQueryTask() = default;

void LibrariesQueryTask::Run() {
    using namespace KRCB::Management;
    ZR::Ref<ResourceManagerClient> client;
    try {
        client = ResourceManagerClientFactory::Create(connection);
    } catch (const ZR::InterruptedIOException&) {
        OnLibrariesQueryInterrupted();
        return;
    } catch (const ZR::InterruptedException&) {
        OnLibrariesQueryInterrupted();
        return;
    } catch (const ZR::ZRException&) {
        OnLibrariesQueryFailed(Observer::ConnectionFailed);
        return;
    }

    try {
        auto result = ZR::Ref<LibrariesQueryTaskResult>::Make();
        PortalServerNonTransactionalQueryGuard guard(*client);
        // The client has it from its login: no call.
        result->serverInfo = ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>::Make(
            client->GetServerInfo());
        client->GetLibraries(result->libraries);
        OnLibrariesQuerySucceeded(result);
    } catch (const ZR::InterruptedIOException&) {
        OnLibrariesQueryInterrupted();
    } catch (const ZR::InterruptedException&) {
        OnLibrariesQueryInterrupted();
    } catch (const Kerrow::PortalServer::Client::AccessDeniedException&) {
        OnLibrariesQueryFailed(Observer::AccessDenied);
    } catch (...) {
        OnLibrariesQueryFailed(Observer::OtherError);
    }
}

void LibrariesQueryTask::OnLibrariesQuerySucceeded(
    const ZR::Ref<LibrariesQueryTaskResult>& result) {
    Internal::PostOutcome<Observer>(observer, taskId,
                                    [result](Observer& o) { o.OnLibrariesQuerySucceeded(result); });
}

void LibrariesQueryTask::OnLibrariesQueryFailed(Observer::ErrorCode errorCode) {
    Internal::PostOutcome<Observer>(
        observer, taskId, [errorCode](Observer& o) { o.OnLibrariesQueryFailed(errorCode); });
}

void LibrariesQueryTask::OnLibrariesQueryInterrupted() {
    Internal::PostOutcome<Observer>(observer, taskId,
                                    [](Observer& o) { o.OnLibrariesQueryInterrupted(); });
}

}  // namespace KRC::UI
