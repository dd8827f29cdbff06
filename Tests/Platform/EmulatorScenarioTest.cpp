// Scenario files: what they load, how they refuse, and the state written back.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

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

    auto client = KRCB::Management::ResourceManagerClientFactory::Create(kServer, "bert", "rt-bert",
                                                                         false, false);
    EXPECT_EQ(client->GetProjectState("prj-house"), 2);
    EXPECT_EQ(client->GetResourceById("prj-house")->GetModelServerPath(), "/ms/one");
    EXPECT_THROW(KRCB::Management::ResourceManagerClientFactory::Create("https://down.test", "a",
                                                                        "b", false, false),
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
        {Server(R"("version": [1, -1])"),
         "servers[0].version[1]: expected an integer from 0 to 65535"},
        {Server(project + R"("state": 18446744073709551615}])"),
         "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": 2147483648}])"), "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": 2.0}])"), "servers[0].projects[0].state: " + int32},
        {Server(project + R"("state": "SECRET"}])"), "servers[0].projects[0].state: " + int32},
        {Server(project + R"("members": [{"user": "a", "userId": 0}]}])"),
         "servers[0].projects[0].members[0].userId: expected an integer from 1 to 32767"},
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

// Each key of the file: read, written, read again to the same text.
TEST(EmulatorScenario, EveryKeyRoundTrips) {
    struct Row {
        std::string members;  // of servers[0], beside "url"
        const char* pointer;  // into the written document
        const char* value;    // what stands there, as JSON
    };
    const std::string user = R"("users": [{"login": "a"}], )";
    const std::string project = user + R"("projects": [{"path": "/p", )";
    const std::string boxes =
        R"("users": [{"login": "anna", "id": "u-a"}, {"login": "bert", "id": "u-b"}], "mailboxes": )";
    const std::string box = boxes + R"([{"user": "bert", "box": "Inbox", "mails": [{"id": "m", )";
    const Row rows[] = {
        {R"("friendlyName": "F")", "/servers/0/friendlyName", R"("F")"},
        {R"("version": [3, 65535])", "/servers/0/version", "[3, 65535]"},
        {R"("down": true)", "/servers/0/down", "true"},
        {R"("answeredUrl": "https://other")", "/servers/0/answeredUrl", R"("https://other")"},
        {R"("ssl": false)", "/servers/0/ssl", "false"},
        {R"("sslVerifyResult": -2147483648)", "/servers/0/sslVerifyResult", "-2147483648"},
        {R"("folders": ["/F", "/F/G"])", "/servers/0/folders", R"(["/F", "/F/G"])"},
        {R"("modelServers": [{"id": "m", "path": "/ms", "version": [2, 7]}])",
         "/servers/0/modelServers/0", R"({"id": "m", "path": "/ms", "version": [2, 7]})"},
        {R"("users": [{"login": "a", "password": "p", "fullName": "A B", "id": "i",
             "refreshToken": "t", "color": "#0000FF", "guid": "g", "companyMember": false,
             "picture": {"type": "image/png", "data": "AQI="}}])",
         "/servers/0/users/0",
         R"({"login": "a", "password": "p", "fullName": "A B", "id": "i", "refreshToken": "t",
             "color": "#0000ffff", "guid": "g", "picture": {"type": "image/png", "data": "AQI="},
             "companyMember": false})"},
        {R"("modelServers": [{"id": "m"}], )" + project +
             R"("id": "pi", "modelServer": "m", "state": 2147483647}])",
         "/servers/0/projects/0",
         R"({"path": "/p", "id": "pi", "modelServer": "m", "state": 2147483647,
             "permissions": {}, "members": [], "sessions": []})"},
        {project + R"("permissions": {"a": ["ReadProject", "WriteProject"]}}])",
         "/servers/0/projects/0/permissions", R"({"a": ["ReadProject", "WriteProject"]})"},
        {project + R"("members": [{"user": "a", "userId": 32767}]}])",
         "/servers/0/projects/0/members", R"([{"user": "a", "userId": 32767}])"},
        {project + R"("sessions": [{"user": "a", "id": "s", "computer": "PC",
             "attributes": {"X": "AQ=="}}]}])",
         "/servers/0/projects/0/sessions/0",
         R"({"user": "a", "id": "s", "computer": "PC", "attributes": {"X": "AQ=="}})"},
        {user + R"("stateLogins": [{"key": "k", "state": "st", "user": "a"}])",
         "/servers/0/stateLogins", R"([{"key": "k", "state": "st", "user": "a"}])"},
        {R"("modelServers": [{"id": "m", "visible": false}])", "/servers/0/modelServers/0/visible",
         "false"},
        {R"("modelServers": [{"id": "m"}], )" + user +
             R"("folders": [{"path": "/F", "id": "f1", "defaultModelServer": "m", "locked": true,
                 "permissions": {"a": ["LibraryView"]}}])",
         "/servers/0/folders/0",
         R"({"path": "/F", "id": "f1", "defaultModelServer": "m", "locked": true,
             "permissions": {"a": ["LibraryView"]}})"},
        {R"("folders": [{"path": "/F/G"}])", "/servers/0/folders", R"(["/F/G"])"},
        {user + R"("rootFolder": {"locked": true, "permissions": {"a": ["LibraryRead"]}})",
         "/servers/0/rootFolder", R"({"locked": true, "permissions": {"a": ["LibraryRead"]}})"},
        {user + R"("libraries": [{"path": "/L/Bolts", "id": "l1",
             "permissions": {"a": ["LibraryModify"]}}])",
         "/servers/0/libraries/0",
         R"({"path": "/L/Bolts", "id": "l1", "permissions": {"a": ["LibraryModify"]}})"},
        {boxes + R"([{"user": "anna", "box": "Sent", "revision": 9}])", "/servers/0/mailboxes/0",
         R"({"user": "anna", "box": "Sent", "revision": 9, "mails": []})"},
        {boxes + R"([{"mailbox": "x%2Fy/Inbox", "mails": [{"id": "m"}]}])",
         "/servers/0/mailboxes/0",
         R"({"mailbox": "x%2Fy/Inbox", "revision": 1, "mails": [{"id": "m"}]})"},
        {box + R"("from": [{"mailbox": "u-a/Sent", "name": "Anna"}],
                  "to": [{"mailbox": "u-b/Inbox", "name": ""}]}]}])",
         "/servers/0/mailboxes/0/mails/0",
         R"({"id": "m", "from": [{"mailbox": "u-a/Sent", "name": "Anna"}],
             "to": [{"mailbox": "u-b/Inbox", "name": ""}]})"},
        {box + R"("sent": -5, "importance": 0, "read": true, "completed": true}]}])",
         "/servers/0/mailboxes/0/mails/0",
         R"({"id": "m", "sent": -5, "importance": 0, "read": true, "completed": true})"},
        {box + R"("headers": {"ThreadId": "t", "X": ""}}]}])",
         "/servers/0/mailboxes/0/mails/0/headers", R"({"ThreadId": "t", "X": ""})"},
        {box + R"("parts": [{"name": "T", "contentType": "text/plain", "text": "Hi"},
                            {"name": "B", "headers": {"S": "2"}, "data": "AQI="}, {"name": "E"}]}]}])",
         "/servers/0/mailboxes/0/mails/0/parts",
         R"([{"name": "T", "contentType": "text/plain", "text": "Hi"},
             {"name": "B", "headers": {"S": "2"}, "data": "AQI="}, {"name": "E"}])"},
    };
    for (const Row& row : rows) {
        std::string text = Server(row.members);
        SCOPED_TRACE(text);
        std::string written = Emulator::Service::FromScenarioText(text)->ToScenarioText();
        auto document = nlohmann::ordered_json::parse(written);
        EXPECT_EQ(document.at(nlohmann::ordered_json::json_pointer(row.pointer)),
                  nlohmann::ordered_json::parse(row.value));
        EXPECT_EQ(Emulator::Service::FromScenarioText(written, 7)->ToScenarioText(), written);
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

}  // namespace
