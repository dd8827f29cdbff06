// krctl mail dump-outbox on the Outbox.dat a host left, whole and cut.

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <string>

#include "KRClient/MailClient/Internal/Outbox.h"
#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace {

TEST(OutboxProcessTest, KrctlShowsTheOutboxAndACutCopyUpToTheDamage) {
    krtest::TempFolder folder;
    {
        KRC::Outbox outbox(folder.Location());
        for (const char* text : {"a", "b", "c"}) {
            ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
            mail->SetMessagePart(text);
            mail->SetSender(Kerrow::Server::Mail::Address({"me", "Sent"}, "Me"));
            mail->AddAttachment(KRC::TestAttachment());
            outbox.AddMail(mail);
        }
    }
    // The file whole, and a cut copy up to the damage, changing nothing.
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

    const std::string bytes = krtest::ReadFile(file), cut = folder.Sub("cut.dat");
    krtest::WriteFile(cut, bytes.substr(0, bytes.size() - 5));
    krtest::ProcessResult damaged = dump(cut);
    EXPECT_EQ(damaged.exitCode, 1);
    json = nlohmann::json::parse(damaged.out);
    EXPECT_EQ(json["mails"].size(), 2u);
    EXPECT_EQ(json["count"], 3);
    EXPECT_FALSE(json["complete"]);
    EXPECT_GT(json["stoppedAt"].get<std::size_t>(), 4u);
    EXPECT_EQ(krtest::ReadFile(cut).size(), bytes.size() - 5);

    krtest::ProcessResult text = krtest::RunProcess({KRCTL_PATH, "mail", "dump-outbox", cut});
    EXPECT_NE(text.out.find("2 of 3 mail(s) read; reading stopped at byte " +
                            std::to_string(json["stoppedAt"].get<std::size_t>())),
              std::string::npos)
        << text.out;
    EXPECT_EQ(krtest::RunProcess({KRCTL_PATH, "mail", "dump-outbox", folder.Sub("none")}).exitCode,
              1);
}

}  // namespace
