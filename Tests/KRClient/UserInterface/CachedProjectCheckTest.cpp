// The cached project check: its decision over a scripted server (which rule
// holds, its log lines, the one callback), and the task on a worker.

#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRClient/LoginFixture.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "Support/EmulatorFixture.h"
#include "Support/LibraryTest.h"
#include "ZR/Logger.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
using KRC::UI::CachedProjectCheckTask;
namespace Op = Emulator::Op;
using KRC::UI::LocalCache::ProjectInfo;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::Resource;

// "a=b c=d" as pairs.
std::vector<std::pair<std::string, std::string>> Pairs(const char* text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::istringstream in(text);
    for (std::string word; in >> word;) {
        const auto at = word.find('=');
        pairs.emplace_back(word.substr(0, at), word.substr(at + 1));
    }
    return pairs;
}

// The server's projects as "path=id ..."; "@path=id" is found by its id only.
ZR::Ref<Project> Found(const char* server, bool byId, const std::string& key) {
    for (auto [path, id] : Pairs(server)) {
        const bool idOnly = path[0] == '@';
        if (idOnly) path.erase(0, 1);
        if (byId ? id != key : idOnly || path != key) continue;
        Resource::Fields f;
        f.path = path;
        f.id = id;
        return ZR::Ref<Project>(std::make_shared<Project>(f, "", ZR::HashSet<ZR::UniString>()));
    }
    return ZR::Ref<Project>();
}

struct Outcome {
    std::vector<std::string> log, calls, told;
};

// Records as "path=id ...".
CachedProjectCheckTask::Projects Records(const char* text) {
    auto list = std::make_shared<ZR::Array<ProjectInfo>>();
    for (const auto& [path, id] : Pairs(text)) {
        ProjectInfo info;
        info.path = path;
        info.id = id;
        list->Add(info);
    }
    return CachedProjectCheckTask::Projects(list);
}

Outcome Decide(const char* server, const char* path, const char* records) {
    Outcome out;
    CachedProjectCheckTask::Lookup byPath = [&](const ZR::UniString& p) {
        out.calls.push_back("path " + p.ToLowerCase().Std());
        return Found(server, false, p.ToLowerCase().Std());
    };
    CachedProjectCheckTask::Lookup byId = [&](const ZR::UniString& id) {
        out.calls.push_back("id " + id.Std());
        return Found(server, true, id.Std());
    };
    ZR::CaptureLogSink sink;
    {
        ZR::ScopedLogSink scoped(sink);
        CachedProjectCheckTask::Check(
            path, Records(records), byPath, byId,
            [&](const ZR::UniString& a, const ZR::UniString& b, const ZR::UniString& c) {
                out.told.push_back("moved " + a.Std() + " " + b.Std() + " " + c.Std());
            },
            [&](const ZR::UniString& a, const ZR::UniString& b, const ZR::UniString& c,
                const ZR::UniString& d) {
                out.told.push_back("dup " + a.Std() + " " + b.Std() + " " + c.Std() + " " +
                                   d.Std());
            });
    }
    const char* levels[] = {"I", "W", "E"};
    for (const ZR::LogRecord& r : sink.GetRecords())
        out.log.push_back(std::string(levels[static_cast<int>(r.level)]) + "|" + r.component + "|" +
                          r.text.substr(r.text.find(':') + 2));
    return out;
}

// Lines joined by "\n", from the first.
std::string Lines(const std::vector<std::string>& lines, std::size_t first = 0) {
    std::string text;
    for (std::size_t i = first; i < lines.size(); ++i) text += (i > first ? "\n" : "") + lines[i];
    return text;
}

std::string State(const char* p, const char* q, const char* cp, const char* ci) {
    auto one = [](const char* name, const char* value) {
        return std::string("I||") + name + (value ? std::string(": ") + value : " is null");
    };
    return Lines({one("project by path", p), one("project by cache id", q),
                  one("cache by path", cp), one("cache by id", ci)});
}

TEST(CachedProjectCheck, RulesLogLinesAndCallbacks) {
    const std::string moved = "I|KRClient|Project moved to new path, opened with ";
    const std::string dupOld = "I|KRClient|Project duplicated, opened with old path. ";
    const std::string dupNew = "I|KRClient|Project duplicated, opened with new path. ";
    const std::string occupied =
        " path. Move handle failed, new path is occupied. Cache project id on new path: ";
    const std::string xMoved = "Old path: /old, new path: /new, project id: X";
    // The rules past the simple cases first log the four projects they gathered:
    // one row checks those, the others only the lines after them.
    const struct {
        const char* what;
        const char* server;
        const char* path;
        const char* records;
        const char* told;
        std::string log, state = "";
    } rows[] = {
        {"no record", "/p=X", "/p", "/q=Y =X", "", "I||Server only project"},
        {"server lacks", "", "/p", "/P=X", "", "I||Cache only project"},
        {"agree", "/p=X", "/P", "/p=x", "", "I||Cache and server project"},
        {"other id", "/p=N", "/p", "/p=X", "",
         "I||Cache and server project with different project id"},
        {"moved, old opened", "/new=X", "/old", "/old=X", "moved /old /new X",
         moved + "old path. " + xMoved},
        {"moved, old opened, new occupied", "/new=X", "/old", "/old=X /NEW= /new=Y", "",
         moved + "old path. " + xMoved + "\nW" + moved.substr(1) + "old" + occupied},
        {"moved, new opened", "/new=X", "/new", "/old=X", "moved /old /new X",
         moved + "new path. " + xMoved},
        {"moved, new opened, occupied", "/new=X", "/new", "/old=X /new=Z", "",
         moved + "new path. " + xMoved + "\nW" + moved.substr(1) + "new" + occupied + "Z",
         State("path: /new id: X", nullptr, "path: /new id: Z", "path: /old id: X")},
        {"duplicated, old opened", "/p=N /q=X", "/p", "/p=X", "dup /p /q N X",
         dupOld + "Old path: /p, new path: /q, server project id on old path: N, cache and "
                  "server project id on new path: X"},
        {"duplicated, new opened", "/old=N /new=X", "/new", "/old=X", "dup /old /new N X",
         dupNew + "Old path: /old, new path: /new, server project id on old path: N, cache "
                  "and server project id on new path: X"},
        {"not handled", "/q=M @/q=X", "/p", "/p=X", "", "W|KRClient|not handled state"},
        {"found by id, gone by path", "@/gone=X", "/p", "/p=X", "", "I||Cache only project"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const Outcome out = Decide(row.server, row.path, row.records);
        const bool gathered = out.log.size() > 1;
        EXPECT_EQ(Lines(out.log, gathered ? 4 : 0), row.log);
        if (!row.state.empty()) {
            EXPECT_EQ(Lines({out.log.begin(), out.log.begin() + 4}), row.state);
        }
        EXPECT_EQ(Lines(out.told), row.told);
    }
}

TEST(CachedProjectCheck, GatheringPicksRecordsAndLooksUpOnlyWhatItNeeds) {
    // The first record with the path wins, unless a later one has the id too.
    Outcome out = Decide("/p=X", "/p", "/p=A /p=X /P=B");
    EXPECT_EQ(out.log, std::vector<std::string>{"I||Cache and server project"});
    EXPECT_EQ(out.calls, std::vector<std::string>{"path /p"});
    // An empty list still asks for the path; no list asks nothing.
    out = Decide("/p=X", "/p", "");
    EXPECT_EQ(out.log, std::vector<std::string>{"I||Server only project"});
    EXPECT_EQ(out.calls, std::vector<std::string>{"path /p"});
    CachedProjectCheckTask::Lookup never = [](const ZR::UniString&) -> ZR::Ref<Project> {
        throw std::logic_error("looked up");
    };
    ZR::CaptureLogSink sink;
    {
        ZR::ScopedLogSink scoped(sink);
        CachedProjectCheckTask::Check("/p", {}, never, never, {}, {});
    }
    EXPECT_TRUE(sink.GetRecords().empty());
    out = Decide("/new=X", "/old", "/old=X");
    EXPECT_EQ(out.calls, (std::vector<std::string>{"path /old", "id X", "path /new"}));
}

// Run on a worker against the emulated service: what the server is asked, where
// the callbacks run, failures and the runs that ask nothing; the rules
// themselves are the unit test's.
class CachedProjectCheckThreadTest : public LibraryTest {
protected:
    std::vector<std::string> Lookups() const {
        std::vector<std::string> seen;
        for (const Emulator::LookupRecord& r : service->GetLookups())
            seen.push_back(r.op + " " + r.key);
        return seen;
    }
    void AddProject(const char* path, const char* id) {
        Emulator::ProjectSpec spec = ProjectAt(path, "ms-1");
        spec.id = id;
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

TEST_F(CachedProjectCheckThreadTest, FindsMovesAndDuplicatesOnTheServerFromTheWorker) {
    service->MoveProject(kServer, kProjectPath, "/Projects/Home");
    AddProject("/Projects/Barn", "barn");
    service->MoveProject(kServer, "/Projects/Barn", "/Projects/Shed");
    AddProject("/Projects/Barn", "barn2");
    // A path first met as the path of a project found by id is asked afresh:
    // the client would otherwise answer from what the id look-up brought.
    const struct {
        const char* path;
        const char* records;
        std::vector<std::string> lookups;
        const char* told;
    } rows[] = {
        {kProjectPath,
         "/Projects/House=prj-house",
         {"GetProjectByPath /Projects/House", "GetProjectById prj-house",
          "GetProjectByPath /Projects/Home"},
         "moved /Projects/House /Projects/Home prj-house"},
        {"/Projects/Barn",
         "/Projects/Barn=barn",
         {"GetProjectByPath /Projects/Barn", "GetProjectById barn",
          "GetProjectByPath /Projects/Shed"},
         "dup /Projects/Barn /Projects/Shed barn2 barn"},
        {"/Projects/Gone",
         "/Projects/Gone=gone",
         {"GetProjectByPath /Projects/Gone", "GetProjectById gone"},
         ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        told.clear();
        service->ClearLookups();
        auto connection = PasswordLogin();          // a login of its own: no look-up remembered
        const auto records = Records(row.records);  // outlives the task
        CachedProjectCheckTask task(connection, row.path, records, onMoved, onDuplicated);
        const std::thread::id worker = RunOnWorker(task);
        EXPECT_EQ(Lookups(), row.lookups);
        EXPECT_EQ(told,
                  *row.told ? std::vector<std::string>{row.told} : std::vector<std::string>{});
        if (!told.empty()) {
            EXPECT_EQ(toldOn, worker);
        }
    }
    EXPECT_FALSE(Logged("failed to check")) << log.GetText();
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
        auto connection = PasswordLogin();
        service->FailNext(row.op, {row.kind});
        // The cache remembers House under another id: the check looks it up
        // by id. The task refers to the caller's list, which outlives it.
        const CachedProjectCheckTask::Projects list = Records("/Projects/House=old");
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
    Connection connection = PasswordLogin(), none;
    const CachedProjectCheckTask::Projects records = Records("/Projects/House=old"), noList;
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
