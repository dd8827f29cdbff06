// The mail server's boxes in scenario files: each key read, written and read
// again to the same text, the refusals, and what a loaded box serves.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Emulator/Service.h"

namespace {

const std::string kUsers =
    R"("users": [{"login": "anna", "id": "u-a"}, {"login": "bert", "id": "u-b"}])";

std::string Server(const std::string& mailboxes) {
    return R"({"servers": [{"url": "https://m.test", )" + kUsers + R"(, "mailboxes": )" +
           mailboxes + "}]}";
}

TEST(EmulatorMail, EveryMailboxKeyRoundTrips) {
    struct Row {
        std::string mailboxes;
        const char* pointer;  // into the written document
        const char* value;    // what stands there, as JSON
    };
    const std::string box = R"([{"user": "bert", "box": "Inbox", "mails": [{"id": "m", )";
    const Row rows[] = {
        {R"([{"user": "anna", "box": "Sent", "revision": 9}])", "/servers/0/mailboxes/0",
         R"({"user": "anna", "box": "Sent", "revision": 9, "mails": []})"},
        {R"([{"mailbox": "x%2Fy/Inbox", "mails": [{"id": "m"}]}])", "/servers/0/mailboxes/0",
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
        const std::string text = Server(row.mailboxes);
        SCOPED_TRACE(text);
        const std::string written = Emulator::Service::FromScenarioText(text)->ToScenarioText();
        auto document = nlohmann::ordered_json::parse(written);
        EXPECT_EQ(document.at(nlohmann::ordered_json::json_pointer(row.pointer)),
                  nlohmann::ordered_json::parse(row.value));
        EXPECT_EQ(Emulator::Service::FromScenarioText(written, 7)->ToScenarioText(), written);
    }
}

TEST(EmulatorMail, RefusalsNameThePlace) {
    const std::pair<std::string, const char*> rows[] = {
        {R"([{"user": "anna", "box": "Inbox", "colour": 1}])", "servers[0].mailboxes[0].colour"},
        {R"([{"user": "carl", "box": "Inbox"}])", "servers[0].mailboxes[0].user: no such user"},
        {R"([{"user": "anna", "box": "Trash"}])", "servers[0].mailboxes[0].box: expected Inbox"},
        {R"([{"user": "anna"}])", "servers[0].mailboxes[0]: missing key \"box\""},
        {R"([{"mailbox": "u-a/Inbox", "user": "anna"}])", "servers[0].mailboxes[0]: either"},
        {R"([{"mailbox": "%zz/Inbox"}])", "servers[0].mailboxes[0].mailbox: expected a mailbox id"},
        {R"([{"user": "anna", "box": "Inbox"}, {"mailbox": "u-a/Inbox"}])",
         "servers[0].mailboxes[1]: a mailbox given twice"},
        {R"([{"user": "anna", "box": "Inbox", "revision": -1}])",
         "servers[0].mailboxes[0].revision: expected an integer"},
        {R"([{"user": "anna", "box": "Inbox", "mails": [{"id": "m"}, {"id": "m"}]}])",
         "servers[0].mailboxes[0].mails[1]: a mail id given twice"},
        {R"([{"user": "anna", "box": "Inbox", "mails": [{"id": "m", "to": [{"mailbox": "x"}]}]}])",
         "servers[0].mailboxes[0].mails[0].to[0].mailbox: expected a mailbox id"},
        {R"([{"user": "anna", "box": "Inbox", "mails": [{"id": "m", "importance": 3}]}])",
         "servers[0].mailboxes[0].mails[0].importance: expected an integer from 0 to 2"},
        {R"([{"user": "anna", "box": "Inbox", "mails": [{"id": "m", "parts": [{"name": "a"},
             {"name": "a"}]}]}])",
         "servers[0].mailboxes[0].mails[0].parts[1].name: a part name given twice"},
    };
    for (const auto& [mailboxes, message] : rows) {
        try {
            Emulator::Service::FromScenarioText(Server(mailboxes));
            ADD_FAILURE() << "accepted " << mailboxes;
        } catch (const Emulator::ScenarioError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(message, 0), 0u) << e.what();
        }
    }
}

// A loaded box serves its mails at its revision; the changes before it are
// not known, so a fetch from below gets the whole box.
TEST(EmulatorMail, ALoadedBoxStandsAtItsRevisionAndChangesFromThere) {
    auto service = Emulator::Service::FromScenarioText(
        Server(R"([{"user": "bert", "box": "Inbox", "revision": 7,
                    "mails": [{"id": "m1", "read": true}, {"id": "m2"}]}])"));
    const std::string inbox = service->GetMailboxId("https://m.test", "bert", "Inbox");
    EXPECT_EQ(inbox, "u-b/Inbox");
    EXPECT_EQ(service->GetMailboxRevision("https://m.test", inbox), 7u);
    auto mails = service->GetMails("https://m.test", inbox);
    ASSERT_EQ(mails.size(), 2u);
    EXPECT_TRUE(mails[0].IsRead());
    EXPECT_TRUE(service->DeleteMail("https://m.test", inbox, "m1"));
    EXPECT_FALSE(service->DeleteMail("https://m.test", inbox, "m1"));
    service->ScriptMailGap("https://m.test", inbox);
    EXPECT_EQ(service->GetMailboxRevision("https://m.test", inbox), 9u);
    EXPECT_EQ(service->GetMailboxRevision("https://m.test", "u-a/Inbox"), 0u);
}

}  // namespace
