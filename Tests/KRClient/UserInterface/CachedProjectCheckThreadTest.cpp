// The cached project check run on a worker against the emulated service.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRClient/LoginFixture.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "Support/EmulatorFixture.h"
#include "Support/LibraryTest.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
using KRC::UI::CachedProjectCheckTask;
using KRC::UI::LocalCache::ProjectInfo;
namespace Op = Emulator::Op;

class CachedProjectCheckThreadTest : public LibraryTest {
protected:
    // A login of its own, so that no look-up of an earlier run is remembered.
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection> Login() {
        return KRCB::Management::AuthenticatedClientConnectionFactory::Create(
            kServer, "anna", Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt("pw-anna"),
            false, false, 0);
    }
    static CachedProjectCheckTask::Projects Records(
        std::initializer_list<std::pair<const char*, const char*>> records) {
        auto list = std::make_shared<ZR::Array<ProjectInfo>>();
        for (const auto& [path, id] : records) {
            ProjectInfo info;
            info.path = path;
            info.id = id;
            list->Add(info);
        }
        return CachedProjectCheckTask::Projects(list);
    }
    std::vector<std::string> Lookups() const {
        std::vector<std::string> seen;
        for (const Emulator::LookupRecord& r : service->GetLookups())
            seen.push_back(r.op + " " + r.key);
        return seen;
    }
    void AddProject(const char* path, const char* id) {
        Emulator::ProjectSpec spec;
        spec.path = path;
        spec.id = id;
        spec.modelServer = "ms-1";
        service->AddProject(kServer, spec);
    }

    EmulatedService service;
    std::vector<std::string> told;
    std::thread::id toldOn;
    CachedProjectCheckTask::MovedCallback onMoved = [this](auto& a, auto& b, auto& c) {
        toldOn = std::this_thread::get_id();
        told.push_back("moved " + a.Std() + " " + b.Std() + " " + c.Std());
    };
    CachedProjectCheckTask::DuplicatedCallback onDuplicated = [this](auto& a, auto& b, auto& c,
                                                                     auto& d) {
        toldOn = std::this_thread::get_id();
        told.push_back("dup " + a.Std() + " " + b.Std() + " " + c.Std() + " " + d.Std());
    };
};

// What the server is asked and where the callbacks run; the rules themselves
// are the unit test's.
TEST_F(CachedProjectCheckThreadTest, FindsMovesAndDuplicatesOnTheServerFromTheWorker) {
    service->MoveProject(kServer, kProjectPath, "/Projects/Home");
    AddProject("/Projects/Barn", "barn");
    service->MoveProject(kServer, "/Projects/Barn", "/Projects/Shed");
    AddProject("/Projects/Barn", "barn2");
    // A path first met as the path of a project found by id is asked afresh:
    // the client would otherwise answer from what the id look-up brought.
    const struct {
        const char* path;
        const char* id;
        std::vector<std::string> lookups;
        const char* told;
    } rows[] = {
        {kProjectPath,
         kProjectId,
         {"GetProjectByPath /Projects/House", "GetProjectById prj-house",
          "GetProjectByPath /Projects/Home"},
         "moved /Projects/House /Projects/Home prj-house"},
        {"/Projects/Barn",
         "barn",
         {"GetProjectByPath /Projects/Barn", "GetProjectById barn",
          "GetProjectByPath /Projects/Shed"},
         "dup /Projects/Barn /Projects/Shed barn2 barn"},
        {"/Projects/Gone", "gone", {"GetProjectByPath /Projects/Gone", "GetProjectById gone"}, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        told.clear();
        service->ClearLookups();
        auto connection = Login();
        const auto records = Records({{row.path, row.id}});  // outlives the task
        CachedProjectCheckTask task(connection, row.path, records, onMoved, onDuplicated);
        const std::thread::id worker = RunOnWorker(task);
        EXPECT_EQ(Lookups(), row.lookups);
        EXPECT_EQ(told,
                  *row.told ? std::vector<std::string>{row.told} : std::vector<std::string>{});
        if (!told.empty()) {
            EXPECT_EQ(toldOn, worker);
        }
    }
    EXPECT_EQ(log.GetText().find("failed to check"), std::string::npos) << log.GetText();
}

TEST_F(CachedProjectCheckThreadTest, AFailureIsOneErrorLineAndNoCallback) {
    const std::string line =
        "CachedProjectCheck: failed to check project cache, project path: /Projects/House, "
        "exception: ";
    const struct {
        const char* op;
        FaultKind kind;
        const char* text;  // after the line's fixed part
    } rows[] = {
        {Op::kGetProjectById, FaultKind::ZRException, "ZRException: emulated failure"},
        {Op::kGetProjectByPath, FaultKind::Foreign, "unknown"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.op);
        told.clear();
        log.Clear();
        auto connection = Login();
        service->FailNext(row.op, {row.kind});
        // The cache remembers House under another id: the check looks it up
        // by id. The task refers to the caller's list, which outlives it.
        const CachedProjectCheckTask::Projects list = Records({{kProjectPath, "old"}});
        CachedProjectCheckTask task(connection, kProjectPath, list, onMoved, onDuplicated);
        RunOnWorker(task);
        const std::vector<ZR::LogRecord> records = log.GetRecords();
        ASSERT_FALSE(records.empty());
        EXPECT_EQ(records.back().level, ZR::LogLevel::Error);
        EXPECT_EQ(records.back().component, "KRClient");
        const std::string& text = records.back().text;
        EXPECT_EQ(text.rfind(line, 0), 0u) << text;
        EXPECT_NE(text.find(row.text, line.size()), std::string::npos) << text;
        EXPECT_TRUE(told.empty());
        service->ClearFaults();
    }
}

TEST_F(CachedProjectCheckThreadTest, WithoutItsArgumentsOrWhileDisabledItAsksNothing) {
    using Connection = ZR::Ref<KRCB::Management::AuthenticatedClientConnection>;
    Connection connection = Login(), none;
    const CachedProjectCheckTask::Projects records = Records({{kProjectPath, "old"}}), noList;
    const struct {
        bool enabled;
        Connection& login;
        const char* path;
        const CachedProjectCheckTask::Projects& records;
        bool moved, duplicated;
    } rows[] = {
        {false, connection, kProjectPath, records, true, true},
        {true, none, kProjectPath, records, true, true},
        {true, connection, "", records, true, true},
        {true, connection, kProjectPath, noList, true, true},
        {true, connection, kProjectPath, records, false, true},
        {true, connection, kProjectPath, records, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        service->ResetCounts();
        CachedProjectCheckTask::SetEnabled(row.enabled);
        CachedProjectCheckTask task(row.login, row.path, row.records, row.moved ? onMoved : nullptr,
                                    row.duplicated ? onDuplicated : nullptr);
        RunOnWorker(task);
        CachedProjectCheckTask::SetEnabled(true);
        EXPECT_EQ(service->ServerCallCount(), 0);
    }
    EXPECT_EQ(log.GetText(), "");
}

}  // namespace
