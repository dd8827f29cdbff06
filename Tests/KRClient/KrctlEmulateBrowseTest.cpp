// krctl emulate browse: the tasks' answers as JSON, written back with --update,
// and refusals with their error, name and exit code.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Emulator/Service.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kScenario = R"({"servers": [{"url": "https://emu.example",
  "users": [{"login": "anna", "password": "pw-anna"}, {"login": "ben", "refreshToken": "t"}],
  "folders": ["/F", "/F/Sub"],
  "libraries": [{"path": "/Parts/Bolts", "id": "lib-bolts"}],
  "projects": [{"path": "/F/Tower", "id": "p-tower",
                "permissions": {"anna": ["ReadProject", "AdministerProject"]}}]}]})";

class KrctlEmulateBrowseTest : public krtest::KrctlRun {
protected:
    void SetUp() override { std::ofstream(Scenario()) << kScenario; }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    krtest::ProcessResult Browse(std::vector<std::string> command, bool update = false,
                                 const std::string& user = "anna") const {
        std::vector<std::string> args{"--json", "emulate", Scenario()};
        if (update) args.push_back("--update");
        for (const char* a : {"browse", "--server", "https://emu.example", "--user"})
            args.push_back(a);
        args.push_back(user);
        args.insert(args.end(), command.begin(), command.end());
        return Run(args);
    }
    std::vector<std::string> Folders() const {
        return Emulator::Service::FromScenarioFile(Scenario())->GetFolders("https://emu.example");
    }
};

TEST_F(KrctlEmulateBrowseTest, TreeChainRenameAndLibrariesAsTheTasksReportThem) {
    auto tree = Browse({"tree", "--depth", "2"});
    ASSERT_EQ(tree.exitCode, 0) << tree.err;
    Json entries = Json::parse(tree.out);
    for (std::size_t i : {1, 3, 4}) entries[i].erase("id");  // folder ids come from the seed
    EXPECT_EQ(entries, Json::parse(R"([
      {"kind": "folder", "path": "", "id": "projectRoot", "depth": 0},
      {"kind": "folder", "path": "/F", "depth": 1},
      {"kind": "project", "path": "/F/Tower", "id": "p-tower", "depth": 2},
      {"kind": "folder", "path": "/F/Sub", "depth": 2},
      {"kind": "folder", "path": "/Parts", "depth": 1},
      {"kind": "library", "path": "/Parts/Bolts", "id": "lib-bolts", "depth": 2}])"));

    auto chain = Browse({"mkdir", "/F/Sub/A/B"}, true);
    ASSERT_EQ(chain.exitCode, 0) << chain.err;
    EXPECT_EQ(Json::parse(chain.out).size(), 2u);
    EXPECT_EQ(Folders(),
              (std::vector<std::string>{"/F", "/F/Sub", "/F/Sub/A", "/F/Sub/A/B", "/Parts"}));

    auto renamed = Browse({"rename", "--path", "/F/Tower", "--name", "Keep"}, true);
    ASSERT_EQ(renamed.exitCode, 0) << renamed.err;
    EXPECT_EQ(Json::parse(renamed.out)["id"], "p-tower");
    EXPECT_EQ(Emulator::Service::FromScenarioFile(Scenario())
                  ->GetProjectId("https://emu.example", "/F/Keep"),
              "p-tower");

    auto libraries = Browse({"libraries"});
    ASSERT_EQ(libraries.exitCode, 0) << libraries.err;
    EXPECT_EQ(Json::parse(libraries.out)[0]["id"], "lib-bolts");
}

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
        {{"mkdir", "/f/tower/X"}, "anna", 1, "FolderExists", "tower", 4},
        {{"rename", "--path", "/F/Tower", "--name", "Tower"}, "anna", 0, nullptr, "", 0},
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

}  // namespace
