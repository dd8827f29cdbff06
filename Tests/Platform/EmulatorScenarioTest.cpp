// Scenario files: what they load, how they refuse, and the state written back.

#include <gtest/gtest.h>

#include "KRCB/Clients.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"
#include "Support/TempFolder.h"
#include "ZR/Guid.h"

namespace {

using namespace krtest;

const char* const kScenario = R"({
  "servers": [
    {
      "url": "https://portal.test",
      "friendlyName": "Portal",
      "version": [3, 2],
      "users": [
        {"login": "anna", "password": "pw-anna", "fullName": "Anna Berg", "id": "user-anna",
         "refreshToken": "rt-anna", "color": "#FF0000",
         "picture": {"type": "image/png", "data": "iVBORw0KGgo="}},
        {"login": "bert", "refreshToken": "rt-bert"}
      ],
      "modelServers": [{"id": "ms-1", "path": "/ms/one", "version": [1, 4]}],
      "folders": ["/Projects"],
      "projects": [
        {"path": "/Projects/House", "id": "prj-house", "modelServer": "ms-1", "state": 2,
         "permissions": {"anna": ["ReadProject", "WriteProject"], "bert": []},
         "members": [{"user": "bert", "userId": 7}],
         "sessions": [{"user": "anna", "id": "ses-1", "computer": "PC-1",
                       "attributes": {"VisitCount": "AQI="}}]}
      ]
    },
    {"url": "https://down.test", "down": true}
  ]
})";

TEST(EmulatorScenario, ALoadedScenarioServesItsState) {
    auto service = Emulator::Service::FromScenarioText(kScenario);
    service->Install();
    auto anna = service->FindUser(kServer, "ANNA");
    ASSERT_TRUE(anna);
    EXPECT_EQ(anna->color, "#ff0000ff");
    EXPECT_EQ(anna->picture,
              (std::vector<unsigned char>{0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'}));
    // What the scenario leaves out is made from the seed.
    auto bert = service->FindUser(kServer, "bert");
    ZR::Guid id;
    EXPECT_TRUE(ZR::Guid::Parse(ZR::UniString(bert->id), &id)) << bert->id;
    EXPECT_EQ(bert->color, "#808080ff");

    EXPECT_EQ(service->GetSessionComputer(kServer, "ses-1"), "PC-1");
    EXPECT_EQ(service->GetSessionAttribute(kServer, "ses-1", "VisitCount"),
              (std::vector<unsigned char>{1, 2}));
    EXPECT_EQ(service->GetPermissions(kServer, "/Projects/House", "anna"),
              (std::vector<std::string>{"ReadProject", "WriteProject"}));

    auto client = KRCB::Management::ResourceManagerClientFactory::Create(kServer, "anna", "rt-anna",
                                                                         false, false);
    EXPECT_EQ(client->GetProjectState("prj-house"), 2);
    EXPECT_EQ(client->GetResourceById("prj-house")->GetModelServerPath(), "/ms/one");
    auto project = client->GetProjectClient("prj-house");
    ZR::Array<Kerrow::Server::Project::Messages::SessionInfo> sessions;
    project->GetSessions(1, true, sessions);
    ASSERT_EQ(sessions.GetSize(), 1u);
    // Bert was member 7; anna's session made her the next one.
    EXPECT_EQ(sessions[0].GetUserShortId(), 8);
    EXPECT_THROW(KRCB::Management::ResourceManagerClientFactory::Create("https://down.test", "a",
                                                                        "b", false, false),
                 Kerrow::PortalServer::Client::ConnectionFailedException);
    service->Uninstall();
}

TEST(EmulatorScenario, RefusalsAreOneLineNamingThePlace) {
    struct Row {
        const char* text;
        const char* message;
    };
    const Row rows[] = {
        {R"({"servers": [{"url": "u", "projects": [{"path": "/a"}, {"path": "/b", "colour": 1}]}]})",
         "servers[0].projects[1].colour: unknown key"},
        {R"({"server": []})", "server: unknown key"},
        {R"([])", "scenario: expected an object"},
        {R"({"servers": [{"friendlyName": "x"}]})", "servers[0]: missing key \"url\""},
        {R"({"servers": [{"url": 5}]})", "servers[0].url: expected a text"},
        {R"({"servers": {}})", "servers: expected an array"},
        {R"({"servers": [{"url": "u", "version": [1]}]})",
         "servers[0].version: expected [major, minor]"},
        {R"({"servers": [{"url": "u", "url": "v"}]})", "servers[0].url: given twice"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a"}],
             "projects": [{"path": "/p", "permissions": {"a": ["ReadProject", "Fly"]}}]}]})",
         "servers[0].projects[0].permissions.a[1]: unknown permission \"Fly\""},
        {R"({"servers": [{"url": "u", "projects": [{"path": "/p", "permissions": {"x": []}}]}]})",
         "servers[0].projects[0]: no user x"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a"}],
             "projects": [{"path": "/p", "members": [{"user": "a", "userId": 0}]}]}]})",
         "servers[0].projects[0].members[0].userId: expected 1 to 32767"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a", "picture": {"type": "image/png",
             "data": "not base64"}}]}]})",
         "servers[0].users[0].picture.data: expected base64 text"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a"}, {"login": "A"}]}]})",
         "servers[0].users[1]: user A exists"},
        {R"({"servers": [{"url": "u", "users": [{"login": "a"}], "projects": [{"path": "/p",
             "sessions": [{"user": "a", "computer": "x", "attributes": {"ComputerName": ""}}]}]}]})",
         "servers[0].projects[0].sessions[0].computer: given twice"},
        {"{\"servers\": [\n  {\"url\": \"u\",, }\n]}",
         "line 2, column 15: syntax error while parsing object key: unexpected ','; expected "
         "string literal"},
        {"{\"servers\": [", "line 1, column 14: syntax error"},
    };
    for (const Row& row : rows) {
        try {
            Emulator::Service::FromScenarioText(row.text);
            ADD_FAILURE() << "accepted: " << row.text;
        } catch (const Emulator::ScenarioError& e) {
            std::string message = e.what();
            EXPECT_EQ(message.rfind(row.message, 0), 0u) << message;
            EXPECT_EQ(message.find('\n'), std::string::npos) << message;
        }
    }
}

TEST(EmulatorScenario, ASyntaxErrorGivesLineAndColumnAndNotTheTextAround) {
    const std::string text =
        "{\"servers\": [{\"url\": \"u\",\n  \"users\": [{\"login\": \"a\", "
        "\"refreshToken\": \"rt-secret\" oops}]}]}";
    try {
        Emulator::Service::FromScenarioText(text);
        FAIL() << "accepted";
    } catch (const Emulator::ScenarioError& e) {
        EXPECT_EQ(e.GetLine(), 2);
        EXPECT_EQ(e.GetColumn(), 56);
        EXPECT_EQ(std::string(e.what()).find("rt-secret"), std::string::npos) << e.what();
    }
}

TEST(EmulatorScenario, StateWrittenBackLoadsAsTheSameState) {
    auto service = Emulator::Service::FromScenarioText(kScenario, 3);
    service->Install();
    // A session made by a client comes back with its computer.
    auto client = KRCB::Management::ResourceManagerClientFactory::Create(kServer, "bert", "rt-bert",
                                                                         false, false);
    Kerrow::Server::Project::Messages::SessionInfo info;
    auto project = client->GetProjectClient("prj-house");
    project->CreateSession(1, info);
    const char name[] = "PC-\xc3\x9f";
    project->SetSessionAttribute(
        info.GetSessionId(), "ComputerName",
        Kerrow::Commons::DataBuffer<unsigned char>(reinterpret_cast<const unsigned char*>(name),
                                                   sizeof name - 1));
    service->Uninstall();
    // A name that isn't UTF-8 is kept as bytes.
    Emulator::UserSpec carl;
    carl.login = "carl";
    service->AddUser(kServer, carl);
    service->AddSession(kServer, "/Projects/House",
                        {"ses-raw", "carl", {{"ComputerName", {0xff, 0xfe}}}});

    std::string text = service->ToScenarioText();
    EXPECT_NE(text.find("\"computer\": \"PC-\xc3\x9f\""), std::string::npos) << text;
    EXPECT_NE(text.find("\"ComputerName\": \"//4=\""), std::string::npos) << text;
    auto again = Emulator::Service::FromScenarioText(text, 99);
    EXPECT_EQ(again->ToScenarioText(), text);

    // The text for people leaves the secrets out, and only them.
    std::string shown = service->ToDisplayText();
    for (const char* secret : {"pw-anna", "rt-anna", "rt-bert", "password", "refreshToken"})
        EXPECT_EQ(shown.find(secret), std::string::npos) << secret;
    EXPECT_NE(shown.find("\"computer\": \"PC-1\""), std::string::npos);
    EXPECT_EQ(again->GetSessionComputer(kServer, info.GetSessionId().Std()), "PC-\xc3\x9f");
}

TEST(EmulatorScenario, FilesAreWrittenWholeAndPrivate) {
    TempFolder temp;
    auto service = Emulator::Service::FromScenarioText(kScenario);
    std::string path = temp.Sub("scenario.json");
    WriteFile(path, "old");
    service->SaveScenarioFile(path);
    EXPECT_EQ(ReadFile(path), service->ToScenarioText());
    EXPECT_EQ(ModeOf(path), 0600u);
    EXPECT_EQ(Listing(temp.Path()), std::vector<std::string>{"scenario.json"});
    EXPECT_EQ(Emulator::Service::FromScenarioFile(path)->ToScenarioText(), ReadFile(path));

    WriteFile(path, "{\"servers\": 1}");
    try {
        Emulator::Service::FromScenarioFile(path);
        FAIL() << "accepted";
    } catch (const Emulator::ScenarioError& e) {
        EXPECT_EQ(std::string(e.what()), path + ": servers: expected an array");
    }
    try {
        Emulator::Service::FromScenarioFile(temp.Sub("none.json"));
        FAIL() << "accepted";
    } catch (const Emulator::ScenarioError& e) {
        EXPECT_EQ(std::string(e.what()), temp.Sub("none.json") + ": can't be read: no such file");
    }
    EXPECT_THROW(service->SaveScenarioFile(temp.Sub("no/such/folder.json")), std::runtime_error);
}

}  // namespace
