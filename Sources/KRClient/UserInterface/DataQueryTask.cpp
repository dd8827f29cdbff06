#include "KRClient/UserInterface/DataQueryTask.h"

#include <optional>

#include "KRCB/Clients.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/Internal/TaskNotifier.h"

namespace KRC::UI::DataQuery {

namespace {

using Observer = IDataQueryEventObserver;
using DataQueryDependentTask = Internal::TaskDependentTask<Observer>;

const ZR::ErrorLogLine kFailed("DataQueryTask failed: %", "KRClient");

}  // namespace

IDataQueryEventObserver::~IDataQueryEventObserver() {
    ReleaseDependents();
}

DataQueryTask::DataQueryTask(ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection_,
                             unsigned int taskId_, IDataQueryEventObserver* observer_,
                             ZR::Ref<KRCB::DataQuery::DataQueryResult> result_)
    : connection(connection_), taskId(taskId_), observer(observer_), result(std::move(result_)) {}

DataQueryTask::~DataQueryTask() = default;

void DataQueryTask::Run() {
    try {
        ZR::Ref<KRCB::Management::PortalServerClient> client =
            KRCB::Management::PortalServerClientFactory::Create(connection);
        // An empty result fails here, before any guard.
        KRCB::DataQuery::DataQueryResult& target = *result;
        std::function<void()> collect = [&target, this] { target.Collect(connection); };
        std::optional<KRCB::Management::PortalServerTransactionalQueryGuard> guard;
        guard.emplace(*client, collect);
        collect = nullptr;
        connection.Reset();
        // Posted while the guard stands: a fast loop may deliver it before Run leaves.
        OnDataQuerySucceeded(result);
        guard.reset();
        client.Reset();
    } catch (const ZR::InterruptedIOException&) {
        OnDataQueryInterrupted();
        connection.Reset();
    } catch (const ZR::InterruptedException&) {
        OnDataQueryInterrupted();
        connection.Reset();
    } catch (const ZR::ZRException& e) {
        KRC::Internal::WriteLog(kFailed, KRC::ToString(e));
        KRC::DebugPrintEx(e);
        OnDataQueryFailed();
        connection.Reset();
    } catch (...) {
        KRC::Internal::WriteLog(kFailed, ZR::UniString("unexpected exception"));
        OnDataQueryFailed();
        connection.Reset();
    }
}

void DataQueryTask::OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>& delivered) {
    // DataQuerySuccessfulNotifier: holds its own reference to the result.
    Internal::PostOutcome<Observer>(
        observer, taskId, [delivered](Observer& o) mutable { o.OnDataQuerySucceeded(delivered); });
}

void DataQueryTask::OnDataQueryFailed() {
    Internal::PostOutcome<Observer>(observer, taskId, [](Observer& o) { o.OnDataQueryFailed(); });
}

void DataQueryTask::OnDataQueryInterrupted() {
    Internal::PostOutcome<Observer>(observer, taskId,
                                    [](Observer& o) { o.OnDataQueryInterrupted(); });
}

}  // namespace KRC::UI::DataQuery
