// The browsing tasks on worker threads against the emulated service: the
// frame's delivery, and each road of each task to its outcome.

#include <gtest/gtest.h>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRClient/LoginFixture.h"
#include "KRClient/UserInterface/CreateProjectFolderTask.h"
#include "KRClient/UserInterface/DataQueryTask.h"
#include "KRClient/UserInterface/LibrariesQueryTask.h"
#include "KRClient/UserInterface/RenameProjectTask.h"
#include "Support/EmulatorFixture.h"
#include "Support/LibraryTest.h"
#include "ZR/MessageLoop.h"

namespace {

using namespace krtest;
using namespace KRC::UI;
using Emulator::FaultKind;
using KRCB::DataQuery::DataQueryResult;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;
namespace Op = Emulator::Op;

// An observer of every task; what it heard, one text per callback: "ok",
// "failed 2 name", ...
struct Observer : DataQuery::IDataQueryEventObserver,
                  ICreateProjectFolderTaskEventObserver,
                  IRenameProjectTaskEventObserver,
                  ILibrariesQueryTaskEventObserver {
    unsigned int GetTaskId() override { return id; }
    void OnDataQuerySucceeded(ZR::Ref<DataQueryResult>& r) override {
        query = r;
        events.push_back("ok");
    }
    void OnDataQueryFailed() override { events.push_back("failed"); }
    void OnDataQueryInterrupted() override { events.push_back("interrupted"); }
    void OnProjectFolderCreationSucceeded(
        const ZR::Ref<CreateProjectFolderTaskResult>& r) override {
        created = r;
        events.push_back("ok");
    }
    void OnProjectFolderCreationFailed(ICreateProjectFolderTaskEventObserver::ErrorCode code,
                                       const ZR::UniString& name) override {
        events.push_back("failed " + std::to_string(code) + " " + name.Std());
    }
    void OnProjectFolderCreationInterrupted() override { events.push_back("interrupted"); }
    void OnRenameProjectSucceeded(const ZR::Ref<Project>& p, const ZR::UniString& old) override {
        events.push_back("ok " + p->GetId().Std() + " " + old.Std());
    }
    void OnRenameProjectFailed(IRenameProjectTaskEventObserver::ErrorCode code,
                               const ZR::Ref<Project>& p, const ZR::UniString& name) override {
        events.push_back("failed " + std::to_string(code) + " " + p->GetId().Std() + " " +
                         name.Std());
    }
    void OnRenameProjectInterrupted() override { events.push_back("interrupted"); }
    void OnLibrariesQuerySucceeded(const ZR::Ref<LibrariesQueryTaskResult>& r) override {
        events.push_back("ok " + std::to_string(r->libraries.GetSize()) + " " +
                         r->serverInfo->friendlyName.Std());
    }
    void OnLibrariesQueryFailed(ILibrariesQueryTaskEventObserver::ErrorCode code) override {
        events.push_back("failed " + std::to_string(code));
    }
    void OnLibrariesQueryInterrupted() override { events.push_back("interrupted"); }

    std::vector<std::string> events;
    unsigned int id = 0;
    ZR::Ref<DataQueryResult> query;
    ZR::Ref<CreateProjectFolderTaskResult> created;
};

class BrowseTaskThreadTest : public LibraryTest {
protected:
    BrowseTaskThreadTest() {
        service->SetPermissions(kServer, kProjectPath, "anna",
                                {"ReadProject", "AdministerProject"});
        connection = PasswordLogin();
    }
    // Runs the task on a worker, then what it posted on the loop.
    void Run(ZR::Runnable& task) {
        service->ResetCounts();
        RunOnWorker(task);
        ZR::MessageLoop::RunPending();
    }
    ZR::Ref<DataQueryResult> Tree(const char* path = "/Projects") {
        return ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
            path, true, false, false, KRCB::Management::QueriedFolderResources, false, false, false,
            true, true);
    }

    EmulatedService service;
    ZR::MessageLoop::Scope loop;
    const ZR::UniString password =
        Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt("pw-anna");
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> connection;
};

TEST_F(BrowseTaskThreadTest, OnlyTheTaskIdAtDeliveryReachesALivingObserver) {
    Observer observer;
    observer.id = 8;
    DataQuery::DataQueryTask seven(connection, 7, &observer, Tree());
    auto eight = Tree();
    DataQuery::DataQueryTask task8(connection, 8, &observer, eight);
    RunOnWorker(task8);
    RunOnWorker(seven);
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(observer.events, (std::vector<std::string>{"ok"}));
    EXPECT_EQ(observer.query, eight);

    // The id counts when the outcome is delivered, not when it is posted.
    DataQuery::DataQueryTask nine(connection, 9, &observer, Tree());
    observer.id = 9;
    RunOnWorker(nine);
    observer.id = 10;
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(observer.events.size(), 1u);

    // An observer gone before delivery is never touched (the sanitizers watch).
    auto gone = std::make_unique<Observer>();
    gone->id = 11;
    DataQuery::DataQueryTask eleven(connection, 11, gone.get(), Tree());
    RunOnWorker(eleven);
    gone.reset();
    EXPECT_EQ(ZR::MessageLoop::RunPending(), 1u);
}

TEST_F(BrowseTaskThreadTest, DataQueryTaskPostsOneOutcomeAndLogsOnlyFailures) {
    const struct {
        const char* op;  // faulted; null: none
        FaultKind kind;
        bool emptyResult;
        const char* event;
        const char* logged;  // in the log; null: nothing logged
    } rows[] = {
        {nullptr, FaultKind::ZRException, false, "ok", nullptr},
        {Op::kGetPartialFolderTree, FaultKind::InterruptedIO, false, "interrupted", nullptr},
        {Op::kQuery, FaultKind::Interrupted, false, "interrupted", nullptr},
        {Op::kOpenClient, FaultKind::ZRException, false, "failed", "ZRException: emulated failure"},
        {Op::kGetPartialFolderTree, FaultKind::Foreign, false, "failed", "unexpected exception"},
        {nullptr, FaultKind::ZRException, true, "failed",
         "NullReferenceException: Null reference."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.event + std::string(row.op ? row.op : ""));
        log.Clear();
        if (row.op) service->FailNext(row.op, {row.kind});
        Observer observer;
        observer.id = 1;
        auto shared = connection;  // the task's reference goes by the end of Run
        DataQuery::DataQueryTask task(shared, 1, &observer,
                                      row.emptyResult ? ZR::Ref<DataQueryResult>() : Tree());
        Run(task);
        EXPECT_EQ(observer.events, std::vector<std::string>{row.event});
        EXPECT_EQ(connection.Std().use_count(), 2);
        if (row.logged) {
            EXPECT_EQ(log.GetText().rfind("DataQueryTask failed: ", 0), 0u) << log.GetText();
            EXPECT_TRUE(Logged(row.logged)) << log.GetText();
        } else
            EXPECT_EQ(log.GetText(), "");
        service->ClearFaults();
    }
}

TEST_F(BrowseTaskThreadTest, FolderCreationChecksNamesFirstAndReadsTheChainBack) {
    auto client = KRCB::Management::ResourceManagerClientFactory::Create(connection);
    ProjectFolder::Fields fields;
    fields.id = service->GetFolderId(kServer, "/Projects").c_str();
    fields.path = "/Projects";
    auto parent = ZR::Ref<ProjectFolder>::Make(fields);
    using Names = ZR::Array<ZR::UniString>;
    const struct {
        Names names;
        std::array<bool, 6> flags;
        const char* op;  // faulted; null: none
        FaultKind kind;
        const char* event;
        int logins, creations, readBacks;
    } rows[] = {
        {{"A", "b:c", "D"}, {}, nullptr, {}, "failed 2 b:c", 0, 0, 0},
        {{"A", "B", "C"}, {true, false, false, false, false, true}, nullptr, {}, "ok", 1, 3, 1},
        {{"A"}, {}, Op::kCreateProjectFolder, FaultKind::EntityExists, "failed 1 A", 1, 1, 0},
        {{"X"}, {false, false, false, true, false, false}, nullptr, {}, "ok", 1, 1, 1},
        {{"X5"}, {false, false, false, false, true, false}, nullptr, {}, "ok", 1, 1, 1},
        {{"Y"}, {}, nullptr, {}, "ok", 1, 1, 0},
        {{"Z"}, {}, Op::kLogin, FaultKind::ConnectionFailed, "failed 0 ", 1, 0, 0},
        {{"Z"}, {}, Op::kOpenClient, FaultKind::InterruptedIO, "interrupted", 1, 0, 0},
        {{"Z", "W"}, {}, Op::kCreateProjectFolder, FaultKind::AccessDenied, "failed 3 Z", 1, 1, 0},
        {{"Z"}, {}, Op::kCreateProjectFolder, FaultKind::EntityValidation, "failed 2 Z", 1, 1, 0},
        {{"Z"}, {}, Op::kCreateProjectFolder, FaultKind::EntityNotFound, "failed 4 Z", 1, 1, 0},
        {{"V", "U"}, {true}, Op::kGetPartialFolderTree, FaultKind::Foreign, "failed 4 U", 1, 2, 1},
        {{"T"}, {}, Op::kLogin, FaultKind::Foreign, nullptr, 1, 0, 0},  // leaves Run: nothing
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.names[0].Std() + " " + (row.event ? row.event : "none"));
        if (row.op) service->FailNext(row.op, {row.kind});
        Observer observer;
        observer.id = 3;
        const auto& f = row.flags;
        CreateProjectFolderTask task(kServer, "anna", password, parent, row.names, 3, &observer,
                                     f[0], f[1], f[2], f[3], f[4], f[5]);
        service->ResetCounts();
        std::exception_ptr left;
        std::thread worker([&] {
            try {
                task.Run();
            } catch (...) {
                left = std::current_exception();
            }
        });
        worker.join();
        EXPECT_EQ(static_cast<bool>(left), row.event == nullptr);
        ZR::MessageLoop::RunPending();
        EXPECT_EQ(observer.events,
                  row.event ? std::vector<std::string>{row.event} : std::vector<std::string>{});
        EXPECT_EQ(service->CallCount(Op::kLogin), row.logins);
        EXPECT_EQ(service->CallCount(Op::kCreateProjectFolder), row.creations);
        EXPECT_EQ(service->CallCount(Op::kGetPartialFolderTree), row.readBacks);
        if (row.names.GetSize() == 3 && observer.created) {
            ASSERT_EQ(observer.created->createdFolders.GetSize(), 3u);
            EXPECT_EQ(observer.created->createdFolders[2]->GetPath(false), "/Projects/A/B/C");
            EXPECT_EQ(observer.created->createdFolders[1]->GetParentFolderId(),
                      observer.created->createdFolders[0]->GetId());
            auto* tree = dynamic_cast<KRCB::DataQuery::PartialFolderTreeResult*>(
                observer.created->treeResult.Get());
            ASSERT_TRUE(tree);
            EXPECT_EQ(tree->GetFullPathQueried(), "/Projects/A/B/C");
        } else if (observer.created && (f[3] || f[4])) {
            // The fifth flag goes on sixth, the fourth to nobody.
            ASSERT_TRUE(observer.created->treeResult);
            const auto& options = observer.created->treeResult->GetOptions();
            EXPECT_EQ(options.visibleModelServers, f[4]);
            EXPECT_FALSE(options.librariesPermissions || options.projects || options.libraries ||
                         options.foldersPermissions);
        } else if (observer.created) {
            EXPECT_FALSE(observer.created->treeResult);
        }
        service->ClearFaults();
    }
    EXPECT_THROW(CreateProjectFolderTask(kServer, "anna", password, nullptr, "A", 1, nullptr, false,
                                         false, false, false, false, false),
                 ZR::IllegalArgumentException);
    EXPECT_THROW(CreateProjectFolderTask(kServer, "anna", password, parent, Names{}, 1, nullptr,
                                         false, false, false, false, false, false),
                 ZR::IllegalArgumentException);
    EXPECT_EQ(log.GetText(), "");
}

// The server's refusals are the base client's test; here their numbers.
TEST_F(BrowseTaskThreadTest, RenameComparesExactlyAndMapsRefusalsToTheirNumbers) {
    KRCB::Management::Entities::Resource::Fields fields;
    fields.id = kProjectId;
    fields.path = kProjectPath;
    auto house = ZR::Ref<Project>::Make(fields, "", ZR::HashSet<ZR::UniString>());
    const struct {
        const char* name;
        const char* op;
        FaultKind kind;
        const char* event;
        int logins, renames;
    } rows[] = {
        {"House", nullptr, {}, "ok prj-house House", 0, 0},
        {"a/b", nullptr, {}, "failed 2 prj-house a/b", 0, 0},
        {"Barn", Op::kRenameProject, FaultKind::EntityExists, "failed 1 prj-house Barn", 1, 1},
        {"Home", Op::kLogin, FaultKind::CreateSessionFailed, "failed 0 prj-house Home", 1, 0},
        {"Home", Op::kRenameProject, FaultKind::AccessDenied, "failed 3 prj-house Home", 1, 1},
        {"Home", Op::kQuery, FaultKind::Interrupted, "interrupted", 1, 0},
        {"Home", Op::kRenameProject, FaultKind::ZRException, "failed 4 prj-house Home", 1, 1},
        {"HOUSE", nullptr, {}, "ok prj-house House", 1, 1},  // case alone is a rename
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        if (row.op) service->FailNext(row.op, {row.kind});
        Observer observer;
        RenameProjectTask task(kServer, "anna", password, house, row.name, 0, &observer);
        Run(task);
        EXPECT_EQ(observer.events, std::vector<std::string>{row.event});
        EXPECT_EQ(service->CallCount(Op::kLogin), row.logins);
        EXPECT_EQ(service->CallCount(Op::kRenameProject), row.renames);
        service->ClearFaults();
    }
    EXPECT_EQ(house->GetName(), "House");  // the object given is not changed
    EXPECT_THROW(RenameProjectTask(kServer, "anna", password, nullptr, "x", 0, nullptr),
                 ZR::IllegalArgumentException);
}

TEST_F(BrowseTaskThreadTest, LibrariesQueryKeepsItsConnectionAndHasItsOwnNumbers) {
    const struct {
        const char* op;
        FaultKind kind;
        const char* event;
    } rows[] = {
        {nullptr, {}, "ok 0 Portal"},
        {Op::kGetLibraries, FaultKind::AccessDenied, "failed 1"},
        {Op::kOpenClient, FaultKind::SessionRequired, "failed 0"},
        {Op::kGetLibraries, FaultKind::EntityNotFound, "failed 2"},
        {Op::kGetLibraries, FaultKind::InterruptedIO, "interrupted"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.event);
        if (row.op) service->FailNext(row.op, {row.kind});
        Observer observer;
        {
            LibrariesQueryTask task(connection, 0, &observer);
            Run(task);
            EXPECT_EQ(connection.Std().use_count(), 2);  // until the task goes
        }
        EXPECT_EQ(observer.events, std::vector<std::string>{row.event});
        service->ClearFaults();
    }
    service->AddLibrary(kServer, {"/Parts/Bolts"});
    Observer observer;
    LibrariesQueryTask task(connection, 0, &observer);
    Run(task);
    EXPECT_EQ(observer.events, std::vector<std::string>{"ok 1 Portal"});
}

}  // namespace
