// krctl's local cache view over a data folder's records: the cached project
// check, the server's tree with the local projects laid in, the records' tree.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kServer = "https://emu.example";

// /F/Moved was /F/Old when anna's cache recorded it.
const char* const kScenario = R"({"servers": [{"url": "https://emu.example",
  "users": [{"login": "anna", "password": "pw-anna"}],
  "folders": ["/F", "/F/Sub"],
  "projects": [{"path": "/F/Tower", "id": "p-tower"}, {"path": "/F/Moved", "id": "p-moved"}]}]})";

class KrctlLocalCacheProcessTest : public krtest::KrctlRun {
protected:
    KrctlLocalCacheProcessTest() {
        globals = {"--base-folder", Base(), "--log-file", Log(), "--data-folder", Data()};
    }
    void SetUp() override {
        std::ofstream(temp.Sub("scenario.json")) << kScenario;
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
            krtest::WriteCacheInfo(Data() + "/Projects/" + r.folder, 10,
                                   {{"PortalServerUrl", kServer},
                                    {"ProjectPath", r.path},
                                    {"LoginName", r.user},
                                    {"ProjectId", r.id}});
    }
    krtest::ProcessResult Browse(std::vector<std::string> command) const {
        std::vector<std::string> args{"--json", "emulate",  temp.Sub("scenario.json"),
                                      "browse", "--server", kServer,
                                      "--user", "anna"};
        args.insert(args.end(), command.begin(), command.end());
        return Run(args);
    }
    // "kind path source" per entry, or "kind path" where there is no source.
    static std::vector<std::string> Lines(const Json& entries) {
        std::vector<std::string> lines;
        for (const Json& e : entries)
            lines.push_back(std::string(2 * e["depth"].get<std::size_t>(), ' ') +
                            e["kind"].get<std::string>() + " " + e["path"].get<std::string>() +
                            (e.contains("source") ? " " + e["source"].get<std::string>() : ""));
        return lines;
    }
};

// The check's rules are its unit test's; here the records it is given (anna's
// three) and the answer's form.
TEST_F(KrctlLocalCacheProcessTest, CheckCacheFindsAProjectMovedOnTheServer) {
    auto run = Browse({"check-cache", "--path", "/F/Old"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    Json out = Json::parse(run.out);
    EXPECT_EQ(out["finding"], "moved");
    EXPECT_EQ(out["records"], 3);
    EXPECT_EQ(out["oldPath"].get<std::string>() + " " + out["newPath"].get<std::string>() + " " +
                  out["projectId"].get<std::string>(),
              "/F/Old /F/Moved p-moved");
    EXPECT_EQ(out["log"].back()["text"],
              "CachedProjectCheck: Project moved to new path, opened with old path. Old path: "
              "/F/Old, new path: /F/Moved, project id: p-moved");
    run = Browse({"check-cache", "--path", "/F/Tower"});
    out = Json::parse(run.out);
    EXPECT_EQ(out["finding"], "none");
    EXPECT_FALSE(out.contains("newPath")) << run.out;
    // A server the scenario lacks fails the login; a bad URL is a usage error.
    for (const auto& [server, exitCode] : {std::pair{"https://none.example", 1}, {"ftp://x", 2}})
        EXPECT_EQ(Run({"emulate", temp.Sub("scenario.json"), "browse", "--server", server, "--user",
                       "anna", "check-cache", "--path", "/F/Old"})
                      .exitCode,
                  exitCode)
            << server;
}

TEST_F(KrctlLocalCacheProcessTest, TreeWithCacheLaysTheRecordsIntoTheServersTree) {
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
                                           }));
}

TEST_F(KrctlLocalCacheProcessTest, RegistryTreeIsTheBareFolderTreePerServerAndUser) {
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
