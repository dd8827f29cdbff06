#include "KRClient/UserInterface/CreateProjectFolderTask.h"

#include <optional>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRCB/Paths.h"
#include "KRClient/UserInterface/Internal/TaskNotifier.h"
#include "Kerrow/Exceptions.h"

namespace KRC::UI {

namespace {

using Observer = ICreateProjectFolderTaskEventObserver;
using CreateProjectFolderDependentTask = Internal::TaskDependentTask<Observer>;

ZR::Ref<KRCB::Management::Entities::ProjectFolder> CheckedParent(
    ZR::Ref<KRCB::Management::Entities::ProjectFolder> parent) {
    if (!parent)
        throw ZR::IllegalArgumentException(
            "Failed to create project folder. Parent folder is null.", ZR_HERE);
    return parent;
}

}  // namespace

ICreateProjectFolderTaskEventObserver::~ICreateProjectFolderTaskEventObserver() {
    ReleaseDependents();
}

CreateProjectFolderTask::CreateProjectFolderTask(
    const ZR::UniString& serverUrl_, const ZR::UniString& userName_, const ZR::UniString& password_,
    ZR::Ref<ProjectFolder> parentFolder_, const ZR::UniString& folderName, unsigned int taskId_,
    ICreateProjectFolderTaskEventObserver* observer_, bool f1, bool f2, bool f3, bool f4, bool f5,
    bool f6)
    : CreateProjectFolderTask(serverUrl_, userName_, password_, std::move(parentFolder_),
                              ZR::Array<ZR::UniString>{folderName}, taskId_, observer_, f1, f2, f3,
                              f4, f5, f6) {}

CreateProjectFolderTask::CreateProjectFolderTask(
    const ZR::UniString& serverUrl_, const ZR::UniString& userName_, const ZR::UniString& password_,
    ZR::Ref<ProjectFolder> parentFolder_, const ZR::Array<ZR::UniString>& folderNames_,
    unsigned int taskId_, ICreateProjectFolderTaskEventObserver* observer_, bool f1, bool f2,
    bool f3, bool f4, bool f5, bool f6)
    : serverUrl(serverUrl_),
      userName(userName_),
      password(password_),
      parentFolder(CheckedParent(std::move(parentFolder_))),
      folderNames(folderNames_),
      taskId(taskId_),
      observer(observer_),
      treeFlag1(f1),
      treeFlag2(f2),
      treeFlag3(f3),
      treeFlag4(f4),
      treeFlag5(f5),
      treeFlag6(f6) {
    if (folderNames.IsEmpty())
        throw ZR::IllegalArgumentException(
            "Failed to create project folder. Project folder name list is empty.", ZR_HERE);
}

CreateProjectFolderTask::~CreateProjectFolderTask() = default;

void CreateProjectFolderTask::Run() {
    using namespace KRCB::Management;
    using namespace Kerrow::PortalServer::Client;
    for (const ZR::UniString& name : folderNames)
        if (!IsResourceNameValid(name)) {
            OnProjectFolderCreationFailed(Observer::InvalidName, name);
            return;
        }

    ZR::Ref<AuthenticatedClientConnection> connection;
    ZR::Ref<ResourceManagerClient> client;
    try {
        connection = AuthenticatedClientConnectionFactory::Create(serverUrl, userName, password,
                                                                  false, false, 0);
        client = ResourceManagerClientFactory::Create(connection);
    } catch (const ZR::InterruptedIOException&) {
        OnProjectFolderCreationInterrupted();
        return;
    } catch (const ZR::InterruptedException&) {
        OnProjectFolderCreationInterrupted();
        return;
    } catch (const ZR::ZRException&) {
        OnProjectFolderCreationFailed(Observer::ConnectionFailed, ZR::UniString());
        return;
    }
    // Anything else leaves Run: no outcome.

    ZR::UniString currentName;
    try {
        auto result = ZR::Ref<CreateProjectFolderTaskResult>::Make();
        std::optional<PortalServerTransactionalQueryGuard> guard;
        guard.emplace(*client, [&] {
            ZR::Ref<ProjectFolder> running = parentFolder;
            for (const ZR::UniString& name : folderNames) {
                currentName = name;
                ZR::Ref<ProjectFolder> newFolder;
                client->CreateProjectFolder(running, name, newFolder);
                result->createdFolders.Add(newFolder);
                running = newFolder;
            }
            if (treeFlag1 || treeFlag2 || treeFlag3 || treeFlag4 || treeFlag5 || treeFlag6) {
                // The flags go on in the read-back's own order; the fourth
                // only asks for a read-back at all.
                auto tree = ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
                    running->GetPath(false), treeFlag1, treeFlag2, treeFlag3,
                    QueriedFolderResources, treeFlag6, treeFlag5, true, true, true);
                result->treeResult = tree;
                tree->Collect(connection);
            }
        });
        OnProjectFolderCreationSucceeded(result);
    } catch (const ZR::InterruptedIOException&) {
        OnProjectFolderCreationInterrupted();
    } catch (const ZR::InterruptedException&) {
        OnProjectFolderCreationInterrupted();
    } catch (const AccessDeniedException&) {
        OnProjectFolderCreationFailed(Observer::AccessDenied, currentName);
    } catch (const EntityExistsException&) {
        OnProjectFolderCreationFailed(Observer::FolderExists, currentName);
    } catch (const EntityValidationException&) {
        OnProjectFolderCreationFailed(Observer::InvalidName, currentName);
    } catch (...) {
        OnProjectFolderCreationFailed(Observer::OtherError, currentName);
    }
}

void CreateProjectFolderTask::OnProjectFolderCreationSucceeded(
    const ZR::Ref<CreateProjectFolderTaskResult>& result) {
    Internal::PostOutcome<Observer>(
        observer, taskId, [result](Observer& o) { o.OnProjectFolderCreationSucceeded(result); });
}

void CreateProjectFolderTask::OnProjectFolderCreationFailed(Observer::ErrorCode errorCode,
                                                            const ZR::UniString& folderName) {
    Internal::PostOutcome<Observer>(observer, taskId, [errorCode, folderName](Observer& o) {
        o.OnProjectFolderCreationFailed(errorCode, folderName);
    });
}

void CreateProjectFolderTask::OnProjectFolderCreationInterrupted() {
    Internal::PostOutcome<Observer>(observer, taskId,
                                    [](Observer& o) { o.OnProjectFolderCreationInterrupted(); });
}

}  // namespace KRC::UI
