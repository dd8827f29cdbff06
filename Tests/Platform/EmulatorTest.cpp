// The emulator: scenario files (what they load, how they refuse, the state
// written back), its scripting (faults and the exception each kind gives,
// counts, the seed, the checks of what a test adds), and its own threads
// (pushes reach signal clients on them, filtered by the observer, while
// clients come and go; a call held at a gate waits while others are served).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/Clients.h"
#include "KRCB/SignalClient.h"
#include "KRCB/TransportNames.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"
#include "Support/TempFolder.h"
#include "ZR/Guid.h"

namespace {

using namespace krtest;
using Emulator::FaultKind;
namespace PS = Kerrow::PortalServer::Client;

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

TEST(EmulatorScenario, ALoadedScenarioServesItsStateAndWritesBackWhatClientsChanged) {
    auto service = Emulator::Service::FromScenarioText(kScenario, 3);
    service->Install();
    // What the scenario leaves out is made from the seed.
    auto bert = service->FindUser(kServer, "BERT");
    ASSERT_TRUE(bert);
    ZR::Guid id;
    EXPECT_TRUE(ZR::Guid::Parse(ZR::UniString(bert->id), &id)) << bert->id;
    EXPECT_EQ(bert->color, "#808080ff");
    EXPECT_EQ(service->GetSessionAttribute(kServer, "ses-1", "VisitCount"),
              (std::vector<unsigned char>{1, 2}));

    auto client = LogInTo(kServer, "bert", "rt-bert");
    EXPECT_EQ(client->GetProjectState("prj-house"), 2);
    EXPECT_EQ(client->GetResourceById("prj-house")->GetModelServerPath(), "/ms/one");
    EXPECT_THROW(LogInTo("https://down.test"),
                 Kerrow::PortalServer::Client::ConnectionFailedException);
    // Bert was member 7 and keeps it; the computer name a client sets is written back.
    Kerrow::Server::Project::Messages::SessionInfo info;
    auto project = client->GetProjectClient("prj-house");
    project->CreateSession(1, info);
    EXPECT_EQ(info.GetUserShortId(), 7);
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
    EXPECT_EQ(Emulator::Service::FromScenarioText(text, 99)->ToScenarioText(), text);

    // The text for people leaves the secrets out, and only them.
    std::string shown = service->ToDisplayText();
    for (const char* secret : {"pw-anna", "rt-anna", "rt-bert", "password", "refreshToken"})
        EXPECT_EQ(shown.find(secret), std::string::npos) << secret;
    EXPECT_NE(shown.find("\"computer\": \"PC-1\""), std::string::npos);
}

// What a person may see of a refusal: one line, bounded, no control
// character, and never the value refused (the rows spell theirs "SECRET").
void ExpectCleanLine(const std::string& message) {
    EXPECT_LT(message.size(), 600u) << message.substr(0, 600);
    EXPECT_EQ(message.find("SECRET"), std::string::npos) << message.substr(0, 600);
    for (unsigned char c : message) ASSERT_TRUE(c >= 0x20 && c != 0x7f) << message.substr(0, 600);
}

std::string Server(const std::string& members) {
    return R"({"servers": [{"url": "u", )" + members + "}]}";
}

TEST(EmulatorScenario, RefusalsAreOneCleanLineNamingThePlaceAndWhatIsAllowed) {
    struct Row {
        std::string text;
        std::string message;  // the start of it
    };
    const std::string int32 = "expected an integer from -2147483648 to 2147483647";
    const std::string project = R"("users": [{"login": "a"}], "projects": [{"path": "/p", )";
    const std::string deep = R"({"servers": )" + std::string(100000, '[');
    std::string deepPath = "servers";
    for (int i = 0; i < 63; ++i) deepPath += "[0]";
    const std::string longKey(1 << 20, 'k');
    std::string manyZeros;
    for (int i = 0; i < 2'000'000; ++i) manyZeros += ",0";
    const std::string mail = R"("users": [{"login": "anna", "id": "u-a"}], "mailboxes": [)";
    const std::string inbox = mail + R"({"user": "anna", "box": "Inbox", )";
    const Row rows[] = {
        {Server(R"("projects": [{"path": "/a"}, {"path": "/b", "colour": 1}])"),
         "servers[0].projects[1].colour: unknown key"},
        {R"([])", "scenario: expected an object"},
        {R"({"servers": [{"friendlyName": "x"}]})", "servers[0]: missing key \"url\""},
        {R"({"servers": [{"url": 5}]})", "servers[0].url: expected a text"},
        {Server(R"("version": [1])"), "servers[0].version: expected [major, minor]"},
        {Server(R"("url": "v")"), "servers[0].url: given twice"},
        {Server(project + R"("permissions": {"a": ["ReadProject", "Fly"]}}])"),
         "servers[0].projects[0].permissions.a[1]: unknown permission \"Fly\""},
        {Server(R"("projects": [{"path": "/p", "permissions": {"x": []}}])"),
         "servers[0].projects[0]: no user x"},
        {Server(R"("users": [{"login": "a", "picture": {"type": "image/png", "data": "SECRET"}}])"),
         "servers[0].users[0].picture.data: expected base64 text"},
        {Server(R"("users": [{"login": "a"}, {"login": "A"}])"),
         "servers[0].users[1]: user A exists"},
        {Server(R"("folders": ["/F", {"path": "/f"}])"), "servers[0].folders[1]: folder /f exists"},
        {Server(R"("folders": [{"path": "/F", "defaultModelServer": "m"}])"),
         "servers[0].folders[0]: no model server m"},
        {Server(project + R"("sessions": [{"user": "a", "computer": "x",
             "attributes": {"ComputerName": ""}}]}])"),
         "servers[0].projects[0].sessions[0].computer: given twice"},
        {"{\"servers\": [\n  {\"url\": \"SECRET\",, }\n]}",
         "line 2, column 20: syntax error while parsing object key: unexpected ','; expected "
         "string literal"},
        // Numbers as the parser stores them: beyond every type, unsigned past
        // every signed value, floats, negatives and texts where a count goes.
        {Server(R"("version": [1e400, 0])"),
         "servers[0].version[0]: a number beyond any type; expected an integer from 0 to 65535"},
        {Server(project + R"("state": 18446744073709551615}])"),
         "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": 2147483648}])"), "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": 2.0}])"), "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": "SECRET"}])"), "servers[0].projects[0].state: " + int32},
        {Server(R"("down": "SECRET")"), "servers[0].down: expected true or false"},
        {deep, deepPath + ": nested deeper than 64 levels"},
        {Server(R"("folders": [0)" + manyZeros + "]"),
         "servers[0].folders[1999992]: more than 2000000 values and keys in all"},
        // Names from the file are escaped and cut wherever they show.
        {Server(R"("a\nb\u001b[2J\u0085": 1)"), R"(servers[0].a\nb\x1b[2J\u0085: unknown key)"},
        {Server("\"" + longKey + "\": 1"),
         "servers[0]." + std::string(40, 'k') + "...(4096 bytes): a key longer than 4096 bytes"},
        {Server("\"" + longKey.substr(0, 4096) + "\": 1"),
         "servers[0]." + std::string(40, 'k') + "...(4096 bytes): unknown key"},
        // Mailboxes and their mails.
        {Server(mail + R"({"user": "carl", "box": "Inbox"}])"),
         "servers[0].mailboxes[0].user: no such user"},
        {Server(mail + R"({"user": "anna", "box": "Trash"}])"),
         "servers[0].mailboxes[0].box: expected Inbox"},
        {Server(mail + R"({"mailbox": "u-a/Inbox", "user": "anna"}])"),
         "servers[0].mailboxes[0]: either"},
        {Server(mail + R"({"mailbox": "%zz/Inbox"}])"),
         "servers[0].mailboxes[0].mailbox: expected a mailbox id"},
        {Server(mail + R"({"user": "anna", "box": "Inbox"}, {"mailbox": "u-a/Inbox"}])"),
         "servers[0].mailboxes[1]: a mailbox given twice"},
        {Server(inbox + R"("mails": [{"id": "m"}, {"id": "m"}]}])"),
         "servers[0].mailboxes[0].mails[1]: a mail id given twice"},
        {Server(inbox + R"("mails": [{"id": "m", "parts": [{"name": "a"}, {"name": "a"}]}]}])"),
         "servers[0].mailboxes[0].mails[0].parts[1].name: a part name given twice"},
    };
    for (const Row& row : rows) {
        try {
            Emulator::Service::FromScenarioText(row.text);
            ADD_FAILURE() << "accepted: " << row.text.substr(0, 200);
        } catch (const Emulator::ScenarioError& e) {
            std::string message = e.what();
            EXPECT_EQ(message.rfind(row.message, 0), 0u) << message.substr(0, 600);
            ExpectCleanLine(message);
        }
    }
}

// Every key of the file, in the order the writer puts them: read and written
// back, it is the same document, whatever the seed of the second read.
TEST(EmulatorScenario, EveryKeyRoundTrips) {
    const std::string full =
        R"({"servers": [{"url": "u", "friendlyName": "F", "version": [3, 65535],
      "down": true, "answeredUrl": "https://other", "ssl": false, "sslVerifyResult": -2147483648,
      "users": [{"login": "a", "password": "p", "fullName": "A B", "id": "i", "refreshToken": "t",
                 "color": "#0000ffff", "guid": "g", "picture": {"type": "image/png", "data": "AQI="},
                 "companyMember": false}],
      "modelServers": [{"id": "m", "path": "/ms", "version": [2, 7], "visible": false}],
      "folders": ["/F", {"path": "/F/G", "id": "f1", "defaultModelServer": "m", "locked": true,
                         "permissions": {"a": ["LibraryView"]}}],
      "rootFolder": {"locked": true, "permissions": {"a": ["LibraryRead"]}},
      "libraries": [{"path": "/L/Bolts", "id": "l1", "permissions": {"a": ["LibraryModify"]}}],
      "projects": [{"path": "/p", "id": "pi", "modelServer": "m", "state": 2147483647,
                    "permissions": {"a": ["ReadProject", "WriteProject"]},
                    "members": [{"user": "a", "userId": 32767}],
                    "sessions": [{"user": "a", "id": "s", "computer": "PC", "attributes": {"X": "AQ=="}}]}],
      "stateLogins": [{"key": "k", "state": "st", "user": "a"}],
      "mailboxes": [{"user": "a", "box": "Sent", "revision": 9, "mails": []},
        {"mailbox": "x%2Fy/Inbox", "revision": 1, "mails": [{"id": "m",
          "from": [{"mailbox": "i/Sent", "name": "Anna"}], "to": [{"mailbox": "u-b/Inbox", "name": ""}],
          "sent": -5, "importance": 0, "read": true, "completed": true,
          "headers": {"ThreadId": "t", "X": ""},
          "parts": [{"name": "T", "contentType": "text/plain", "text": "Hi"},
                    {"name": "B", "headers": {"S": "2"}, "data": "AQI="}, {"name": "E"}]}]}]}]})";
    using Json = nlohmann::ordered_json;
    const std::string written = Emulator::Service::FromScenarioText(full)->ToScenarioText();
    EXPECT_EQ(Json::parse(written), Json::parse(full));
    EXPECT_EQ(Emulator::Service::FromScenarioText(written, 7)->ToScenarioText(), written);

    // What is written in a form of its own.
    const std::string users = R"("users": [{"login": "a", "color": "#0000FF"}])";
    const std::tuple<std::string, const char*, const char*> rows[] = {
        {users + R"(, "folders": [{"path": "/F/G"}])", "/servers/0/folders", R"(["/F/G"])"},
        {users, "/servers/0/users/0/color", R"("#0000ffff")"},
        {users + R"(, "mailboxes": [{"user": "a", "box": "Inbox", "mails": [{"id": "m"}]}])",
         "/servers/0/mailboxes/0",
         R"({"user": "a", "box": "Inbox", "revision": 1, "mails": [{"id": "m"}]})"},
        {users + R"(, "projects": [{"path": "/p", "id": "pi"}])", "/servers/0/projects/0",
         R"({"path": "/p", "id": "pi", "state": 0, "permissions": {}, "members": [], "sessions": []})"},
    };
    for (const auto& [members, pointer, value] : rows) {
        std::string text = Server(members);
        Json document = Json::parse(Emulator::Service::FromScenarioText(text)->ToScenarioText());
        EXPECT_EQ(document.at(Json::json_pointer(pointer)), Json::parse(value)) << text;
    }
}

// A loaded box serves its mails at its revision; the changes before it are
// not known, so a fetch from below gets the whole box.
TEST(EmulatorScenario, ALoadedMailboxStandsAtItsRevisionAndChangesFromThere) {
    auto service = Emulator::Service::FromScenarioText(Server(
        R"("users": [{"login": "bert", "id": "u-b"}], "mailboxes": [{"user": "bert", "box": "Inbox",
           "revision": 7, "mails": [{"id": "m1", "read": true}, {"id": "m2"}]}])"));
    const std::string inbox = service->GetMailboxId("u", "bert", "Inbox");
    EXPECT_EQ(service->GetMailboxRevision("u", inbox), 7u);
    ASSERT_EQ(service->GetMails("u", inbox).size(), 2u);
    EXPECT_TRUE(service->GetMails("u", inbox)[0].IsRead());
    service->ScriptMailGap("u", inbox);
    EXPECT_EQ(service->GetMailboxRevision("u", inbox), 8u);
    EXPECT_EQ(service->GetMailboxRevision("u", "u-a/Inbox"), 0u);
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

    // Refused at once, without a read that could block or never end.
    const std::string fifo = temp.Sub("fifo.json"), big = temp.Sub("big.json");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    WriteFile(big, "");
    ASSERT_EQ(truncate(big.c_str(), (64 << 20) + 1), 0);
    WriteFile(path, "{\"servers\": 1}");
    const std::pair<std::string, std::string> rows[] = {
        {path, ": servers: expected an array"},
        {temp.Sub("none.json"), ": can't be read: no such file"},
        {temp.Path(), ": can't be read: a folder"},
        {fifo, ": can't be read: not a regular file"},
        {big, ": can't be read: larger than 64 MiB"},
    };
    for (const auto& [file, message] : rows) {
        try {
            Emulator::Service::FromScenarioFile(file);
            ADD_FAILURE() << "accepted " << file;
        } catch (const Emulator::ScenarioError& e) {
            EXPECT_EQ(std::string(e.what()), file + message);
        }
    }
    EXPECT_THROW(Emulator::Service::FromScenarioText(std::string((64 << 20) + 1, ' ')),
                 Emulator::ScenarioError);
    EXPECT_THROW(service->SaveScenarioFile(temp.Sub("no/such/folder.json")), std::runtime_error);
}

Emulator::UserSpec User(const std::string& login, const std::string& color = "#808080ff") {
    Emulator::UserSpec user;
    user.login = login;
    user.color = color;
    return user;
}

Emulator::SessionSpec Session(const std::string& user, const std::string& id = "") {
    return {id, user, {}};
}

// The class of what the call threw.
std::string Caught(const std::function<void()>& call) {
    try {
        call();
        return "nothing";
    } catch (const ZR::ZRException& e) {
        return e.GetName().Std();
    } catch (const std::exception& e) {
        return std::string("foreign ") + e.what();
    }
}

TEST(EmulatorFaults, EachKindThrowsItsException) {
    const std::pair<FaultKind, const char*> rows[] = {
        {FaultKind::SessionRequired, "SessionRequiredException"},
        {FaultKind::CreateSessionFailed, "CreateSessionFailedException"},
        {FaultKind::EntityNotFound, "EntityNotFoundException"},
        {FaultKind::PortalServerClient, "PortalServerClientException"},
        {FaultKind::ConnectionFailed, "ConnectionFailedException"},
        {FaultKind::IncompatibleModelServerVersion, "IncompatibleModelServerVersionException"},
        {FaultKind::IncompatibleProjectVersion, "IncompatibleProjectVersionException"},
        {FaultKind::SessionExists, "ProjectManagerClientSessionExistsException"},
        {FaultKind::ZRException, "ZRException"},
        {FaultKind::Foreign, "foreign scripted"},
    };
    EmulatedService service;
    auto client = LogInTo();
    for (const auto& [kind, expected] : rows) {
        service->FailNext(Emulator::Op::kGetProjectState, {kind, "scripted", 2, 7, 1, 0});
        EXPECT_EQ(Caught([&] { client->GetProjectState(kProjectId); }), expected);
        EXPECT_EQ(Caught([&] { client->GetProjectState(kProjectId); }), "nothing");
    }
}

TEST(EmulatorFaults, NthAlwaysAndClearCountFailedCallsToo) {
    EmulatedService service;
    auto client = LogInTo();
    service->ResetCounts();
    service->FailNth(Emulator::Op::kGetProjectState, 3, {FaultKind::EntityNotFound});
    service->FailNext(Emulator::Op::kGetProjectState, {FaultKind::ZRException, "first"});
    auto states = [&] { return Caught([&] { client->GetProjectState(kProjectId); }); };
    auto userId = [&] { return Caught([&] { client->GetCurrentUserId(); }); };
    for (const char* expected : {"ZRException", "nothing", "EntityNotFoundException", "nothing"})
        EXPECT_EQ(states(), expected);
    // Faults are by operation: another one goes through.
    service->FailAlways(Emulator::Op::kGetCurrentUserId, {FaultKind::PortalServerClient});
    EXPECT_EQ(Caught([&] { client->GetProjectIdByPath(kProjectPath); }), "nothing");
    EXPECT_EQ(userId(), "PortalServerClientException");
    EXPECT_EQ(userId(), "PortalServerClientException");
    service->ClearFaults();
    EXPECT_EQ(userId(), "nothing");
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetProjectState), 4);
    EXPECT_EQ(service->ServerCallCount(), 8);
    EXPECT_THROW(service->FailNth(Emulator::Op::kLogin, 0, {}), std::invalid_argument);
}

TEST(EmulatorFaults, AnIncompatibleModelServerRefusesTheProjectClient) {
    EmulatedService service;
    service->AddModelServer(kServer, {"ms-2", "/ms/two", 2, 4});
    std::string id = service->AddProject(kServer, ProjectAt("/Projects/Barn", "ms-2"));
    EXPECT_EQ(Caught([&] { LogInTo()->GetProjectClient(ZR::UniString(id)); }),
              "IncompatibleModelServerVersionException");
}

TEST(EmulatorState, IdsAndTimesFollowTheSeed) {
    auto ids = [](std::uint64_t seed) {
        auto service = MakeStandardService(seed);
        std::vector<std::string> out;
        out.push_back(service->AddUser(kServer, User("carl")));
        out.push_back(service->FindUser(kServer, "carl")->refreshToken);
        out.push_back(service->FindUser(kServer, "carl")->guid);
        out.push_back(service->AddProject(kServer, ProjectAt("/Projects/Barn")));
        out.push_back(service->AddSession(kServer, "/Projects/Barn", Session("carl")));
        service->Install();
        KRCB::SignalClient signals(kServer, "carl", ZR::UniString(out[1]));
        signals.SendSignal(1, "");
        out.push_back(std::to_string(service->GetSignals().at(0).time));
        out.push_back(signals.GetClientId().Std());
        service->Uninstall();
        return out;
    };
    EXPECT_EQ(ids(7), ids(7));
    std::vector<std::string> a = ids(7), b = ids(8);
    for (std::size_t i = 0; i < a.size(); ++i) EXPECT_NE(a[i], b[i]) << i;
}

TEST(EmulatorState, AdditionsThatDoNotFitAreRefused) {
    auto service = MakeStandardService();
    auto refused = [&](const std::function<void()>& add, const std::string& part) {
        try {
            add();
            ADD_FAILURE() << "accepted, expected a refusal saying " << part;
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(part), std::string::npos) << e.what();
        }
    };
    refused([&] { service->AddServer({kServer, "Again"}); }, "exists");
    refused([&] { service->AddUser("https://none.test", User("x")); }, "no server");
    refused([&] { service->AddUser(kServer, User("dora", "red")); }, "colour");
    refused([&] { service->AddProject(kServer, ProjectAt("/projects/house")); }, "stands");
    refused([&] { service->AddProject(kServer, ProjectAt("Barn")); }, "path");
    Emulator::ProjectSpec barn = ProjectAt("/Projects/Barn");
    barn.sessions = {Session("anna"), Session("Anna")};
    refused([&] { service->AddProject(kServer, barn); }, "has a session");
    // A refused project leaves nothing behind.
    EXPECT_EQ(service->GetProjectId(kServer, "/Projects/Barn"), "");
    Emulator::ProjectSpec members = ProjectAt("/Projects/Barn");
    members.members = {{"anna", 5}, {"bert", 5}};
    refused([&] { service->AddProject(kServer, members); }, "taken");
    refused([&] { service->SetOnline(kServer, "nobody", false); }, "no user");

    // Members from the scenario keep their ids; sessions add the rest.
    members.members = {{"bert", 5}};
    members.sessions = {Session("anna")};
    service->AddProject(kServer, members);
    EXPECT_EQ(service->GetSessions(kServer, "/Projects/Barn").at(0).user, "anna");
}

// Removals move entries in the tables; renames and replacements change keys.
// Every look-up must follow, by any spelling of a name.
TEST(EmulatorState, LookUpsFollowEveryChangeOfTheTables) {
    EmulatedService service;
    auto client = LogInTo();
    std::vector<std::string> ids, sessions;
    for (const char* path : {"/P/A", "/P/B", "/P/C"}) {
        ids.push_back(service->AddProject(kServer, ProjectAt(path)));
        sessions.push_back(service->AddSession(kServer, path, Session("bert")));
    }
    service->DeleteProject(kServer, "/p/b");
    EXPECT_EQ(client->GetProjectIdByPath("/p/c"), ZR::UniString(ids[2]));
    EXPECT_EQ(client->GetProjectState(ZR::UniString(ids[2])), 0);
    EXPECT_EQ(Caught([&] { client->GetProjectState(ZR::UniString(ids[1])); }),
              "EntityNotFoundException");
    EXPECT_THROW(service->DeleteSession(kServer, sessions[1]), std::invalid_argument);

    service->MoveProject(kServer, "/P/A", "/Q/Ä");
    EXPECT_THROW(client->GetProjectIdByPath("/P/A"), PS::EntityNotFoundException);
    EXPECT_EQ(client->GetProjectIdByPath("/Q/ä"), ZR::UniString(ids[0]));
    service->AddProject(kServer, ProjectAt("/p/A"));
    std::string replaced = service->ReplaceProject(kServer, "/P/C");
    EXPECT_EQ(Caught([&] { client->GetProjectState(ZR::UniString(ids[2])); }),
              "EntityNotFoundException");
    EXPECT_EQ(client->GetProjectIdByPath("/P/C"), ZR::UniString(replaced));
    EXPECT_THROW(service->GetSessionComputer(kServer, sessions[2]), std::invalid_argument);
    // The replaced project's session id is free again, its user may start one.
    EXPECT_EQ(service->AddSession(kServer, "/p/c", Session("BERT", sessions[2])), sessions[2]);

    // Members: the next short id is one above the highest standing.
    service->AddMember(kServer, kProjectPath, {"anna", 3});
    service->AddMember(kServer, kProjectPath, {"bert", 0});
    service->AddMember(kServer, kProjectPath, {"ANNA", 0});
    service->RemoveMember(kServer, kProjectPath, "Bert");
    service->SetMemberUser(kServer, kProjectPath, 3, "bert");
    service->AddMember(kServer, kProjectPath, {"anna", 0});
    std::vector<std::pair<std::string, int>> members;
    for (const Emulator::MemberSpec& m : service->GetMembers(kServer, kProjectPath))
        members.emplace_back(m.user, m.userId);
    EXPECT_EQ(members, (std::vector<std::pair<std::string, int>>{{"bert", 3}, {"anna", 4}}));
    EXPECT_THROW(service->AddMember(kServer, kProjectPath, {"carl", 0}), std::invalid_argument);

    // Users and servers by other spellings.
    service->AddUser(kServer, User("Ärger"));
    EXPECT_TRUE(service->FindUser("HTTPS://Portal.Test:443/", "äRGER"));
    EXPECT_FALSE(service->FindUser("http://portal.test", "anna"));
}

// docs/EMULATOR.md names exactly the operations and fault kinds of the list.
TEST(EmulatorDocs, NameTheOperationsAndFaultKindsOfTheList) {
    std::ifstream file(KRC_DOCS_DIR "/EMULATOR.md");
    ASSERT_TRUE(file) << KRC_DOCS_DIR;
    // The first cell of each table row of a section, when it is one `name`.
    std::multiset<std::string> documented[2];
    int section = -1;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("## ", 0) == 0)
            section = line == "## Operations" ? 0 : line == "## Faults" ? 1 : -1;
        if (section < 0 || line.rfind("| `", 0) != 0) continue;
        std::size_t end = line.find('`', 3);
        if (end != std::string::npos && line.find('|', end) == end + 2)
            documented[section].insert(line.substr(3, end - 3));
    }
    std::multiset<std::string> listed[2];
    for (const auto& op : KRCB::Internal::kOperations) listed[0].emplace(op.name);
    for (std::string_view kind : KRCB::Internal::kFaultKindNames) listed[1].emplace(kind);
    EXPECT_EQ(documented[0], listed[0]);
    EXPECT_EQ(documented[1], listed[1]);
}

constexpr int kWaitMs = 10000;

class Listener : public KRCB::SignalObserver, public KRCB::PresenceObserver {
public:
    ~Listener() override {
        KRCB::SignalObserver::DetachFromSources();
        KRCB::PresenceObserver::DetachFromSources();
    }
    bool CheckSignalType(const KRCB::SignalId& id) const override { return id == 1 || id == 7; }
    void SignalReceived(KRCB::SignalClient*, const KRCB::Signal& signal) override {
        std::lock_guard<std::mutex> lock(mutex);
        if (std::this_thread::get_id() == testThread) onTestThread = true;
        signals.push_back(std::to_string(signal.GetId()) + " " + signal.GetText().Std() + " " +
                          signal.GetSender().Std());
    }
    void PresenceStateChanged(const KRCB::PresenceState& state) override { presence = state; }
    void OnlineUserListChanged() override { ++onlineChanges; }

    std::vector<std::string> Signals() {
        std::lock_guard<std::mutex> lock(mutex);
        return signals;
    }

    std::thread::id testThread = std::this_thread::get_id();
    std::mutex mutex;
    std::vector<std::string> signals;
    bool onTestThread = false;
    std::atomic<int> presence{0};
    std::atomic<int> onlineChanges{0};
};

TEST(EmulatorPushThreadTest, SignalsPresenceAndTheOnlineListReachObserversOnTheirThread) {
    EmulatedService service;
    KRCB::SignalClient anna(kServer, "anna", "rt-anna");
    KRCB::SignalClient bert(kServer, "bert", "rt-bert");
    anna.JoinProject(kProjectId);
    bert.JoinProject(kProjectId);
    Listener annaHears, bertHears;
    anna.Attach(static_cast<KRCB::SignalObserver&>(annaHears));
    bert.Attach(static_cast<KRCB::SignalObserver&>(bertHears));
    bert.Attach(static_cast<KRCB::PresenceObserver&>(bertHears));

    // The sender doesn't hear itself; ids the observer doesn't want never reach it.
    anna.SendInternalSignal(1, "one");
    anna.SendSignal(5, "five");
    anna.SendSignal(7, "seven");
    // A member change is signal 1 from the server, with the member's login.
    service->AddMember(kServer, kProjectPath, {"bert", 0});
    service->SetMemberSignals(false);
    service->RemoveMember(kServer, kProjectPath, "bert");
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.Signals(),
              (std::vector<std::string>{"1 one anna", "7 seven anna", "1 bert "}));
    EXPECT_EQ(annaHears.Signals(), (std::vector<std::string>{"1 bert "}));
    EXPECT_FALSE(bertHears.onTestThread);

    service->SetPresenceState(kServer, "bert", 3);
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.presence, 3);

    const int before = bertHears.onlineChanges;
    {
        KRCB::SignalClient second(kServer, "anna", "rt-anna");
        ASSERT_TRUE(service->WaitForPushes(kWaitMs));
        EXPECT_EQ(bertHears.onlineChanges, before + 1);
    }
    ASSERT_TRUE(service->WaitForPushes(kWaitMs));
    EXPECT_EQ(bertHears.onlineChanges, before + 2);
}

// Clients and observers come and go while pushes are delivered.
TEST(EmulatorPushThreadTest, ClientsAndObserversMayGoWhilePushesArrive) {
    EmulatedService service;
    KRCB::SignalClient anna(kServer, "anna", "rt-anna");
    anna.JoinProject(kProjectId);
    std::thread sender([&] {
        for (int i = 0; i < 200; ++i) service->SendSignal(kServer, kProjectPath, 1, "x");
    });
    for (int i = 0; i < 20; ++i) {
        auto bert = std::make_unique<KRCB::SignalClient>(kServer, "bert", "rt-bert");
        bert->JoinProject(kProjectId);
        auto listener = std::make_unique<Listener>();
        bert->Attach(static_cast<KRCB::SignalObserver&>(*listener));
        if (i % 2) listener.reset();  // the observer first, or the client first
        bert.reset();
    }
    sender.join();
    EXPECT_TRUE(service->WaitForPushes(kWaitMs));
}

TEST(EmulatorGateThreadTest, ABlockedCallWaitsUntilReleased) {
    EmulatedService service;
    auto client = LogInTo();
    auto gate = service->BlockNext(Emulator::Op::kGetProjectState);
    std::atomic<int> state{-1};
    std::thread caller([&] { state = client->GetProjectState(kProjectId); });

    ASSERT_TRUE(gate->WaitUntilReached(kWaitMs));
    EXPECT_EQ(service->CallCount(Emulator::Op::kGetProjectState), 1);
    // The held call keeps no lock: the test changes state and others call.
    service->SetProjectState(kServer, kProjectPath, 2);
    auto other = LogInTo(kServer, "bert", "rt-bert");
    EXPECT_EQ(other->GetProjectState(kProjectId), 2);
    EXPECT_EQ(state, -1);

    gate->Release();
    caller.join();
    EXPECT_EQ(state, 2);
    // Only the next call was held.
    EXPECT_EQ(client->GetProjectState(kProjectId), 2);
}

TEST(EmulatorGateThreadTest, AGateNobodyReachesTimesOutAndTheServiceReleasesItsGates) {
    std::thread caller;
    {
        EmulatedService service;
        auto gate = service->BlockNext(Emulator::Op::kGetCurrentUserId);
        EXPECT_FALSE(gate->WaitUntilReached(1));
        auto client = LogInTo();
        caller = std::thread([client] {
            try {
                client->GetCurrentUserId();
            } catch (const ZR::ZRException&) {
            }
        });
        ASSERT_TRUE(gate->WaitUntilReached(kWaitMs));
    }
    // The service went with the call still held: it was let go, not left hanging.
    caller.join();
}

}  // namespace
