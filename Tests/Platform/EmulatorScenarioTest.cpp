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

}  // namespace
