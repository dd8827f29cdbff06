// krctl emulate browse: the tasks' answers as JSON, written back with --update,
// refusals with their error, name and exit code, and the local cache view over
// a data folder's records.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Emulator/Service.h"
#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kServer = "https://emu.example";

// /F/Moved was /F/Old when anna's cache recorded it.
const char* const kScenario = R"({"servers": [{"url": "https://emu.example",
  "users": [{"login": "anna", "password": "pw-anna"}, {"login": "ben", "refreshToken": "t"}],
  "folders": ["/F", "/F/Sub"],
  "libraries": [{"path": "/Parts/Bolts", "id": "lib-bolts"}],
  "projects": [{"path": "/F/Tower", "id": "p-tower",
                "permissions": {"anna": ["ReadProject", "AdministerProject"]}},
               {"path": "/F/Moved", "id": "p-moved"}]}]})";

class KrctlEmulateBrowseTest : public krtest::KrctlRun {
protected:
    void SetUp() override {
        globals.insert(globals.end(), {"--data-folder", Data()});
        std::ofstream(Scenario()) << kScenario;
        const struct {
            const char* folder;
            const char* user;
            const char* path;
            const char* id;
        } records[] = {{"r1", "anna", "/F/Old", "p-moved"},
                       {"r2", "ANNA", "/F/Tower", "p-tower"},
                       {"r3", "anna", "/Local/Only", "p-local"},
                       {"r4", "bert", "/f/sub/Other", "p-other"}};
        for (const auto& r : records)
            krtest::WriteCache(Data() + "/Projects", r.folder, kServer, r.path, r.user,
                               {{"ProjectId", r.id}});
    }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    krtest::ProcessResult Browse(std::vector<std::string> command, bool update = false,
                                 const std::string& user = "anna") const {
        std::vector<std::string> args{"--json", "emulate", Scenario()};
        if (update) args.push_back("--update");
        for (const char* a : {"browse", "--server", kServer, "--user"}) args.push_back(a);
        args.push_back(user);
        args.insert(args.end(), command.begin(), command.end());
        return Run(args);
    }
    // "kind path source" per entry, indented by depth; no source, no word.
    static std::vector<std::string> Lines(const Json& entries) {
        std::vector<std::string> lines;
        for (const Json& e : entries)
            lines.push_back(std::string(2 * e["depth"].get<std::size_t>(), ' ') +
                            e["kind"].get<std::string>() + " " + e["path"].get<std::string>() +
                            (e.contains("source") ? " " + e["source"].get<std::string>() : ""));
        return lines;
    }
};

TEST_F(KrctlEmulateBrowseTest, TreeChainRenameAndLibrariesAsTheTasksReportThem) {
    auto tree = Browse({"tree", "--depth", "2"});
    ASSERT_EQ(tree.exitCode, 0) << tree.err;
    Json entries = Json::parse(tree.out);
    EXPECT_EQ(entries[0]["id"], "projectRoot");
    EXPECT_EQ(entries[3]["id"], "p-moved");
    EXPECT_EQ(Lines(entries),
              (std::vector<std::string>{"folder ", "  folder /F", "    project /F/Tower",
                                        "    project /F/Moved", "    folder /F/Sub",
                                        "  folder /Parts", "    library /Parts/Bolts"}));

    auto chain = Browse({"mkdir", "/F/Sub/A/B"}, true);
    ASSERT_EQ(chain.exitCode, 0) << chain.err;
    EXPECT_EQ(Json::parse(chain.out).size(), 2u);
    EXPECT_EQ(Emulator::Service::FromScenarioFile(Scenario())->GetFolders(kServer),
              (std::vector<std::string>{"/F", "/F/Sub", "/F/Sub/A", "/F/Sub/A/B", "/Parts"}));

    auto renamed = Browse({"rename", "--path", "/F/Tower", "--name", "Keep"});
    ASSERT_EQ(renamed.exitCode, 0) << renamed.err;
    EXPECT_EQ(Json::parse(renamed.out)["id"], "p-tower");

    auto libraries = Browse({"libraries"});
    ASSERT_EQ(libraries.exitCode, 0) << libraries.err;
    EXPECT_EQ(Json::parse(libraries.out)[0]["id"], "lib-bolts");
}

// Which refusal maps to which error is the tasks' test; here the answer's form.
TEST_F(KrctlEmulateBrowseTest, RefusalsNameTheErrorAndExitNonZero) {
    const struct {
        std::vector<std::string> command;
        std::string user;
        int exitCode;
        const char* error;  // of the JSON answer; null: a one-line reason on stderr
        const char* name;
        int serverCalls;
    } rows[] = {
        {{"mkdir", "/F/X/b:c"}, "anna", 1, "InvalidName", "b:c", 0},
        {{"tree", "/None"}, "anna", 1, nullptr, "", 0},
        {{"libraries"}, "ben", 1, nullptr, "", 0},  // no password to log in with
        {{"tree", "--depth", "-1"}, "anna", 2, nullptr, "", 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.command[0] + " " + row.command.back());
        auto result = Browse(row.command, false, row.user);
        EXPECT_EQ(result.exitCode, row.exitCode) << result.out << result.err;
        if (row.error) {
            Json answer = Json::parse(result.out);
            EXPECT_EQ(answer["error"], row.error);
            EXPECT_EQ(answer["name"], row.name);
            EXPECT_EQ(answer["serverCalls"], row.serverCalls);
        } else if (row.exitCode != 0) {
            EXPECT_NE(result.err, "");
        }
    }
}

// The check's rules and log lines are its unit test's; here the records it is
// given (anna's three) and the answer's form.
TEST_F(KrctlEmulateBrowseTest, CheckCacheFindsAProjectMovedOnTheServer) {
    auto run = Browse({"check-cache", "--path", "/F/Old"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Json out = Json::parse(run.out);
    EXPECT_EQ(out["finding"], "moved");
    EXPECT_EQ(out["records"], 3);
    EXPECT_EQ(out["oldPath"].get<std::string>() + " " + out["newPath"].get<std::string>() + " " +
                  out["projectId"].get<std::string>(),
              "/F/Old /F/Moved p-moved");
    EXPECT_NE(out["log"].back()["text"].get<std::string>().find("moved"), std::string::npos);
    run = Browse({"check-cache", "--path", "/F/Tower"});
    out = Json::parse(run.out);
    EXPECT_EQ(out["finding"], "none");
    EXPECT_FALSE(out.contains("newPath")) << run.out;
    // A server the scenario lacks fails the login; a bad URL is a usage error.
    for (const auto& [server, exitCode] : {std::pair{"https://none.example", 1}, {"ftp://x", 2}})
        EXPECT_EQ(Run({"emulate", Scenario(), "browse", "--server", server, "--user", "anna",
                       "check-cache", "--path", "/F/Old"})
                      .exitCode,
                  exitCode)
            << server;
}

TEST_F(KrctlEmulateBrowseTest, TreeWithCacheLaysTheRecordsIntoTheServersTree) {
    auto run = Browse({"tree", "--depth", "3", "--with-cache"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(Lines(Json::parse(run.out)), (std::vector<std::string>{
                                               "folder  server",
                                               "  folder /F server",
                                               "    project /F/Moved server",
                                               "    project /F/Old local",
                                               "    project /F/Tower both",
                                               "    folder /F/Sub server",
                                               "  folder /Local local",
                                               "    project /Local/Only local",
                                               "  folder /Parts server",
                                           }));
}

TEST_F(KrctlEmulateBrowseTest, RegistryTreeIsTheBareFolderTreePerServerAndUser) {
    auto run = Run({"--json", "registry", "tree"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const Json out = Json::parse(run.out);
    ASSERT_EQ(out.size(), 2u) << out.dump();
    EXPECT_EQ(out[0]["user"], "anna");
    EXPECT_EQ(Lines(out[0]["tree"]),
              (std::vector<std::string>{"folder ", "  folder /F", "    project /F/Old",
                                        "    project /F/Tower", "  folder /Local",
                                        "    project /Local/Only"}));
    EXPECT_EQ(Lines(out[1]["tree"]),
              (std::vector<std::string>{"folder ", "  folder /f", "    folder /f/sub",
                                        "      project /f/sub/Other"}));
    auto one = Run({"--json", "registry", "tree", "--user", "BERT"});
    ASSERT_EQ(one.exitCode, 0) << one.err;
    EXPECT_EQ(Json::parse(one.out).size(), 1u);
}

}  // namespace
