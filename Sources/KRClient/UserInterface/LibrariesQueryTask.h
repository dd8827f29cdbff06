#pragma once
/// @file
/// Fetches a server's libraries and its server information over a logged-in
/// connection. The outcome reaches the observer on the message loop.

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Containers.h"
#include "ZR/DependentResource.h"
#include "ZR/Runnable.h"

namespace KRC::UI {

struct KRCLIENT_EXPORT LibrariesQueryTaskResult {
    ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo> serverInfo;
    ZR::PagedArray<ZR::Ref<KRCB::Management::Entities::Library>, 8> libraries;
};

class KRCLIENT_EXPORT ILibrariesQueryTaskEventObserver : public ZR::DependentResource {
public:
    /// Numbers of this task's own.
    enum ErrorCode { ConnectionFailed = 0, AccessDenied = 1, OtherError = 2 };
    ~ILibrariesQueryTaskEventObserver() override;
    virtual void OnLibrariesQuerySucceeded(const ZR::Ref<LibrariesQueryTaskResult>& result) = 0;
    virtual void OnLibrariesQueryFailed(ErrorCode errorCode) = 0;
    virtual void OnLibrariesQueryInterrupted() = 0;
    virtual unsigned int GetTaskId() = 0;
};

class KRCLIENT_EXPORT LibrariesQueryTask : public ZR::Runnable {
public:
    /// Shares the connection for the task's whole life; tests nothing.
    LibrariesQueryTask(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                       unsigned int taskId, ILibrariesQueryTaskEventObserver* observer);
    ~LibrariesQueryTask() override;

    /// Posts one outcome, except when making the client fails with an
    /// exception outside the ZR family. A failure gives no partial result.
    void Run() override;

    void OnLibrariesQuerySucceeded(const ZR::Ref<LibrariesQueryTaskResult>& result);
    void OnLibrariesQueryFailed(ILibrariesQueryTaskEventObserver::ErrorCode errorCode);
    void OnLibrariesQueryInterrupted();

private:
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
    unsigned int taskId;
    ILibrariesQueryTaskEventObserver* observer;
};

}  // namespace KRC::UI
