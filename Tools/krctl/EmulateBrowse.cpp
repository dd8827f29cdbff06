// krctl emulate SCENARIO browse: the server's folder tree, folder creation,
// rename and libraries through the library's browsing tasks, as a host's
// dialogs run them. Each task runs on a worker thread and its outcome comes
// back through this thread's message loop.

#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Emulate.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRCB/Paths.h"
#include "KRClient/UserInterface/CreateProjectFolderTask.h"
#include "KRClient/UserInterface/DataQueryTask.h"
#include "KRClient/UserInterface/LibrariesQueryTask.h"
#include "KRClient/UserInterface/RenameProjectTask.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MessageLoop.h"

namespace krctl {

namespace {

using namespace KRC::UI;
using KRCB::DataQuery::DataQueryResult;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;

struct BrowseArgs {
    std::string server, user;
    std::string path;  // tree, mkdir, rename
    std::string name;  // rename
    int depth = 1;
    bool withCache = false;  // tree
};

// The outcome of one task, as its observer heard it.
struct Outcome {
    bool heard = false, ok = false;
    std::string error{};  // the error's name, or "Interrupted"
    std::string name{};   // the name a failure names
};

const char* const kCreateErrors[] = {"ConnectionFailed", "FolderExists", "InvalidName",
                                     "AccessDenied", "OtherError"};
const char* const kRenameErrors[] = {"ConnectionFailed", "NameExists", "InvalidName",
                                     "AccessDenied", "OtherError"};
const char* const kLibrariesErrors[] = {"ConnectionFailed", "AccessDenied", "OtherError"};

class QueryObserver : public DataQuery::IDataQueryEventObserver {
public:
    void OnDataQuerySucceeded(ZR::Ref<DataQueryResult>&) override { outcome = {true, true}; }
    void OnDataQueryFailed() override { outcome = {true, false, "Failed"}; }
    void OnDataQueryInterrupted() override { outcome = {true, false, "Interrupted"}; }
    unsigned int GetTaskId() override { return 1; }
    Outcome outcome;
};

class CreateObserver : public ICreateProjectFolderTaskEventObserver {
public:
    void OnProjectFolderCreationSucceeded(
        const ZR::Ref<CreateProjectFolderTaskResult>& r) override {
        outcome = {true, true};
        result = r;
    }
    void OnProjectFolderCreationFailed(ErrorCode code, const ZR::UniString& name) override {
        outcome = {true, false, kCreateErrors[code], name.Std()};
    }
    void OnProjectFolderCreationInterrupted() override { outcome = {true, false, "Interrupted"}; }
    unsigned int GetTaskId() override { return 1; }
    Outcome outcome;
    ZR::Ref<CreateProjectFolderTaskResult> result;
};

class RenameObserver : public IRenameProjectTaskEventObserver {
public:
    void OnRenameProjectSucceeded(const ZR::Ref<Project>&, const ZR::UniString&) override {
        outcome = {true, true};
    }
    void OnRenameProjectFailed(ErrorCode code, const ZR::Ref<Project>&,
                               const ZR::UniString& name) override {
        outcome = {true, false, kRenameErrors[code], name.Std()};
    }
    void OnRenameProjectInterrupted() override { outcome = {true, false, "Interrupted"}; }
    unsigned int GetTaskId() override { return 1; }
    Outcome outcome;
};

class LibrariesObserver : public ILibrariesQueryTaskEventObserver {
public:
    void OnLibrariesQuerySucceeded(const ZR::Ref<LibrariesQueryTaskResult>& r) override {
        outcome = {true, true};
        result = r;
    }
    void OnLibrariesQueryFailed(ErrorCode code) override {
        outcome = {true, false, kLibrariesErrors[code]};
    }
    void OnLibrariesQueryInterrupted() override { outcome = {true, false, "Interrupted"}; }
    unsigned int GetTaskId() override { return 1; }
    Outcome outcome;
    ZR::Ref<LibrariesQueryTaskResult> result;
};

// Runs the task on a worker as a host's executor would, then delivers what
// it posted. An exception that leaves Run is a failure of the command.
void RunTask(ZR::Runnable& task, const Outcome& outcome) {
    std::string escaped;
    std::thread worker([&] {
        try {
            task.Run();
        } catch (const std::exception& e) {
            escaped = e.what();
        } catch (...) {
            escaped = "an exception outside the library's family";
        }
    });
    worker.join();
    ZR::MessageLoop::RunPending();
    if (!escaped.empty()) throw Failure("the task ended without an outcome: " + escaped);
    if (!outcome.heard) throw Failure("the task posted no outcome");
}

std::string Password(const Emulator::Service& service, const BrowseArgs& args) {
    auto user = service.FindUser(args.server, args.user);
    if (!user) throw Failure("the scenario has no user " + ZR::Internal::Printable(args.user));
    if (user->password.empty())
        throw Failure("the user " + ZR::Internal::Printable(args.user) +
                      " has no password in the scenario; a dialog logs in with one");
    return Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt(user->password).Std();
}

ZR::Ref<KRCB::Management::AuthenticatedClientConnection> LogIn(const Emulator::Service& service,
                                                               const BrowseArgs& args) {
    try {
        return KRCB::Management::AuthenticatedClientConnectionFactory::Create(
            args.server, args.user, Password(service, args), true, false, 0);
    } catch (const ZR::ZRException& e) {
        throw Failure("the login failed: " + e.GetMessage().Std());
    }
}

}  // namespace

ZR::Ref<KRCB::Management::AuthenticatedClientConnection> BrowseLogIn(
    const Emulator::Service& service, const std::string& server, const std::string& user) {
    BrowseArgs args;
    args.server = server;
    args.user = user;
    return LogIn(service, args);
}

void BrowseQuery(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                 const ZR::Ref<DataQueryResult>& result) {
    QueryObserver observer;
    auto shared = connection;
    DataQuery::DataQueryTask task(shared, 1, &observer, result);
    RunTask(task, observer.outcome);
    if (!observer.outcome.ok) throw Failure("the data query " + observer.outcome.error);
}

namespace {

void Query(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
           const ZR::Ref<DataQueryResult>& result) {
    BrowseQuery(connection, result);
}

struct Line {
    std::string kind, path, id;
    int depth;
};

// As a dialog opens it: the tree down to the path, then folder by folder,
// each folder's projects, libraries and sub-folders, depth first, to the depth.
std::vector<Line> Tree(const ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                       const BrowseArgs& args) {
    auto partial = ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
        args.path, true, true, false, KRCB::Management::QueriedFolderResources, false, false, false,
        false, true);
    Query(connection, partial);
    ZR::Ref<ProjectFolder> folder = partial->GetProjectFolder();
    ZR::Array<ZR::UniString> elements;
    KRCB::GetProjectPathElements(args.path, elements);
    for (const ZR::UniString& element : elements)
        if (!folder || !folder->GetProjectFolderByName(element, folder)) folder.Reset();
    if (!folder) throw Failure("the server has no folder " + ZR::Internal::Printable(args.path));

    std::vector<Line> lines;
    std::vector<std::pair<ZR::Ref<ProjectFolder>, int>> pending{{folder, 0}};
    while (!pending.empty()) {
        auto [at, depth] = pending.back();
        pending.pop_back();
        lines.push_back({"folder", at->GetPath(false).Std(), at->GetId().Std(), depth});
        if (depth >= args.depth) continue;
        auto resources =
            ZR::Ref<KRCB::DataQuery::FolderWithChildResourcesResult>::Make(at->GetId());
        Query(connection, resources);
        auto folders = ZR::Ref<KRCB::DataQuery::FolderWithChildFoldersResult>::Make(at->GetId());
        Query(connection, folders);
        if (!resources->GetProjectFolder() || !folders->GetProjectFolder()) continue;
        ZR::PagedArray<ZR::Ref<Project>, 8> projects;
        resources->GetProjectFolder()->GetProjects(projects);
        for (const auto& p : projects)
            lines.push_back({"project", p->GetPath().Std(), p->GetId().Std(), depth + 1});
        ZR::PagedArray<ZR::Ref<KRCB::Management::Entities::Library>, 8> libraries;
        resources->GetProjectFolder()->GetLibraries(libraries);
        for (const auto& l : libraries)
            lines.push_back({"library", l->GetPath().Std(), l->GetId().Std(), depth + 1});
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> children;
        folders->GetProjectFolder()->GetSubFolders(children);
        for (auto it = children.Std().rbegin(); it != children.Std().rend(); ++it)
            pending.push_back({*it, depth + 1});
    }
    return lines;
}

void PrintLines(const GlobalOptions& options, const std::vector<Line>& lines) {
    if (options.json) {
        Json list = Json::array();
        for (const Line& l : lines)
            list.push_back({{"kind", l.kind}, {"path", l.path}, {"id", l.id}, {"depth", l.depth}});
        PrintJson(list);
        return;
    }
    for (const Line& l : lines)
        std::printf("%*s%s %s (%s)\n", 2 * l.depth, "", l.kind.c_str(),
                    l.path.empty() ? "/" : ZR::Internal::Printable(l.path, 80).c_str(),
                    ZR::Internal::Printable(l.id).c_str());
}

// A failed outcome: the error and the name it names, exit 1.
int Refused(const GlobalOptions& options, const Outcome& outcome, int serverCalls) {
    if (options.json)
        PrintJson(Json{{"ok", false},
                       {"error", outcome.error},
                       {"name", outcome.name},
                       {"serverCalls", serverCalls}});
    else
        std::printf("failed: %s%s%s\n", outcome.error.c_str(), outcome.name.empty() ? "" : " ",
                    ZR::Internal::Printable(outcome.name).c_str());
    return kExitFailed;
}

int RunBrowse(const GlobalOptions& options, const BrowseArgs& args, const std::string& command,
              const std::string& scenario, bool update) {
    CheckServerUrl(args.server);
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    int code = kExitDone;
    {
        Installed installed(*service);
        ZR::MessageLoop::Scope loop;
        if (command == "tree" && args.withCache) {
            code = BrowseTreeWithCache(options, LogIn(*service, args), args.server, args.user,
                                       args.path, args.depth);
        } else if (command == "tree") {
            PrintLines(options, Tree(LogIn(*service, args), args));
        } else if (command == "libraries") {
            LibrariesObserver observer;
            LibrariesQueryTask task(LogIn(*service, args), 1, &observer);
            RunTask(task, observer.outcome);
            if (!observer.outcome.ok) return Refused(options, observer.outcome, 0);
            std::vector<Line> lines;
            for (const auto& l : observer.result->libraries)
                lines.push_back({"library", l->GetPath().Std(), l->GetId().Std(), 0});
            PrintLines(options, lines);
        } else if (command == "mkdir") {
            // The deepest folder that stands is the parent, as the dialog
            // that browsed to it knows it: no call is made to find it.
            ZR::Array<ZR::UniString> elements;
            KRCB::GetProjectPathElements(args.path, elements);
            std::string parentPath;
            std::size_t made = 0;
            for (; made < elements.GetSize(); ++made) {
                std::string next = parentPath + "/" + elements[made].Std();
                if (service->GetFolderId(args.server, next).empty()) break;
                parentPath = next;
            }
            if (made == elements.GetSize())
                throw Failure("the folder " + ZR::Internal::Printable(args.path) + " exists");
            ProjectFolder::Fields fields;
            fields.path = parentPath;
            fields.id = service->GetFolderId(args.server, parentPath);
            ZR::Array<ZR::UniString> names;
            for (std::size_t i = made; i < elements.GetSize(); ++i) names.Add(elements[i]);
            CreateObserver observer;
            const std::string password = Password(*service, args);
            service->ResetCounts();
            CreateProjectFolderTask task(args.server, args.user, password,
                                         ZR::Ref<ProjectFolder>::Make(fields), names, 1, &observer,
                                         false, false, false, false, false, false);
            RunTask(task, observer.outcome);
            const int calls = service->ServerCallCount();
            if (!observer.outcome.ok) {
                code = Refused(options, observer.outcome, calls);
            } else {
                std::vector<Line> lines;
                for (const auto& f : observer.result->createdFolders)
                    lines.push_back({"created", f->GetPath(false).Std(), f->GetId().Std(), 0});
                PrintLines(options, lines);
            }
        } else {  // rename
            const std::string id = service->GetProjectId(args.server, args.path);
            if (id.empty())
                throw Failure("the server has no project " + ZR::Internal::Printable(args.path));
            KRCB::Management::Entities::Resource::Fields fields;
            fields.id = id;
            fields.path = args.path;
            RenameObserver observer;
            const std::string password = Password(*service, args);
            service->ResetCounts();
            RenameProjectTask task(
                args.server, args.user, password,
                ZR::Ref<Project>::Make(fields, ZR::UniString(), ZR::HashSet<ZR::UniString>()),
                args.name, 1, &observer);
            RunTask(task, observer.outcome);
            const int calls = service->ServerCallCount();
            if (!observer.outcome.ok) {
                code = Refused(options, observer.outcome, calls);
            } else if (options.json) {
                PrintJson(Json{{"ok", true}, {"id", id}, {"serverCalls", calls}});
            } else {
                std::printf("renamed %s to %s\n", ZR::Internal::Printable(args.path).c_str(),
                            ZR::Internal::Printable(args.name).c_str());
            }
        }
    }
    if (update) service->SaveScenarioFile(scenario);
    return code;
}

}  // namespace

void AddEmulateBrowseCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                             const std::string& scenario, const bool& update) {
    auto args = std::make_shared<BrowseArgs>();
    CLI::App* browse = emulate->add_subcommand(
        "browse",
        "browse the server as a host's dialogs do, through the library's browsing tasks, logged "
        "in with the user's password from the scenario. Exit 0 when the task succeeds, 1 when it "
        "fails (the error and the name it names are printed; with --json the keys ok, error, "
        "name, serverCalls) or the login fails, 2 for bad arguments");
    browse->add_option("--server", args->server, "management server URL")->required();
    browse->add_option("--user", args->user, "login name")->required();
    browse->require_subcommand(1);
    browse->fallthrough();

    auto bind = [&options, action, args, &scenario, &update](const std::string& command) {
        return [&options, action, args, &scenario, &update, command] {
            *action = [&options, args, &scenario, &update, command] {
                return RunBrowse(options, *args, command, scenario, update);
            };
        };
    };
    CLI::App* tree = browse->add_subcommand(
        "tree",
        "the folder tree from PATH (default the root) down to --depth levels (default 1), "
        "folder by folder, with projects and libraries; with --json a list of kind, path, id, "
        "depth");
    tree->add_option("PATH", args->path, "folder path, \"/A/B\"");
    tree->add_option("--depth", args->depth, "levels below PATH")->check(CLI::Range(0, 1000000));
    tree->add_flag("--with-cache", args->withCache,
                   "fold the answers into a result cache and lay in the projects that the records "
                   "of --data-folder hold for this server and user, sorted by name; each entry "
                   "says whether it comes from the server, the local cache or both (key source)");
    tree->callback(bind("tree"));
    CLI::App* mkdir = browse->add_subcommand(
        "mkdir",
        "create the folders of PATH that don't stand yet, as one chain under the deepest that "
        "does; every name is checked before any call");
    mkdir->add_option("PATH", args->path, "folder path, \"/A/B/C\"")->required();
    mkdir->callback(bind("mkdir"));
    CLI::App* rename = browse->add_subcommand("rename", "rename the project at --path to --name");
    rename->add_option("--path", args->path, "project path, \"/Folder/Project\"")->required();
    rename->add_option("--name", args->name, "the new name")->required();
    rename->callback(bind("rename"));
    CLI::App* libraries =
        browse->add_subcommand("libraries", "the server's libraries (kind library, path, id)");
    libraries->callback(bind("libraries"));

    AddEmulateCheckCacheCommand(browse, options, action, scenario, args->server, args->user);
}

}  // namespace krctl
