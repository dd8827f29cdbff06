#include "KRClient/UserInterface/RenameProjectTask.h"

#include <optional>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRCB/Paths.h"
#include "KRClient/UserInterface/Internal/TaskNotifier.h"
#include "Kerrow/Exceptions.h"

namespace KRC::UI {

namespace {

using Observer = IRenameProjectTaskEventObserver;
using RenameProjectDependentTask = Internal::TaskDependentTask<Observer>;

ZR::Ref<KRCB::Management::Entities::Project> CheckedProject(
    const ZR::Ref<KRCB::Management::Entities::Project>& project) {
    if (!project)
        throw ZR::IllegalArgumentException("Failed to rename project. Project is null.", ZR_HERE);
    return project;
}

}  // namespace

IRenameProjectTaskEventObserver::~IRenameProjectTaskEventObserver() {
    ReleaseDependents();
}

RenameProjectTask::RenameProjectTask(const ZR::UniString& serverUrl_,
                                     const ZR::UniString& userName_, const ZR::UniString& password_,
                                     const ZR::Ref<Project>& project_,
                                     const ZR::UniString& newName_, unsigned int taskId_,
                                     IRenameProjectTaskEventObserver* observer_)
    : serverUrl(serverUrl_),
      userName(userName_),
      password(password_),
      project(CheckedProject(project_)),
      newName(newName_),
      taskId(taskId_),
      observer(observer_) {}

RenameProjectTask::~RenameProjectTask() = default;

void RenameProjectTask::Run() {
    using namespace KRCB::Management;
    using namespace Kerrow::PortalServer::Client;
    const ZR::UniString oldName = project->GetName();
    if (oldName == newName) {
        OnRenameProjectSucceeded(project, oldName);
        return;
    }
    if (!IsResourceNameValid(newName)) {
        OnRenameProjectFailed(Observer::InvalidName, project, newName);
        return;
    }

    ZR::Ref<ResourceManagerClient> client;
    try {
        // Unlike the folder creation, with the user's details.
        ZR::Ref<AuthenticatedClientConnection> connection =
            AuthenticatedClientConnectionFactory::Create(serverUrl, userName, password, true, false,
                                                         0);
        client = ResourceManagerClientFactory::Create(connection);
    } catch (const ZR::InterruptedIOException&) {
        OnRenameProjectInterrupted();
        return;
    } catch (const ZR::InterruptedException&) {
        OnRenameProjectInterrupted();
        return;
    } catch (const ZR::ZRException&) {
        OnRenameProjectFailed(Observer::ConnectionFailed, project, newName);
        return;
    }

    try {
        PortalServerNonTransactionalQueryGuard guard(*client);
        client->RenameProject(project->GetId(), newName);
        guard.EndQuery();
        OnRenameProjectSucceeded(project, oldName);
    } catch (const ZR::InterruptedIOException&) {
        OnRenameProjectInterrupted();
    } catch (const ZR::InterruptedException&) {
        OnRenameProjectInterrupted();
    } catch (const AccessDeniedException&) {
        OnRenameProjectFailed(Observer::AccessDenied, project, newName);
    } catch (const EntityExistsException&) {
        OnRenameProjectFailed(Observer::NameExists, project, newName);
    } catch (const EntityValidationException&) {
        OnRenameProjectFailed(Observer::InvalidName, project, newName);
    } catch (...) {
        OnRenameProjectFailed(Observer::OtherError, project, newName);
    }
}

void RenameProjectTask::OnRenameProjectSucceeded(const ZR::Ref<Project>& renamed,
                                                 const ZR::UniString& oldName) {
    Internal::PostOutcome<Observer>(observer, taskId, [renamed, oldName](Observer& o) {
        o.OnRenameProjectSucceeded(renamed, oldName);
    });
}

void RenameProjectTask::OnRenameProjectFailed(Observer::ErrorCode errorCode,
                                              const ZR::Ref<Project>& failed,
                                              const ZR::UniString& name) {
    Internal::PostOutcome<Observer>(observer, taskId, [errorCode, failed, name](Observer& o) {
        o.OnRenameProjectFailed(errorCode, failed, name);
    });
}

void RenameProjectTask::OnRenameProjectInterrupted() {
    Internal::PostOutcome<Observer>(observer, taskId,
                                    [](Observer& o) { o.OnRenameProjectInterrupted(); });
}

}  // namespace KRC::UI
