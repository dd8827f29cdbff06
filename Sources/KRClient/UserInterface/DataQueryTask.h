#pragma once
/// @file
/// A data query on a worker thread: the host builds the task with a logged-in
/// connection and a configured result object, gives it to an executor of its
/// own, and hears the outcome on the message loop through its observer.

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRClient/KRClientExport.h"
#include "ZR/DependentResource.h"
#include "ZR/Runnable.h"

namespace KRC::UI::DataQuery {

/// Implemented by the host; called on the message loop's thread, only while
/// it lives and only for the task whose id GetTaskId gives at delivery.
class KRCLIENT_EXPORT IDataQueryEventObserver : public ZR::DependentResource {
public:
    ~IDataQueryEventObserver() override;
    /// result is the notifier's own reference: copy it to keep the result.
    virtual void OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>& result) = 0;
    virtual void OnDataQueryFailed() = 0;
    virtual void OnDataQueryInterrupted() = 0;
    virtual unsigned int GetTaskId() = 0;
};

class KRCLIENT_EXPORT DataQueryTask : public ZR::Runnable {
public:
    /// Keeps a reference to the connection and takes over result; tests
    /// nothing and makes no call.
    DataQueryTask(ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                  unsigned int taskId, IDataQueryEventObserver* observer,
                  ZR::Ref<KRCB::DataQuery::DataQueryResult> result);
    ~DataQueryTask() override;

    /// Collects the result under a transactional query guard and posts one
    /// outcome. Releases the connection before it posts a success, and after
    /// it posted a failure or an interruption; a failure is logged.
    void Run() override;

    // Each posts one notifier to the message loop and returns at once.
    void OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>& result);
    void OnDataQueryFailed();
    void OnDataQueryInterrupted();

private:
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
    unsigned int taskId;
    IDataQueryEventObserver* observer;
    ZR::Ref<KRCB::DataQuery::DataQueryResult> result;
};

}  // namespace KRC::UI::DataQuery
