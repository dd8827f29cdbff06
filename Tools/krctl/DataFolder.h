#pragma once
// What krctl looks at before it starts the library on a data folder. The
// library retries a file it can't open and makes what is missing, which is
// right for a host and wrong for a support tool: a command that only reads
// must create nothing, one that can't open a file must say so at once, and
// none may reach past the folder it was given without saying so.

#include <memory>
#include <string>
#include <vector>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "Krctl.h"

namespace krctl {

// text with control characters escaped (\n, \x1b) and cut after max bytes,
// so that one hostile name never breaks a line of output.
std::string Printable(const std::string& text, std::size_t max = 256);
inline std::string Printable(const Json& text, std::size_t max = 256) {
    return Printable(text.get<std::string>(), max);
}

// Why a record or other small file can't be opened ("Permission denied",
// "not a regular file"), without the library's retries; empty if it opens.
std::string RecordOpenProblem(const std::string& file);

// The data folder as the options file describes it, found by reading only.
struct DataFolderView {
    std::string optionsFile;
    bool optionsPresent = false;        // a file with content
    KRC::KRDataOptions::Values values;  // when optionsPresent
    std::string localDataFolder;  // where the registry lives: the options' value, or the folder
    bool outside = false;         // localDataFolder lies outside --data-folder
    bool localPresent = false;    // localDataFolder is a folder
    std::string projectsFolder;   // the main project cache folder
};

enum class Access { Read, Change };

// Checks the options file and the folders a command needs before the library
// starts, and throws Failure with one line naming the file and the reason.
// Tells on standard error when the options lead outside the data folder, and
// refuses a change there unless --follow-options.
DataFolderView CheckDataFolderBeforeStart(const GlobalOptions& options, Access access);

// The records of a main project cache folder, read one by one as the registry
// reads them; those that can't be read are counted, not hidden.
struct RecordWalk {
    std::vector<std::unique_ptr<KRC::CachedProjectInfo>> records;
    std::vector<std::string> unreadable;  // cache folders
};
RecordWalk WalkRecords(const std::string& projectsFolder);
// The records of the data folder, read one by one as the registry reads them
// but without its start, which would make the folders it misses; a note tells
// how many could not be read.
RecordWalk ReadRecords(const GlobalOptions& options);

// Why the login data file of the base folder is refused by its reader (too
// large, nested too deep, not its form); empty if it is absent or readable.
std::string LoginDataProblem(const std::string& baseFolder);
// The login data file of a base folder.
std::string LoginDataFile(const std::string& baseFolder);

// Whether main starts the library: not for a command that only reads when
// the base folder is absent, since its start would make the folder.
bool LibraryNeeded(const GlobalOptions& options);

}  // namespace krctl
