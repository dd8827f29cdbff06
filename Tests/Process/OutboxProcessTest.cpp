// Outbox.dat written by one process and read by the next, and shown by krctl.

#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

krtest::ProcessResult Worker(const krtest::TempFolder& folder, std::vector<std::string> args) {
    args.insert(args.begin(), {OUTBOX_WORKER_PATH, folder.Path()});
    return krtest::RunProcess(args);
}

TEST(OutboxProcessTest, EachRunKeepsTheMailsOfTheRunsBefore) {
    krtest::TempFolder folder;
    ASSERT_EQ(Worker(folder, {"add", "first", "2"}).exitCode, 0);
    ASSERT_EQ(Worker(folder, {"add", "second", "1"}).exitCode, 0);
    krtest::ProcessResult list = Worker(folder, {"list"});
    ASSERT_EQ(list.exitCode, 0) << list.err;
    EXPECT_EQ(list.out,
              "first-0|Me|KRC::TestAttachment:0;\nfirst-1|Me|KRC::TestAttachment:1;\n"
              "second-0|Me|KRC::TestAttachment:0;\n");

    // krctl shows the file, and a cut copy up to the damage, changing nothing.
    const std::string file = folder.Sub("Outbox.dat");
    auto dump = [](const std::string& path) {
        return krtest::RunProcess({KRCTL_PATH, "--json", "mail", "dump-outbox", path});
    };
    krtest::ProcessResult whole = dump(file);
    ASSERT_EQ(whole.exitCode, 0) << whole.err;
    auto json = nlohmann::json::parse(whole.out);
    ASSERT_EQ(json["mails"].size(), 3u);
    EXPECT_EQ(json["mails"][2]["sender"]["name"], "Me");
    EXPECT_EQ(json["mails"][0]["attachments"][0], "KRC::TestAttachment");

    std::ifstream in(file, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), {});
    const std::string cut = folder.Sub("cut.dat");
    std::ofstream(cut, std::ios::binary) << bytes.substr(0, bytes.size() - 5);
    krtest::ProcessResult damaged = dump(cut);
    EXPECT_EQ(damaged.exitCode, 1);
    json = nlohmann::json::parse(damaged.out);
    EXPECT_EQ(json["mails"].size(), 2u);
    EXPECT_EQ(json["count"], 3);
    EXPECT_FALSE(json["complete"]);
    EXPECT_GT(json["stoppedAt"].get<std::size_t>(), 4u);
    std::ifstream again(cut, std::ios::binary);
    EXPECT_EQ(std::string((std::istreambuf_iterator<char>(again)), {}).size(), bytes.size() - 5);

    krtest::ProcessResult text = krtest::RunProcess({KRCTL_PATH, "mail", "dump-outbox", cut});
    EXPECT_NE(text.out.find("2 of 3 mail(s) read; reading stopped at byte " +
                            std::to_string(json["stoppedAt"].get<std::size_t>())),
              std::string::npos)
        << text.out;
    EXPECT_EQ(krtest::RunProcess({KRCTL_PATH, "mail", "dump-outbox", folder.Sub("none")}).exitCode,
              1);
}

}  // namespace
