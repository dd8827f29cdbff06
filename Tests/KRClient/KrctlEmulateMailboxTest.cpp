// krctl emulate mailbox as a user runs it: a user's boxes on the emulated
// mail server, and show listing the mailboxes.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

const char* const kScenario = R"({"servers": [
  {"url": "https://mail.example",
   "users": [{"login": "anna", "id": "u-anna"}, {"login": "bert", "id": "u-bert"}],
   "mailboxes": [
     {"user": "bert", "box": "Inbox", "revision": 7,
      "mails": [{"id": "m-1", "from": [{"mailbox": "u-anna/Sent", "name": "Anna"}],
                 "to": [{"mailbox": "u-bert/Inbox", "name": "Bert"}], "sent": 849312000,
                 "read": true, "completed": true, "headers": {"ThreadId": "t-1"}},
                {"id": "m-2", "to": [{"mailbox": "u-bert/Inbox", "name": "Bert"}]}]},
     {"user": "bert", "box": "Sent", "revision": 2}]},
  {"url": "https://other.example", "users": [{"login": "anna"}]}]})";

class KrctlEmulateMailboxTest : public krtest::KrctlRun {
protected:
    void SetUp() override { std::ofstream(Scenario()) << kScenario; }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
};

TEST_F(KrctlEmulateMailboxTest, ShowsTheBoxesOfAUser) {
    auto json = Run({"--json", "emulate", Scenario(), "mailbox", "--user", "bert"});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    Json shown = Json::parse(json.out);
    EXPECT_EQ(shown["server"], "https://mail.example");
    EXPECT_EQ(shown["boxes"]["inbox"]["revision"], 7);
    EXPECT_EQ(shown["boxes"]["inbox"]["mails"][0], Json::parse(R"({"id": "m-1", "thread": "t-1",
        "from": [{"mailbox": "u-anna/Sent", "name": "Anna"}],
        "to": [{"mailbox": "u-bert/Inbox", "name": "Bert"}],
        "sent": "2026-11-30T00:00:00Z", "read": true, "completed": true})"));
    EXPECT_EQ(shown["boxes"]["sent"], Json::parse(R"({"mailbox": "u-bert/Sent", "revision": 2,
        "mails": []})"));

    auto text = Run({"emulate", Scenario(), "mailbox", "--user", "bert", "--box", "inbox"});
    ASSERT_EQ(text.exitCode, 0) << text.err;
    EXPECT_EQ(text.out,
              "inbox u-bert/Inbox revision 7, 2 mails\n"
              "  mail m-1 thread t-1 sent 2026-11-30T00:00:00Z read,completed\n"
              "    from \"Anna\" <u-anna/Sent>\n"
              "    to \"Bert\" <u-bert/Inbox>\n"
              "  mail m-2 thread (none) sent 2000-01-01T00:00:00Z unread\n"
              "    to \"Bert\" <u-bert/Inbox>\n");

    auto show = Run({"emulate", Scenario(), "show"});
    EXPECT_NE(show.out.find("  mailbox bert Inbox revision 7, 2 mails\n"
                            "  mailbox bert Sent revision 2, 0 mails\n"),
              std::string::npos)
        << show.out;
}

TEST_F(KrctlEmulateMailboxTest, RefusesWhatItCannotShowWithOneLine) {
    const std::vector<std::string> rows[] = {
        {"--user", "carl"},                                       // no such user
        {"--user", "anna"},                                       // on two servers
        {"--user", "bert", "--server", "https://other.example"},  // not there
        {"--user", "bert", "--box", "trash"},                     // no such box
        {},                                                       // no user
    };
    for (const auto& row : rows) {
        std::vector<std::string> args{"emulate", Scenario(), "mailbox"};
        args.insert(args.end(), row.begin(), row.end());
        auto result = Run(args);
        EXPECT_NE(result.exitCode, 0) << result.out;
        EXPECT_TRUE(result.out.empty()) << result.out;
        EXPECT_EQ(result.err.find('\n'), result.err.size() - 1) << result.err;
    }
}

}  // namespace
