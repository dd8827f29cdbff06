// krctl: reads and changes a data folder with the library itself.

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>

#include "CommandLine.h"
#include "DataFolder.h"
#include "Doctor.h"
#include "KRClient/KRClient.h"
#include "Krctl.h"
#include "Network/Network.h"
#include "ZR/Exceptions.h"
#include "ZR/Logger.h"

namespace {

using namespace krctl;

const char* const kDescription =
    "krctl reads and changes a KRClient data folder with the library itself: cache\n"
    "records, the registry, its options and lock, and the login data. Global options\n"
    "may stand anywhere on the line; -- ends the options.";

// --json decides the form of errors, even those of parsing itself.
bool JsonRequested(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "--") == 0) return false;
        if (std::strcmp(argv[i], "--json") == 0) return true;
    }
    return false;
}

int ReportError(bool json, const std::string& message, int code) {
    if (json)
        std::fprintf(stderr, "%s\n", Dump(Json{{"error", message}, {"code", code}}).c_str());
    else
        std::fprintf(stderr, "krctl: %s\n", OneLine(message).c_str());
    return code;
}

// The log sink of --log-file, removed whichever way the command ends.
class LogFile {
public:
    explicit LogFile(const std::string& path) {
        if (path.empty()) return;
        sink = std::make_unique<ZR::FileLogSink>(path);
        if (!sink->IsOpen()) throw UsageError(FileFailure("cannot open log file", path, errno));
        ZR::logger.AddSink(sink.get());
    }
    ~LogFile() {
        if (sink) ZR::logger.RemoveSink(sink.get());
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

private:
    std::unique_ptr<ZR::FileLogSink> sink;
};

// The library is started for the command and stopped after it, also on failure.
class Library {
public:
    explicit Library(const GlobalOptions& options) {
        ZR::PagedArray<ZR::UniString, 8> arguments;
        if (!options.baseFolder.empty())
            arguments.Add(ZR::UniString("BaseFolder=" + options.baseFolder));
        KRC::InitKRClient(arguments);
    }
    ~Library() { KRC::CloseKRClient(); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

// A command that runs the library as a host may go without --base-folder and
// --data-folder: it then works in a private folder of its own, removed after
// it, and never in the user's real data.
class ScratchFolder {
public:
    explicit ScratchFolder(GlobalOptions& options) {
        if (!options.scratch || (!options.baseFolder.empty() && !options.dataFolder.empty()))
            return;
        std::error_code ec;
        std::filesystem::path base = std::filesystem::temp_directory_path(ec);
        if (ec) base = "/tmp";
        std::string pattern = (base / "krctl-XXXXXX").string();
        if (!mkdtemp(pattern.data())) throw Failure(FileFailure("cannot make", pattern, errno));
        path = pattern;
        if (options.baseFolder.empty()) options.baseFolder = path + "/base";
        if (options.dataFolder.empty()) {
            options.dataFolder = path + "/data";
            std::filesystem::create_directory(options.dataFolder, ec);
            if (ec) throw Failure(FileFailure("cannot make", options.dataFolder, ec.value()));
            chmod(options.dataFolder.c_str(), 0700);
        }
    }
    ~ScratchFolder() {
        std::error_code ec;
        if (!path.empty()) std::filesystem::remove_all(path, ec);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

private:
    std::string path;
};

// --data-folder names an existing folder; a mistyped one is never made, unless --create.
void CheckDataFolder(GlobalOptions& options) {
    if (options.dataFolder.empty()) return;
    options.dataFolder = AbsoluteFolder(options.dataFolder);
    struct stat st {};
    if (stat(options.dataFolder.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode))
            throw UsageError("--data-folder " + options.dataFolder + " is not a folder");
        return;
    }
    int error = errno;
    if (error != ENOENT || !options.create)
        throw UsageError(FileFailure("--data-folder", options.dataFolder, error) +
                         (error == ENOENT ? " (give --create to make it)" : ""));
    std::error_code ec;
    std::filesystem::create_directories(options.dataFolder, ec);
    if (ec) throw Failure(FileFailure("cannot make", options.dataFolder, ec.value()));
    chmod(options.dataFolder.c_str(), 0700);
}

}  // namespace

int main(int argc, char** argv) {
    const bool jsonErrors = JsonRequested(argc, argv);
    GlobalOptions options;
    Action action;

    CLI::App app{kDescription, "krctl"};
    app.set_version_flag("--version", "krctl " KRCTL_VERSION);
    app.require_subcommand(1);
    // Subcommands made after this hand the options they don't know to their parent.
    app.fallthrough();
    app.add_option("--base-folder", options.baseFolder,
                   "folder of the base client's own data (the login data)")
        ->type_name("DIR");
    app.add_option("--data-folder", options.dataFolder,
                   "folder given to the registry (holds KRDataOptions.xml); must exist")
        ->type_name("DIR");
    app.add_flag("--create", options.create, "make --data-folder if it does not exist");
    app.add_flag("--follow-options", options.followOptions,
                 "change the local data folder the options point at, even outside --data-folder");
    TakesFolderName(app.add_option("--project-cache", options.projectCache,
                                   "name of the project cache folder (default Projects)")
                        ->type_name("NAME"));
    TakesFolderName(app.add_option("--lib-cache", options.libCache,
                                   "name of the library cache folder (default Libraries)")
                        ->type_name("NAME"));
    TakesSeconds(app.add_option("--wait", options.waitSeconds,
                                "wait at most this long (up to a day) for the registry lock, "
                                "then fail with nothing changed")
                     ->type_name("SECONDS"),
                 86400);
    app.add_option("--log-file", options.logFile, "write every log line of the run there")
        ->type_name("FILE");
    app.add_flag("--json", options.json, "results as JSON on standard output, errors as JSON");
    app.add_option("--computer-name", options.computerName,
                   "act as the computer of this name toward the servers (emulate)")
        ->type_name("NAME");

    AddCacheCommands(app, options, &action);
    AddLoginCommands(app, options, &action);
    AddRegistryCommands(app, options, &action);
    AddOptionsCommands(app, options, &action);
    AddLockCommands(app, options, &action);
    AddDoctorCommand(app, options, &action);
    AddEmulateCommands(app, options, &action);
    AddMailCommands(app, options, &action);
    PrepareCommandLine(app);

    // krctl alone: how to use it.
    if (argc == 1) {
        std::fprintf(stderr, "%s", app.help().c_str());
        return kExitUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForVersion& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        return ReportError(jsonErrors, ParseErrorText(app, e, argc, argv), kExitUsage);
    } catch (const UsageError& e) {
        // A value refused while parsing.
        return ReportError(jsonErrors, e.what(), kExitUsage);
    }

    try {
        if (!options.baseFolder.empty()) options.baseFolder = AbsoluteFolder(options.baseFolder);
        // As --data-folder: naming a file is a usage mistake, not a failure of the library.
        if (struct stat st{}; stat(options.baseFolder.c_str(), &st) == 0 && !S_ISDIR(st.st_mode))
            throw UsageError("--base-folder " + options.baseFolder + " is not a folder");
        CheckDataFolder(options);
        ScratchFolder scratch(options);
        if (!options.computerName.empty())
            Network::SetClientComputerName(ZR::UniString(options.computerName));
        LogFile log(options.logFile);
        // A command that only reads leaves an absent base folder absent.
        std::optional<Library> library;
        if (LibraryNeeded(options)) library.emplace(options);
        if (!action) throw UsageError("no command given");
        return action();
    } catch (const UsageError& e) {
        return ReportError(jsonErrors, e.what(), kExitUsage);
    } catch (const Failure& e) {
        return ReportError(jsonErrors, e.what(), kExitFailed);
    } catch (const ZR::ZRException& e) {
        return ReportError(jsonErrors, e.GetName().Std() + ": " + e.GetMessage().Std(),
                           kExitFailed);
    } catch (const std::exception& e) {
        return ReportError(jsonErrors, e.what(), kExitFailed);
    }
}
