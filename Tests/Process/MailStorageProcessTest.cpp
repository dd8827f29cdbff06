// The doctor on a data folder's mail files: damage and leftovers found,
// and moved aside on repair.

#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

using Json = nlohmann::ordered_json;

class MailDoctorTest : public krtest::KrctlRun {
protected:
    MailDoctorTest() { globals = {"--data-folder", Data()}; }
};

TEST_F(MailDoctorTest, FindsDamagedMailFilesAndTheirLeftoversAndRepairsByMovingThem) {
    ASSERT_EQ(Run({"--create", "options", "set", "periodTime", "5"}).exitCode, 0);
    const std::string folder =
        krtest::WriteCache(Data() + "/Projects", "p1", "https://srv", "/A", "anna");
    // A count of five mails over three bytes, refused at the count; a good empty outbox.
    krtest::WriteFile(folder + "/Mails.dat", std::string("\1\0\0\0\0\0\0\0\5\0\0\0xyz", 15));
    krtest::WriteFile(folder + "/Outbox.dat", std::string(4, '\0'));
    krtest::WriteFile(folder + "/.Mails.dat.tmp-AbC123", "half");

    const auto before = Snapshot(Data());
    auto doctor = Run({"--json", "doctor"});
    EXPECT_EQ(doctor.exitCode, 1) << doctor.err;
    EXPECT_EQ(Snapshot(Data()), before);
    Json report = Json::parse(doctor.out);
    EXPECT_EQ(report["cacheFolders"][0]["mailFiles"],
              Json::parse(R"([{"file": ")" + folder +
                          R"(/Mails.dat", "state": "damaged", "stoppedAt": 8,
                              "error": "0x81020102"}])"));
    EXPECT_EQ(report["leftovers"], Json::array({folder + "/.Mails.dat.tmp-AbC123"}));
    EXPECT_EQ(report["problems"], 2);

    auto repair = Run({"--json", "doctor", "--repair"});
    EXPECT_FALSE(krtest::Exists(folder + "/Mails.dat")) << repair.out;
    EXPECT_FALSE(krtest::Exists(folder + "/.Mails.dat.tmp-AbC123"));
    EXPECT_TRUE(krtest::Exists(folder + "/Outbox.dat"));
    bool moved = false;
    for (const auto& entry : std::filesystem::directory_iterator(Data()))
        if (entry.path().filename().string().starts_with("Quarantine-"))
            moved = krtest::ReadFile((entry.path() / "p1-Mails.dat").string()).size() == 15;
    EXPECT_TRUE(moved);
    EXPECT_EQ(Run({"doctor"}).exitCode, 0);
}
