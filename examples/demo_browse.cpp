// The demo's browse dialog: after the login it walks the server's folders one
// by one with data query tasks, creates a chain of folders and renames a
// project, each task on a worker thread with its outcome on the message loop.

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRCB/DataQuery.h"
#include "KRClient/UserInterface/CreateProjectFolderTask.h"
#include "KRClient/UserInterface/DataQueryTask.h"
#include "KRClient/UserInterface/RenameProjectTask.h"
#include "ZR/MessageLoop.h"

namespace {

using namespace KRC::UI;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;
using S = ZR::UniString;

// The dialog: one observer of each task family; it waits for the latest task.
class BrowseDialog : public DataQuery::IDataQueryEventObserver,
                     public ICreateProjectFolderTaskEventObserver,
                     public IRenameProjectTaskEventObserver {
public:
    ~BrowseDialog() override {
        DataQuery::IDataQueryEventObserver::ReleaseDependents();
        ICreateProjectFolderTaskEventObserver::ReleaseDependents();
        IRenameProjectTaskEventObserver::ReleaseDependents();
    }
    unsigned int task = 0;
    std::string heard;
    ZR::Ref<CreateProjectFolderTaskResult> created;

    void OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>&) override { heard = "ok"; }
    void OnDataQueryFailed() override { heard = "failed"; }
    void OnDataQueryInterrupted() override { heard = "interrupted"; }
    void OnProjectFolderCreationSucceeded(
        const ZR::Ref<CreateProjectFolderTaskResult>& r) override {
        heard = "ok";
        created = r;
    }
    void OnProjectFolderCreationFailed(ICreateProjectFolderTaskEventObserver::ErrorCode code,
                                       const S& name) override {
        heard = "failed " + std::to_string(code) + " at " + name.Std();
    }
    void OnProjectFolderCreationInterrupted() override { heard = "interrupted"; }
    void OnRenameProjectSucceeded(const ZR::Ref<Project>&, const S& oldName) override {
        heard = "ok, was " + oldName.Std();
    }
    void OnRenameProjectFailed(IRenameProjectTaskEventObserver::ErrorCode code,
                               const ZR::Ref<Project>&, const S& name) override {
        heard = "failed " + std::to_string(code) + " for " + name.Std();
    }
    void OnRenameProjectInterrupted() override { heard = "interrupted"; }
    unsigned int GetTaskId() override { return task; }

    // A task on a worker thread, its notifier on this thread's loop.
    void Run(ZR::Runnable& runnable) {
        heard.clear();
        std::thread worker([&runnable] { runnable.Run(); });
        worker.join();
        ZR::MessageLoop::RunPending();
    }
};

}  // namespace

void RunBrowseDemo(const char* server, const char* user, const char* password) {
    ZR::MessageLoop::Scope loop;
    BrowseDialog dialog;
    const S encrypted = Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt(password);
    auto connection = KRCB::Management::AuthenticatedClientConnectionFactory::Create(
        server, user, encrypted, true, false, 0);

    std::printf("   The dialog opens the root and each folder as the user expands it:\n");
    std::vector<std::pair<ZR::Ref<ProjectFolder>, int>> pending;
    {
        auto root = ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
            "", true, true, false, KRCB::Management::QueriedFolderResources, false, false, false,
            false, true);
        DataQuery::DataQueryTask query(connection, ++dialog.task, &dialog, root);
        dialog.Run(query);
        pending.push_back({root->GetProjectFolder(), 0});
    }
    while (!pending.empty()) {
        auto [folder, depth] = pending.back();
        pending.pop_back();
        auto children =
            ZR::Ref<KRCB::DataQuery::FolderWithChildFoldersResult>::Make(folder->GetId());
        auto resources =
            ZR::Ref<KRCB::DataQuery::FolderWithChildResourcesResult>::Make(folder->GetId());
        DataQuery::DataQueryTask folders(connection, ++dialog.task, &dialog, children);
        dialog.Run(folders);
        DataQuery::DataQueryTask projects(connection, ++dialog.task, &dialog, resources);
        dialog.Run(projects);
        std::printf("     %*s%s\n", 2 * depth, "",
                    depth == 0 ? "Project Root" : folder->GetName().ToCString());
        ZR::PagedArray<ZR::Ref<Project>, 8> found;
        resources->GetProjectFolder()->GetProjects(found);
        for (const auto& p : found)
            std::printf("     %*s- %s\n", 2 * depth + 2, "", p->GetName().ToCString());
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> sub;
        children->GetProjectFolder()->GetSubFolders(sub);
        for (auto it = sub.Std().rbegin(); it != sub.Std().rend(); ++it)
            pending.push_back({*it, depth + 1});
    }

    std::printf("   A chain of folders, Housing/2027/Phase 1/Block A, in one task:\n");
    ProjectFolder::Fields housing;
    {
        auto tree = ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
            "/Housing", false, false, false, KRCB::Management::QueriedFolderResources, false, false,
            false, false, false);
        DataQuery::DataQueryTask query(connection, ++dialog.task, &dialog, tree);
        dialog.Run(query);
        ZR::Ref<ProjectFolder> folder;
        tree->GetProjectFolder()->GetProjectFolderByName("Housing", folder);
        housing.id = folder->GetId();
        housing.path = folder->GetPath(false);
    }
    CreateProjectFolderTask chain(server, user, encrypted, ZR::Ref<ProjectFolder>::Make(housing),
                                  ZR::Array<S>{"2027", "Phase 1", "Block A"}, ++dialog.task,
                                  &dialog, true, false, false, false, false, false);
    dialog.Run(chain);
    std::printf("     %s\n", dialog.heard.c_str());
    if (dialog.created)
        for (const auto& f : dialog.created->createdFolders)
            std::printf("     created %s\n", f->GetPath(false).ToCString());
    std::printf("   The same chain again: the server has it.\n");
    CreateProjectFolderTask again(server, user, encrypted, ZR::Ref<ProjectFolder>::Make(housing),
                                  ZR::Array<S>{"2027"}, ++dialog.task, &dialog, false, false, false,
                                  false, false, false);
    dialog.Run(again);
    std::printf("     %s (1 is FolderExists)\n", dialog.heard.c_str());

    std::printf("   Tower B is renamed to Tower B2:\n");
    auto client = KRCB::Management::ResourceManagerClientFactory::Create(connection);
    ZR::Ref<Project> tower = client->GetProjectByPath("/Housing/Tower B");
    RenameProjectTask rename(server, user, encrypted, tower, "Tower B2", ++dialog.task, &dialog);
    dialog.Run(rename);
    std::printf("     %s\n", dialog.heard.c_str());
    std::printf("   A name with a \"/\" is refused before any call:\n");
    RenameProjectTask bad(server, user, encrypted, tower, "Tower/B3", ++dialog.task, &dialog);
    dialog.Run(bad);
    std::printf("     %s (2 is InvalidName)\n", dialog.heard.c_str());
}
