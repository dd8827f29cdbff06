// krctl emulate mail as a support engineer runs it: two users exchange a
// mail, one reads and completes it, the other deletes hers, each step
// written back with --update and seen by the next process.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

class KrctlEmulateMailTest : public krtest::KrctlRun {
protected:
    void SetUp() override {
        std::ofstream(Scenario()) << R"({"servers": [{"url": "https://mail.example",
            "users": [{"login": "anna", "id": "u-anna"}, {"login": "bert", "id": "u-bert"},
                      {"login": "cleo", "id": "u-cleo"}]}]})";
    }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    Json RunJson(std::vector<std::string> args) {
        args.insert(args.begin(), {"--json", "emulate", Scenario(), "--update", "mail"});
        auto r = Run(args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.exitCode == 0 ? Json::parse(r.out) : Json();
    }
    Json Box(const std::string& user, const std::string& box) {
        return RunJson({"list", "--user", user, "--box", box})["mails"];
    }
};

TEST_F(KrctlEmulateMailTest, TwoUsersExchangeAMailAndItsFlagsReachTheServer) {
    const std::string id = RunJson({"send", "--from", "anna", "--to", "bert,cleo", "--subject",
                                    "Plans", "--text", "See level 2"})["id"];
    Json inbox = Box("bert", "inbox");
    ASSERT_EQ(inbox.size(), 1u);
    EXPECT_EQ(inbox[0]["id"], id);
    EXPECT_EQ(inbox[0]["subject"], "Plans");
    EXPECT_EQ(inbox[0]["text"], "See level 2");
    EXPECT_EQ(inbox[0]["to"], Json::parse(R"(["bert", "cleo"])"));
    EXPECT_EQ(Box("cleo", "inbox").size(), 1u);
    EXPECT_TRUE(Box("anna", "outbox").empty());
    // The sender's client completes its sent mail by itself.
    EXPECT_EQ(Box("anna", "sent")[0]["completed"], true);

    struct Step {
        std::vector<std::string> args;
        bool read, completed;
    } steps[] = {
        {{"read", "--user", "bert", "--id", id}, true, false},
        {{"complete", "--user", "bert", "--id", id}, true, true},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(RunJson(step.args)["done"], true);
        // The server's own view, not the client's.
        auto server = Run({"--json", "emulate", Scenario(), "mailbox", "--user", "bert"});
        Json mail = Json::parse(server.out)["boxes"]["inbox"]["mails"][0];
        EXPECT_EQ(mail["read"], step.read);
        EXPECT_EQ(mail["completed"], step.completed);
    }
    EXPECT_EQ(Box("cleo", "inbox")[0]["read"], false);

    EXPECT_EQ(RunJson({"delete", "--user", "anna", "--id", id})["done"], true);
    EXPECT_TRUE(Box("anna", "sent").empty());
    EXPECT_EQ(Box("bert", "inbox").size(), 1u);

    struct Bad {
        std::vector<std::string> args;
        std::string error;
    } bad[] = {
        {{"read", "--user", "anna", "--id", "nope"}, "the user has no mail nope"},
        {{"send", "--from", "anna", "--to", "nobody"}, "the scenario has no user nobody"},
        {{"list", "--user", "anna", "--box", "trash"}, "could not be read"},
    };
    for (const auto& b : bad) {
        std::vector<std::string> args{"emulate", Scenario(), "mail"};
        args.insert(args.end(), b.args.begin(), b.args.end());
        auto r = Run(args);
        EXPECT_NE(r.exitCode, 0);
        EXPECT_NE(r.err.find(b.error), std::string::npos) << r.err;
    }
}

}  // namespace
