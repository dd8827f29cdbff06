// The command line layer of krctl: value checks while parsing, and krctl's own
// line for each mistake the parser finds.

#include "CommandLine.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <vector>

#include "Krctl.h"

namespace krctl {

namespace {

const char* const kFooter =
    "Exit codes: 0 done; 1 a failure, or what was asked for is not there; 2 a usage error.\n"
    "With --json, results are JSON on standard output and errors are\n"
    "{\"error\": TEXT, \"code\": EXIT_CODE} on standard error.";

// The parser's own test for a word that names an option: "--x..." or "-x...",
// where a digit after one dash makes a number, not an option.
bool IsOptionWord(const std::string& word) {
    auto first = [](char c) { return c != '-' && c != '!' && c != ' ' && c != '\n'; };
    if (word.size() > 2 && word[0] == '-' && word[1] == '-') return first(word[2]);
    return word.size() > 1 && word[0] == '-' && first(word[1]) &&
           !std::isdigit(static_cast<unsigned char>(word[1]));
}

// The name of an option word without a value given with it: "--token" of
// "--token=VALUE", "-t" of "-tVALUE"; cut and escaped, for it may be anything.
std::string OptionName(const std::string& word) {
    std::string name =
        word.rfind("--", 0) == 0 ? word.substr(0, word.find('=')) : word.substr(0, 2);
    if (name.size() > 40) name = name.substr(0, 40) + "...";
    return OneLine(name);
}

// The commands the parse entered, krctl first.
std::vector<CLI::App*> Chain(CLI::App& app) {
    std::vector<CLI::App*> chain{&app};
    while (!chain.back()->get_subcommands().empty())
        chain.push_back(chain.back()->get_subcommands().front());
    return chain;
}

// "login add-user" for the chain up to and with *app; "krctl" for krctl itself.
std::string CommandName(const std::vector<CLI::App*>& chain, const CLI::App* app) {
    std::string name;
    for (std::size_t i = 1; i < chain.size(); ++i) {
        name += (name.empty() ? "" : " ") + chain[i]->get_name();
        if (chain[i] == app) break;
    }
    return name.empty() ? "krctl" : name;
}

// " (see krctl login add-user --help)" for the command the parse ended in.
std::string SeeHelp(const std::vector<CLI::App*>& chain) {
    std::string command = CommandName(chain, chain.back());
    return " (see " + (command == "krctl" ? command : "krctl " + command) + " --help)";
}

bool NeedsCommand(const CLI::App* app) {
    return app->get_require_subcommand_min() > app->get_subcommands().size();
}

std::string CommandList(const CLI::App* app) {
    std::string list;
    for (const CLI::App* sub : app->get_subcommands([](const CLI::App*) { return true; }))
        list += (list.empty() ? "" : ", ") + sub->get_name();
    return list;
}

void CollectCommandNames(const CLI::App* app, std::vector<std::string>& names) {
    for (const CLI::App* sub : app->get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(sub->get_name());
        CollectCommandNames(sub, names);
    }
}

// A word that was not expected, and where it stood (1 is the word after krctl).
struct Extra {
    int position = 0;
    bool option = false;
    std::string word;
};

// The words a positional holds beyond its limit: one that takes "0 or 1" words
// takes any number, and the parser only counts them afterwards.
std::size_t FirstSurplus(const CLI::Option* option) {
    const int limit = option->get_items_expected_max();
    return option->get_positional() && limit >= 0 ? static_cast<std::size_t>(limit)
                                                  : option->results().size();
}

// A position mark stands for a plain word in the second parse.
constexpr char kMark = '\x01';

// The first word that was not expected, found by parsing the line once more
// with each plain value (a word that is no option, command name or "--")
// replaced by a mark of its position. Whether a word is a value, an option or
// a command never depends on a value's text, so the same words are left over,
// and those that are marks tell where they stood. Option words and command
// names keep their text: an option word left over is taken to be its first
// occurrence, a command name its last (the one before it was the command).
std::optional<Extra> FirstExtra(CLI::App& app, int argc, const char* const* argv) {
    std::vector<std::string> commands;
    CollectCommandNames(&app, commands);
    auto isCommand = [&](const std::string& w) {
        return std::find(commands.begin(), commands.end(), w) != commands.end();
    };
    // After the first "--" an option word is a plain value too.
    int firstMark = argc;
    for (int i = 1; i < argc && firstMark == argc; ++i)
        if (std::string(argv[i]) == "--") firstMark = i;
    std::vector<std::string> marked;  // reversed, as the parser takes it
    for (int i = argc - 1; i >= 1; --i) {
        const std::string word = argv[i];
        const bool keep = word == "--" || isCommand(word) || (IsOptionWord(word) && i < firstMark);
        marked.push_back(keep ? word : std::string(1, kMark) + std::to_string(i));
    }
    try {
        app.parse(marked);
    } catch (...) {
        // The words left over are known whatever else the parse finds.
    }

    auto locate = [&](const std::string& word) {
        Extra extra;
        extra.word = word;
        if (!word.empty() && word[0] == kMark) {
            extra.position = std::stoi(word.substr(1));
            return extra;
        }
        extra.option = IsOptionWord(word);
        for (int i = 1; i < argc; ++i) {
            if (word != argv[i]) continue;
            extra.position = i;
            if (extra.option) break;
        }
        return extra;
    };
    std::optional<Extra> first;
    auto consider = [&](const std::string& word) {
        if (word == "--") return;
        Extra extra = locate(word);
        if (extra.position > 0 && (!first || extra.position < first->position)) first = extra;
    };
    for (CLI::App* command : Chain(app)) {
        for (const std::string& word : command->remaining()) consider(word);
        for (const CLI::Option* option : command->get_options())
            for (std::size_t k = FirstSurplus(option); k < option->results().size(); ++k)
                consider(option->results()[k]);
    }
    return first;
}

bool HasLeftOver(const std::vector<CLI::App*>& chain) {
    for (const CLI::App* command : chain) {
        if (command->remaining_size() > 0) return true;
        for (const CLI::Option* option : command->get_options())
            if (FirstSurplus(option) < option->results().size()) return true;
    }
    return false;
}

// What is missing: a required option or word, or the command itself.
std::optional<std::string> Missing(const std::vector<CLI::App*>& chain) {
    for (const CLI::App* command : chain) {
        for (const CLI::Option* option : command->get_options())
            if (option->get_required() && option->count() == 0)
                return CommandName(chain, command) + " needs " + option->get_name();
        if (NeedsCommand(command))
            return (command == chain.front() ? "no command given; krctl takes "
                                             : CommandName(chain, command) + " takes ") +
                   CommandList(command);
    }
    return std::nullopt;
}

const CLI::Option* FindOption(const std::vector<CLI::App*>& chain, const std::string& name) {
    for (const CLI::App* command : chain)
        if (const CLI::Option* option = command->get_option_no_throw(name)) return option;
    return nullptr;
}

}  // namespace

void PrepareCommandLine(CLI::App& app) {
    if (app.get_footer().find(kFooter) == std::string::npos)
        app.footer(app.get_footer().empty() ? kFooter : app.get_footer() + "\n\n" + kFooter);
    for (CLI::Option* option : app.get_options()) {
        // A flag is given or not: "--json=no" would be a trap.
        if (option->get_expected_max() == 0) option->disable_flag_override();
        if (option->get_expected_min() == 0 || option->get_positional()) continue;
        // Only these take an empty value, which means "none".
        const std::string name = option->get_name();
        const bool mayBeEmpty = name == "--token" || name == "--full-name" || name == "--name" ||
                                name == "--computer-name" || name == "--state";
        option->check(CLI::Validator(
            [name, mayBeEmpty](std::string& value) {
                // "--main-folder --server X" must not take "--server" as the folder;
                // a value that truly begins with "--" can't be given.
                if (value.rfind("--", 0) == 0)
                    throw UsageError(name + " needs a value, not an option");
                if (value.empty() && !mayBeEmpty) throw UsageError(name + " needs a value");
                return std::string();
            },
            "", "KrctlValue"));
    }
    for (CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; }))
        PrepareCommandLine(*sub);
}

CLI::Option* TakesFolderName(CLI::Option* option) {
    return option->check(CLI::Validator(
        [text = option->get_name() +
                " needs the name of a folder in --data-folder, not a path"](std::string& value) {
            if (value.find('/') != std::string::npos || value == "." || value == "..")
                throw UsageError(text);
            return std::string();
        },
        "", "FolderName"));
}

CLI::Option* TakesSeconds(CLI::Option* option, double max) {
    char limit[32];
    std::snprintf(limit, sizeof limit, "%g", max);
    return option->check(CLI::Validator(
        [text = option->get_name() + " needs a number of seconds from 0 to " + limit,
         max](std::string& value) {
            // Decimal digits and one point only: no sign, exponent, "inf" or "nan".
            const bool digits = std::count_if(value.begin(), value.end(), [](char c) {
                                    return std::isdigit(static_cast<unsigned char>(c));
                                }) > 0;
            const bool plain =
                std::all_of(value.begin(), value.end(),
                            [](char c) {
                                return std::isdigit(static_cast<unsigned char>(c)) || c == '.';
                            }) &&
                std::count(value.begin(), value.end(), '.') <= 1;
            if (!digits || !plain || std::strtod(value.c_str(), nullptr) > max)
                throw UsageError(text);
            return std::string();
        },
        "", "Seconds"));
}

std::string ParseErrorText(CLI::App& app, const CLI::ParseError& error, int argc,
                           const char* const* argv) {
    const std::vector<CLI::App*> chain = Chain(app);
    const std::string seeHelp = SeeHelp(chain);

    // A word left over comes first: a mistyped option makes the rest look wrong.
    if (HasLeftOver(chain)) {
        // The second parse replaces what the first recorded: nothing of it is used after.
        std::optional<Extra> extra = FirstExtra(app, argc, argv);
        const std::vector<CLI::App*> again = Chain(app);
        if (extra && extra->option) return "unknown option " + OptionName(extra->word) + seeHelp;
        if (extra && NeedsCommand(again.back()))
            return "argument " + std::to_string(extra->position) + " is not a command" + seeHelp;
        if (extra)
            return "argument " + std::to_string(extra->position) + " was not expected" + seeHelp;
    }
    if (dynamic_cast<const CLI::RequiredError*>(&error))
        if (std::optional<std::string> missing = Missing(chain)) return *missing + seeHelp;
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) ||
        dynamic_cast<const CLI::ConversionError*>(&error)) {
        // A flag given a value ("--json=yes") stops the parse where it stands.
        for (int i = 1; i < argc && std::string(argv[i]) != "--"; ++i) {
            const std::string word = argv[i];
            if (word.rfind("--", 0) != 0 || word.find('=') == std::string::npos) continue;
            const CLI::Option* option = FindOption(chain, OptionName(word));
            if (option && option->get_expected_max() == 0)
                return option->get_name() + " takes no value" + seeHelp;
        }
        for (const CLI::App* command : chain)
            for (const CLI::Option* option : command->get_options())
                if (!option->get_positional() && option->get_items_expected_max() > 0 &&
                    option->results().size() >
                        static_cast<std::size_t>(option->get_items_expected_max()))
                    return option->get_name() + " is given more than once" + seeHelp;
        // Otherwise the line ended where the option's value should have come.
        if (argc > 1 && IsOptionWord(argv[argc - 1]))
            if (const CLI::Option* option = FindOption(chain, OptionName(argv[argc - 1])))
                return option->get_name() + " needs a value" + seeHelp;
    }
    return "the command line could not be read" + seeHelp;
}

}  // namespace krctl
