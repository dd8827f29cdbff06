// krctl before it starts the library: files it can't open, read commands
// that must make nothing, and options that lead outside the given folder.

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <regex>

#include "KRClient/CacheInfoFileBuilder.h"
#include "Support/Krctl.h"

namespace {

namespace fs = std::filesystem;

struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string says;  // found in standard output and error together
};

class KrctlDataFolderTest : public krtest::KrctlRun {
protected:
    KrctlDataFolderTest() { globals = {"--base-folder", Base(), "--data-folder", Data()}; }
    // A data folder with options and the record of anna's /A/P; anna is known.
    void MakeData() const {
        ASSERT_EQ(Run({"--create", "registry", "create", "--server", "https://srv", "--user",
                       "anna", "--path", "/A/P"})
                      .exitCode,
                  0);
        ASSERT_EQ(Run({"login", "add-server", "https://srv"}).exitCode, 0);
        ASSERT_EQ(Run({"login", "add-user", "https://srv", "anna"}).exitCode, 0);
    }
    void SetLocalDataFolder(const std::string& folder, const std::string& value) const {
        const std::string file = folder + "/KRDataOptions.xml";
        krtest::WriteFile(file, std::regex_replace(krtest::ReadFile(file),
                                                   std::regex("<LocalDataFolderPath>[^<]*<"),
                                                   "<LocalDataFolderPath>" + value + "<"));
    }
    // Each case run by run, with output and exit code as the case says.
    template <typename Runner>
    void Expect(const std::vector<Case>& cases, Runner run) const {
        for (const Case& c : cases) {
            krtest::ProcessResult r = run(c.args);
            std::string all = r.out + r.err, command;
            for (const std::string& a : c.args) command += a + " ";
            EXPECT_EQ(r.exitCode, c.exitCode) << command << all;
            EXPECT_NE(all.find(c.says), std::string::npos) << command << all;
        }
    }
    std::vector<std::string> Set(const char* count) const {
        return {"registry",    "set",    "visitCount", count,    "--server",
                "https://srv", "--user", "anna",       "--path", "/A/P"};
    }
};

TEST_F(KrctlDataFolderTest, ReadCommandsMakeNothingAndARelativeLocalDataFolderIsNamed) {
    fs::create_directory(Data());
    const std::vector<Case> empty = {
        {{"registry", "list"}, 0, "0 project(s)"},
        {{"registry", "find", "--server", "https://srv", "--user", "anna", "--path", "/A/P"},
         1,
         "not found"},
        {{"options", "show"}, 0, "periodTime               30"},
        {{"login", "list"}, 0, "no servers"},
        {{"doctor"}, 0, "login data   " + Base() + "/LoginData.json: absent"},
    };
    auto before = Snapshot(temp.Path());
    Expect(empty, [&](auto& args) { return Run(args); });
    EXPECT_EQ(Snapshot(temp.Path()), before);
    EXPECT_FALSE(krtest::Exists(Base()));

    // A relative value would be taken from the working folder: there, a
    // folder of the temporary folder.
    MakeData();
    const std::string relative = fs::relative(temp.Sub("rel"), fs::current_path()).string();
    SetLocalDataFolder(Data(), relative);
    const std::string says = "LocalDataFolderPath '" + relative + "' is not an absolute path";
    const std::vector<Case> unusable = {
        {{"registry", "list"}, 1, "krctl: " + Data() + "/KRDataOptions.xml: " + says + "\n"},
        {{"registry", "create", "--server", "https://srv", "--user", "bert", "--path", "/B"},
         1,
         says},
        {{"doctor"}, 1, "unusable, current form, local data folder " + relative + " (" + says},
        {{"doctor", "--repair"}, 1, "unusable"},
    };
    before = Snapshot(temp.Path());
    Expect(unusable, [&](auto& args) { return Run(args); });
    EXPECT_EQ(Snapshot(temp.Path()), before);
    EXPECT_FALSE(krtest::Exists(temp.Sub("rel")));
}

TEST_F(KrctlDataFolderTest, AsAPlainUserWhatCannotBeOpenedIsNamedAtOnceAndARecordIsCounted) {
    const passwd* nobody = getpwnam("nobody");
    if (!nobody) GTEST_SKIP() << "no user nobody";
    MakeData();
    krtest::WriteCacheInfo(Data() + "/Projects/locked", 10, {{"LoginName", "bert"}});
    for (const auto& e : fs::recursive_directory_iterator(temp.Path()))
        lchown(e.path().c_str(), nobody->pw_uid, nobody->pw_gid);
    chown(temp.Path().c_str(), nobody->pw_uid, nobody->pw_gid);
    auto asNobody = [&](auto& args) {
        return krtest::RunProcessAs(Krctl(args), nobody->pw_uid, nobody->pw_gid);
    };
    const std::string options = Data() + "/KRDataOptions.xml";
    const std::string denied = "krctl: cannot open " + options + ": Permission denied\n";
    chmod(options.c_str(), 0);
    Expect({{{"options", "show"}, 1, denied},
            {{"registry", "list"}, 1, denied},
            {Set("3"), 1, denied},
            {{"doctor"}, 1, "KRDataOptions.xml: unreadable (Permission denied)"}},
           asNobody);

    chmod(options.c_str(), 0600);
    chmod((Data() + "/Projects").c_str(), 0500);
    Expect({{{"registry", "create", "--server", "https://srv", "--user", "bert", "--path", "/B"},
             1,
             "krctl: cannot change " + Data() + "/Projects: Permission denied\n"}},
           asNobody);

    // A record nobody may open is no project, but it is not hidden; a repair
    // sets it aside so that the next look is clean.
    chmod((Data() + "/Projects").c_str(), 0700);
    chmod((Data() + "/Projects/locked/CacheInfo.xml").c_str(), 0);
    Expect({{{"registry", "list"}, 0, "krctl: 1 damaged record(s): run krctl doctor\n"},
            {{"doctor", "--repair"}, 0, "repaired     moved the unreadable cache folder"},
            {{"doctor"}, 0, "clean: 1 cache folder(s)"}},
           asNobody);
}

TEST_F(KrctlDataFolderTest, ACopyWhoseOptionsPointAtTheOriginalChangesItOnlyWhenToldTo) {
    MakeData();
    const std::string copy = temp.Sub("copy");
    fs::copy(Data(), copy, fs::copy_options::recursive);
    auto inCopy = [&](auto& args) {
        std::vector<std::string> argv{KRCTL_PATH, "--base-folder", Base(), "--data-folder", copy};
        argv.insert(argv.end(), args.begin(), args.end());
        return krtest::RunProcess(argv);
    };
    const std::string refused = "krctl: the options of " + copy + " point outside it, at " +
                                Data() +
                                "; nothing changed (give --follow-options to work there)\n";
    const std::string reads =
        "krctl: reading from " + Data() + ", where the options of " + copy + " point\n";
    const auto original = Snapshot(Data());
    Expect({{Set("77"), 1, refused},
            {{"lock", "hold", "--seconds", "0"}, 1, refused},
            {{"registry", "list"}, 0, reads}},
           inCopy);
    EXPECT_EQ(Snapshot(Data()), original);

    std::vector<std::string> follow = Set("77");
    follow.insert(follow.begin(), "--follow-options");
    Expect({{follow, 0, "visitCount: done"}}, inCopy);
    Expect({{{"--json", "registry", "list"}, 0, "\"visitCount\": 77"}},
           [&](auto& args) { return Run(args); });
}

}  // namespace
