// The cached project check's decision over a scripted server: which rule
// holds, its log lines with their categories, and the one callback.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "ZR/Logger.h"

namespace {

using KRC::UI::CachedProjectCheckTask;
using KRC::UI::LocalCache::ProjectInfo;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::Resource;

struct Server {
    std::map<std::string, std::pair<std::string, std::string>> byPath;  // path -> path, id
    std::map<std::string, std::pair<std::string, std::string>> byId;    // id -> path, id
};

Server Make(std::initializer_list<std::pair<const char*, const char*>> projects) {
    Server s;
    for (const auto& [path, id] : projects) {
        s.byPath[path] = {path, id};
        s.byId[id] = {path, id};
    }
    return s;
}

ZR::Ref<Project> Found(const std::map<std::string, std::pair<std::string, std::string>>& table,
                       const std::string& key, std::vector<std::string>& calls, const char* kind) {
    calls.push_back(std::string(kind) + key);
    auto it = table.find(key);
    if (it == table.end()) return ZR::Ref<Project>();
    Resource::Fields f;
    f.path = it->second.first;
    f.id = it->second.second;
    return ZR::Ref<Project>(std::make_shared<Project>(f, "", ZR::HashSet<ZR::UniString>()));
}

struct Outcome {
    std::vector<std::string> log, calls, told;
};

Outcome Decide(const Server& server, const char* path,
               const std::vector<std::pair<const char*, const char*>>& records) {
    Outcome out;
    auto list = std::make_shared<ZR::Array<ProjectInfo>>();
    for (const auto& [p, id] : records) {
        ProjectInfo info;
        info.path = p;
        info.id = id;
        list->Add(info);
    }
    CachedProjectCheckTask::Lookup byPath = [&](const ZR::UniString& p) {
        return Found(server.byPath, p.ToLowerCase().Std(), out.calls, "path ");
    };
    CachedProjectCheckTask::Lookup byId = [&](const ZR::UniString& id) {
        return Found(server.byId, id.Std(), out.calls, "id ");
    };
    ZR::CaptureLogSink sink;
    {
        ZR::ScopedLogSink scoped(sink);
        CachedProjectCheckTask::Check(
            path, CachedProjectCheckTask::Projects(list), byPath, byId,
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

std::vector<std::string> State(const char* p, const char* q, const char* cp, const char* ci) {
    auto one = [](const char* name, const char* value) {
        return std::string("I||") + name + (value ? std::string(": ") + value : " is null");
    };
    return {one("project by path", p), one("project by cache id", q), one("cache by path", cp),
            one("cache by id", ci)};
}

std::vector<std::string> With(std::vector<std::string> state, std::vector<std::string> more) {
    state.insert(state.end(), more.begin(), more.end());
    return state;
}

TEST(CachedProjectCheck, RulesLogLinesAndCallbacks) {
    const std::string moveOld = "I|KRClient|Project moved to new path, opened with old path. ";
    const std::string moveNew = "I|KRClient|Project moved to new path, opened with new path. ";
    const std::string dupOld = "I|KRClient|Project duplicated, opened with old path. ";
    const std::string dupNew = "I|KRClient|Project duplicated, opened with new path. ";
    const struct {
        const char* what;
        Server server;
        const char* path;
        std::vector<std::pair<const char*, const char*>> records;
        std::vector<std::string> log;
        std::vector<std::string> told;
    } rows[] = {
        {"no record",
         Make({{"/p", "X"}}),
         "/p",
         {{"/q", "Y"}, {"", "X"}},
         {"I||Server only project"},
         {}},
        {"server lacks", Make({}), "/p", {{"/P", "X"}}, {"I||Cache only project"}, {}},
        {"agree", Make({{"/p", "X"}}), "/P", {{"/p", "x"}}, {"I||Cache and server project"}, {}},
        {"other id",
         Make({{"/p", "N"}}),
         "/p",
         {{"/p", "X"}},
         {"I||Cache and server project with different project id"},
         {}},
        {"moved, old opened",
         Make({{"/new", "X"}}),
         "/old",
         {{"/old", "X"}},
         With(State(nullptr, "path: /new id: X", "path: /old id: X", nullptr),
              {moveOld + "Old path: /old, new path: /new, project id: X"}),
         {"moved /old /new X"}},
        {"moved, old opened, new occupied",
         Make({{"/new", "X"}}),
         "/old",
         {{"/old", "X"}, {"/NEW", ""}, {"/new", "Y"}},
         With(State(nullptr, "path: /new id: X", "path: /old id: X", nullptr),
              {moveOld + "Old path: /old, new path: /new, project id: X",
               "W|KRClient|Project moved to new path, opened with old path. Move handle failed, "
               "new path is occupied. Cache project id on new path: "}),
         {}},
        {"moved, new opened",
         Make({{"/new", "X"}}),
         "/new",
         {{"/old", "X"}},
         With(State("path: /new id: X", nullptr, nullptr, "path: /old id: X"),
              {moveNew + "Old path: /old, new path: /new, project id: X"}),
         {"moved /old /new X"}},
        {"moved, new opened, occupied",
         Make({{"/new", "X"}}),
         "/new",
         {{"/old", "X"}, {"/new", "Z"}},
         With(State("path: /new id: X", nullptr, "path: /new id: Z", "path: /old id: X"),
              {moveNew + "Old path: /old, new path: /new, project id: X",
               "W|KRClient|Project moved to new path, opened with new path. Move handle failed, "
               "new path is occupied. Cache project id on new path: Z"}),
         {}},
        {"duplicated, old opened",
         Make({{"/p", "N"}, {"/q", "X"}}),
         "/p",
         {{"/p", "X"}},
         With(State("path: /p id: N", "path: /q id: X", "path: /p id: X", nullptr),
              {dupOld + "Old path: /p, new path: /q, server project id on old path: N, cache and "
                        "server project id on new path: X"}),
         {"dup /p /q N X"}},
        {"duplicated, new opened",
         Make({{"/old", "N"}, {"/new", "X"}}),
         "/new",
         {{"/old", "X"}},
         With(State("path: /new id: X", nullptr, nullptr, "path: /old id: X"),
              {dupNew + "Old path: /old, new path: /new, server project id on old path: N, cache "
                        "and server project id on new path: X"}),
         {"dup /old /new N X"}},
        {"not handled",
         [] {
             Server s = Make({{"/q", "M"}});
             s.byId["X"] = {"/q", "X"};
             return s;
         }(),
         "/p",
         {{"/p", "X"}},
         With(State(nullptr, "path: /q id: M", "path: /p id: X", nullptr),
              {"W|KRClient|not handled state"}),
         {}},
        {"found by id, gone by path",
         [] {
             Server s;
             s.byId["X"] = {"/gone", "X"};
             return s;
         }(),
         "/p",
         {{"/p", "X"}},
         {"I||Cache only project"},
         {}},
    };
    for (const auto& row : rows) {
        const Outcome out = Decide(row.server, row.path, row.records);
        EXPECT_EQ(out.log, row.log) << row.what;
        EXPECT_EQ(out.told, row.told) << row.what;
    }
}

TEST(CachedProjectCheck, GatheringPicksRecordsAndLooksUpOnlyWhatItNeeds) {
    // The first record with the path wins, unless a later one has the id too.
    Outcome out = Decide(Make({{"/p", "X"}}), "/p", {{"/p", "A"}, {"/p", "X"}, {"/P", "B"}});
    EXPECT_EQ(out.log, std::vector<std::string>{"I||Cache and server project"});
    EXPECT_EQ(out.calls, std::vector<std::string>{"path /p"});
    // An empty list still asks for the path; no list asks nothing.
    out = Decide(Make({{"/p", "X"}}), "/p", {});
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
    out = Decide(Make({{"/new", "X"}}), "/old", {{"/old", "X"}});
    EXPECT_EQ(out.calls, (std::vector<std::string>{"path /old", "id X", "path /new"}));
}

}  // namespace
