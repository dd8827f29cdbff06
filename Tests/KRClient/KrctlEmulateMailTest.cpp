// krctl emulate mail as a support engineer runs it: two users exchange a
// mail, changes made offline in one run reach the server in a later one,
// each step written back with --update and seen by the next process; mail
// dump shows the files a run left.

#include <gtest/gtest.h>

#include <filesystem>
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
        std::filesystem::create_directories(Data());
        globals.insert(globals.end(), {"--data-folder", Data()});
    }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    // An --offline run leaves the scenario as it is.
    Json Mail(std::vector<std::string> args, bool update = true) {
        args.insert(args.begin(), "mail");
        if (update) args.insert(args.begin(), "--update");
        args.insert(args.begin(), {"--json", "emulate", Scenario()});
        auto r = Run(args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.exitCode == 0 ? Json::parse(r.out) : Json();
    }
    Json Box(const std::string& user, const std::string& box) {
        return Mail({"list", "--user", user, "--box", box})["mails"];
    }
    std::string Folder(const std::string& user) const { return Data() + "/Mail/" + user; }
};

TEST_F(KrctlEmulateMailTest, TwoUsersExchangeAMailAndOfflineFlagsReachTheServerLater) {
    const std::string id = Mail({"send", "--from", "anna", "--to", "bert,cleo", "--subject",
                                 "Plans", "--text", "See level 2"})["id"];
    Json inbox = Box("bert", "inbox");
    ASSERT_EQ(inbox.size(), 1u);
    EXPECT_EQ(inbox[0]["id"], id);
    EXPECT_EQ(inbox[0]["subject"], "Plans");
    EXPECT_EQ(inbox[0]["text"], "See level 2");
    EXPECT_EQ(inbox[0]["to"], Json::parse(R"(["bert", "cleo"])"));
    EXPECT_TRUE(Box("anna", "outbox").empty());

    // Offline: the flag is kept for the server; the next offline run sees it
    // from the files alone.
    EXPECT_EQ(Mail({"complete", "--user", "bert", "--id", id, "--offline"}, false)["done"], false);
    Json offline = Mail({"list", "--user", "bert", "--offline"}, false)["mails"];
    ASSERT_EQ(offline.size(), 1u);
    EXPECT_EQ(offline[0]["completed"], true);
    Json dump = Json::parse(Run({"--json", "mail", "dump", Folder("bert")}).out);
    EXPECT_EQ(dump["mails"]["complete"], true) << dump.dump();
    EXPECT_EQ(dump["mails"]["inboxToComplete"], Json::array({id}));

    // Online again: the completion goes too. The server's own view, not the client's.
    EXPECT_EQ(Mail({"read", "--user", "bert", "--id", id})["done"], true);
    auto server = Run({"--json", "emulate", Scenario(), "mailbox", "--user", "bert"});
    Json mail = Json::parse(server.out)["boxes"]["inbox"]["mails"][0];
    EXPECT_EQ(mail["read"], true);
    EXPECT_EQ(mail["completed"], true);
    EXPECT_EQ(Mail({"delete", "--user", "anna", "--id", id})["done"], true);
    EXPECT_TRUE(Box("anna", "sent").empty());

    struct Bad {
        std::vector<std::string> args;
        std::string error;
        int exitCode;
    } bad[] = {
        {{"read", "--user", "anna", "--id", "nope"}, "the user has no mail nope", 1},
        {{"send", "--from", "anna", "--to", "nobody"}, "the scenario has no user nobody", 1},
        {{"list", "--user", "anna", "--box", "trash"}, "could not be read", 2},
        {{"delete", "--user", "bert", "--id", id, "--offline"}, "", 2},
    };
    for (const auto& b : bad) {
        std::vector<std::string> args{"emulate", Scenario(), "mail"};
        args.insert(args.end(), b.args.begin(), b.args.end());
        auto r = Run(args);
        EXPECT_EQ(r.exitCode, b.exitCode) << r.err;
        EXPECT_NE(r.err.find(b.error), std::string::npos) << r.err;
    }
}

TEST_F(KrctlEmulateMailTest, DumpReportsADamagedMailsFileAndChangesNothing) {
    const std::string id = Mail({"send", "--from", "anna", "--to", "bert", "--text", "hi"})["id"];
    Mail({"list", "--user", "bert"});
    const std::string folder = Folder("bert");
    auto r = Run({"mail", "dump", folder});
    ASSERT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.out.find("inbox: revision"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(id), std::string::npos);

    const std::string file = folder + "/Mails.dat";
    const std::string bytes = krtest::ReadFile(file);
    krtest::WriteFile(file, bytes.substr(0, bytes.size() - 3));
    const auto before = Snapshot(folder);
    Json damaged = Json::parse(Run({"--json", "mail", "dump", folder}).out);
    EXPECT_EQ(damaged["mails"]["complete"], false);
    EXPECT_GT(damaged["mails"]["stoppedAt"].get<std::size_t>(), 12u);
    EXPECT_EQ(Run({"mail", "dump", folder}).exitCode, 1);
    EXPECT_EQ(Snapshot(folder), before);
}

}  // namespace
