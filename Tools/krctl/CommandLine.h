#pragma once
// The command line layer of krctl: checks of option values while parsing, and
// the one line a mistake on the line gets. A word that was not expected is
// named by its position, and a refused value is never repeated: either may be
// a password or token typed in the wrong place.

#include <CLI/CLI.hpp>
#include <string>

namespace krctl {

// Run on the whole tree once every command is added: the exit codes in every
// help, and on every option that takes a value the checks that the value is no
// option ("--main-folder --server X") and, unless empty means "none", not empty.
void PrepareCommandLine(CLI::App& app);

// The option takes the name of a folder in the data folder, not a path.
CLI::Option* TakesFolderName(CLI::Option* option);
// The option takes a number of seconds from 0 to max.
CLI::Option* TakesSeconds(CLI::Option* option, double max);

// The one line for a parse of argv that app refused with error; built from what
// the parser recorded (which command, which option, which word is left over),
// never from the parser's own text. May parse argv once more.
std::string ParseErrorText(CLI::App& app, const CLI::ParseError& error, int argc,
                           const char* const* argv);

}  // namespace krctl
