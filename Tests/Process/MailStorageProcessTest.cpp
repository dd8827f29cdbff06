// The mail files across processes: a host killed while it writes them leaves
// the old or the new ones; changes made offline in one krctl run reach the
// server in a later one; krctl shows the files and the doctor finds damage.

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <random>
#include <thread>

#include "KRClient/CacheInfoFileBuilder.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;

// The inbox revision of Mails.dat and the text of the one outbox mail, each
// -1 if its file is not whole; 0 where there is no file.
std::pair<long, long> Stored(const krtest::TempFolder& folder) {
    long revision = 0, text = 0;
    if (krtest::Exists(folder.Sub("Mails.dat"))) {
        KRC::Internal::MailsFileContent content;
        revision = KRC::Internal::ReadMailsFile(folder.Location() + IO::Name("Mails.dat"), content)
                       ? -1
                       : static_cast<long>(content.inboxRevision);
    }
    if (krtest::Exists(folder.Sub("Outbox.dat"))) {
        const std::string data = krtest::ReadFile(folder.Sub("Outbox.dat"));
        ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails;
        std::size_t used = 0;
        int status = KRC::Outbox::ReadMails(reinterpret_cast<const unsigned char*>(data.data()),
                                            data.size(), mails, &used);
        text = status || used != data.size() || mails.GetSize() != 1
                   ? -1
                   : std::atol(mails[0]->GetMessagePart().ToCString());
    }
    return {revision, text};
}

TEST(MailStorageProcessTest, KilledWritesLeaveTheOldOrTheNewFilesAndOneTemporaryFileAtMost) {
    krtest::TempFolder folder;
    std::mt19937 random{20261125};
    long value = 0, slept = 0, writes = 0;
    std::pair<long, long> stored{0, 0};
    for (int kill = 0; kill < 200 && !HasFailure(); ++kill) {
        SCOPED_TRACE(kill);
        krtest::ChildProcess worker({MAIL_WORKER_PATH, folder.Path(), std::to_string(value)});
        std::string line;
        ASSERT_TRUE(worker.ReadLine(&line) && line == "ready") << line;
        // Kill points spread over the first few writes, whatever one costs here.
        const long perWrite = std::max(200L, slept / std::max(1L, writes));
        std::this_thread::sleep_for(std::chrono::microseconds(
            std::uniform_int_distribution<long>(0, 5 * perWrite / 2)(random)));
        worker.Kill(SIGKILL);
        EXPECT_EQ(worker.Wait(), -1);
        std::vector<long> done;
        while (worker.ReadLine(&line)) done.push_back(std::stol(line));
        slept += 5 * perWrite / 4;
        writes += static_cast<long>(done.size());

        // Each file holds what the last whole run wrote, or the run under way.
        const auto [revision, text] = Stored(folder);
        const long next = (done.empty() ? value : done.back()) + 1;
        const long oldRevision = done.empty() ? stored.first : done.back();
        const long oldText = done.empty() ? stored.second : done.back();
        EXPECT_TRUE(revision == oldRevision || revision == next) << revision << " " << next;
        EXPECT_TRUE(text == oldText || text == next) << text << " " << next;
        stored = {revision, text};
        for (const char* name : {".Mails.dat.tmp", ".Outbox.dat.tmp"})
            EXPECT_LE(krtest::Listing(folder.Path(), name).size(), 1u) << name;
        value = std::max(revision, text);
    }
    EXPECT_GT(writes, 0);
}

class MailKrctlTest : public krtest::KrctlRun {
protected:
    void SetUp() override {
        std::ofstream(Scenario()) << R"({"servers": [{"url": "https://mail.example",
            "users": [{"login": "anna", "id": "u-anna"}, {"login": "bert", "id": "u-bert"}]}]})";
        std::filesystem::create_directories(Data());
        globals.insert(globals.end(), {"--data-folder", Data()});
    }
    std::string Scenario() const { return temp.Sub("scenario.json"); }
    Json Mail(std::vector<std::string> args, bool update = true) {
        args.insert(args.begin(), {"--json", "emulate", Scenario()});
        if (update) args.insert(args.begin() + 3, "--update");
        args.insert(args.begin() + (update ? 4 : 3), "mail");
        auto r = Run(args);
        EXPECT_EQ(r.exitCode, 0) << r.err;
        return r.exitCode == 0 ? Json::parse(r.out) : Json();
    }
    Json ServerInbox(const std::string& user) {
        auto r = Run({"--json", "emulate", Scenario(), "mailbox", "--user", user});
        return Json::parse(r.out)["boxes"]["inbox"]["mails"];
    }
    std::string Folder(const std::string& user) const { return Data() + "/Mail/" + user; }
};

TEST_F(MailKrctlTest, ChangesMadeOfflineComeBackInTheNextRunAndReachTheServerWhenOnline) {
    const std::string id = Mail({"send", "--from", "anna", "--to", "bert", "--text", "hi"})["id"];
    ASSERT_EQ(Mail({"list", "--user", "bert"})["mails"].size(), 1u);

    // Offline: the flag is kept for the server; the next offline run sees it
    // from the files alone, and the server does not have it yet.
    Json kept = Mail({"complete", "--user", "bert", "--id", id, "--offline"}, false);
    EXPECT_EQ(kept["done"], false);
    Json offline = Mail({"list", "--user", "bert", "--offline"}, false)["mails"];
    ASSERT_EQ(offline.size(), 1u);
    EXPECT_EQ(offline[0]["completed"], true);
    EXPECT_EQ(ServerInbox("bert")[0]["completed"], false);
    Json dump = Json::parse(Run({"--json", "mail", "dump", Folder("bert")}).out);
    EXPECT_EQ(dump["mails"]["complete"], true) << dump.dump();
    EXPECT_EQ(dump["mails"]["inboxToComplete"], Json::array({id}));
    EXPECT_EQ(dump["mails"]["inbox"][0]["id"], id);
    EXPECT_GT(dump["mails"]["inboxRevision"].get<long>(), 0);

    // Online again: the completion goes at the status change, before the read.
    EXPECT_EQ(Mail({"read", "--user", "bert", "--id", id})["done"], true);
    Json server = ServerInbox("bert");
    EXPECT_EQ(server[0]["completed"], true);
    EXPECT_EQ(server[0]["read"], true);
    EXPECT_EQ(
        Run({"emulate", Scenario(), "mail", "delete", "--user", "bert", "--id", id, "--offline"})
            .exitCode,
        2);
}

TEST_F(MailKrctlTest, DumpAndDoctorReportDamagedMailFilesAndChangeNothing) {
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

class MailDoctorTest : public krtest::KrctlRun {
protected:
    MailDoctorTest() { globals = {"--data-folder", Data()}; }
};

TEST_F(MailDoctorTest, FindsDamagedMailFilesAndTheirLeftoversAndRepairsByMovingThem) {
    ASSERT_EQ(Run({"--create", "options", "set", "periodTime", "5"}).exitCode, 0);
    const std::string folder = Data() + "/Projects/p1";
    krtest::WriteCacheInfo(
        folder, 10,
        {{"PortalServerUrl", "https://srv"}, {"ProjectPath", "/A"}, {"LoginName", "anna"}});
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
