// krctl's command line: each mistake gets krctl's own one line and exit 2, and
// a word typed in the wrong place, which may be a token, is never repeated.

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Support/Krctl.h"

namespace {

using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;

class KrctlCommandLineTest : public krtest::KrctlRun {
protected:
    // Every command krctl has, found through the help of each level: the words
    // that reach it, with a value for each of its positionals, so that one word
    // more is one too many.
    void FindCommands(const Words& words, std::vector<Words>& commands) const {
        Words ask = words;
        ask.push_back("--help");
        std::istringstream help(Run(ask).out);
        Words reach = words, subcommands;
        std::string line;
        bool inSubcommands = false;
        while (std::getline(help, line)) {
            if (line.rfind("Usage: krctl", 0) == 0) {
                // "Usage: krctl emulate [OPTIONS] SCENARIO SUBCOMMAND"
                std::istringstream usage(line.substr(line.find(']') + 1));
                for (std::string word; usage >> word;)
                    if (word != "SUBCOMMAND") reach.push_back("value");
            } else if (line == "Subcommands:") {
                inSubcommands = true;
            } else if (inSubcommands && line.size() > 2 && line.rfind("  ", 0) == 0 &&
                       line[2] != ' ') {
                subcommands.push_back(line.substr(2, line.find(' ', 2) - 2));
            } else if (line.empty()) {
                inSubcommands = false;
            }
        }
        if (subcommands.empty()) commands.push_back(reach);
        for (const std::string& sub : subcommands) {
            Words next = reach;
            next.push_back(sub);
            FindCommands(next, commands);
        }
    }
};

TEST_F(KrctlCommandLineTest, NoWordInTheWrongPlaceIsRepeatedByAnyCommand) {
    std::vector<Words> commands;
    FindCommands({}, commands);
    ASSERT_GE(commands.size(), 20u);
    ASSERT_NE(
        std::find(commands.begin(), commands.end(), Words{"login", "add-user", "value", "value"}),
        commands.end());

    const std::string secret = "S3NT1NEL-rt-0042";
    struct Place {
        Words before, after;
        bool json = false;
    };
    const std::vector<Place> places = {
        {{}, {secret}},                // a word too many
        {{secret}, {}},                // a stray word before the command
        {{"--token=" + secret}, {}},   // an option the command has, where it has none
        {{}, {"--tokn=" + secret}},    // a mistyped option with its value
        {{}, {"--tokn", secret}},      // a mistyped option, then its value
        {{}, {"--usr", secret}},       // likewise, an option without secrets
        {{}, {"--password", secret}},  // an option no command has
        {{}, {"--", secret}},          // a word after the end of the options
        {{"--json"}, {"--tokn", secret}, true},
        {{"--json"}, {secret}, true},
    };
    for (const Words& command : commands) {
        for (const Place& place : places) {
            Words args = place.before;
            args.insert(args.end(), command.begin(), command.end());
            args.insert(args.end(), place.after.begin(), place.after.end());
            auto r = Run(args);
            std::string line = args[0];
            for (std::size_t i = 1; i < args.size(); ++i) line += " " + args[i];
            EXPECT_EQ(r.exitCode, 2) << line << ": " << r.err;
            EXPECT_EQ((r.out + r.err).find(secret), std::string::npos) << line << ": " << r.err;
            EXPECT_TRUE(r.out.empty()) << line << ": " << r.out;
            EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << line << ": " << r.err;
            if (place.json)
                EXPECT_EQ(Json::parse(r.err)["code"], 2) << line;
            else
                EXPECT_EQ(r.err.rfind("krctl: ", 0), 0u) << line << ": " << r.err;
        }
    }
}

TEST_F(KrctlCommandLineTest, EachMistakeNamesTheOptionOrThePositionOfTheWord) {
    globals.clear();  // positions count from the first word after krctl
    krtest::WriteFile(Log(), "");
    const Words project = {"--server", "https://srv", "--user", "anna", "--path", "/p"};
    auto with = [](Words a, const Words& b) {
        a.insert(a.end(), b.begin(), b.end());
        return a;
    };
    const std::string seconds = "needs a number of seconds from 0 to 86400";
    const std::vector<std::pair<Words, std::string>> cases = {
        {{"--base-folder", Base(), "login", "add-user", "https://srv", "anna", "TOKEN-X"},
         "argument 7 was not expected (see krctl login add-user --help)"},
        {{"--token=TOKEN-X", "login", "list"},
         "unknown option --token (see krctl login list --help)"},
        {{"login", "list", "--token", "TOKEN-X"},
         "unknown option --token (see krctl login list --help)"},
        {with({"emulate", "S", "check"}, with(project, {"--tokn", "TOKEN-X"})),
         "unknown option --tokn (see krctl emulate check --help)"},
        {{"login", "list", "-tTOKEN-X"}, "unknown option -t (see krctl login list --help)"},
        {{"login", "list", "--to\x1b[2Jken"},
         "unknown option --to\\x1b[2Jken (see krctl login list --help)"},
        {{"login", "list", "login"}, "argument 3 was not expected (see krctl login list --help)"},
        {with({"registry", "set", "visitCount", "5", "6"}, project),
         "argument 5 was not expected (see krctl registry set --help)"},
        {{"nosuch"}, "argument 1 is not a command (see krctl --help)"},
        {{"cache", "frobnicate"}, "argument 2 is not a command (see krctl cache --help)"},
        {{"cache"}, "cache takes create, show, set (see krctl cache --help)"},
        {{"cache", "show"}, "cache show needs CACHE_FOLDER (see krctl cache show --help)"},
        {{"emulate"}, "emulate needs SCENARIO (see krctl emulate --help)"},
        {{"cache", "create", "--main-folder"},
         "--main-folder needs a value (see krctl cache create --help)"},
        {with({"cache", "create", "--main-folder", "--server", "https://srv"}, project),
         "--main-folder needs a value, not an option"},
        {with({"cache", "create", "--main-folder", ""}, project), "--main-folder needs a value"},
        {{"registry", "find", "--server", "https://srv", "--user", "", "--path", "/p"},
         "--user needs a value"},
        {{"--lib-cache", "../elsewhere", "registry", "list"},
         "--lib-cache needs the name of a folder in --data-folder, not a path"},
        {{"--base-folder", "a", "--base-folder", "b", "login", "list"},
         "--base-folder is given more than once (see krctl login list --help)"},
        {{"--json=yes", "login", "list"}, "--json takes no value (see krctl --help)"},
        {{"--wait", "-1", "registry", "list"}, "--wait " + seconds},
        {{"--wait", "abc", "registry", "list"}, "--wait " + seconds},
        {{"--wait", "1e400", "registry", "list"}, "--wait " + seconds},
        {{"--wait", "nan", "registry", "list"}, "--wait " + seconds},
        {{"lock", "hold", "--seconds", "86400.5"}, "--seconds " + seconds},
        // Mistakes found after parsing exit 2 as well, in every command.
        {{"--base-folder", Log(), "login", "list"}, "--base-folder " + Log() + " is not a folder"},
        {with({"--base-folder", Base(), "cache", "create", "--main-folder", Data()},
              {"--server", "ftp://srv", "--user", "anna", "--path", "/p"}),
         "the server URL must begin with http:// or https://"},
        {{"--base-folder", Base(), "--create", "--data-folder", Data(), "options", "set",
          "dataFolder", ""},
         "dataFolder: a folder is named by a path, not an empty word"},
    };
    for (const auto& [args, says] : cases) {
        auto r = Run(args);
        EXPECT_EQ(r.exitCode, 2) << args[0];
        EXPECT_TRUE(r.out.empty()) << r.out;
        EXPECT_EQ(r.err, "krctl: " + says + "\n");
    }
    EXPECT_EQ(Json::parse(Run({"--json"}).err)["error"],
              "no command given; krctl takes cache, login, registry, options, lock, doctor, "
              "emulate, mail (see krctl --help)");

    // krctl alone shows how to use it.
    auto bare = Run({});
    EXPECT_EQ(bare.exitCode, 2);
    EXPECT_NE(bare.err.find("Usage: krctl [OPTIONS] SUBCOMMAND"), std::string::npos) << bare.err;
    EXPECT_NE(bare.err.find("emulate"), std::string::npos);
}

}  // namespace
