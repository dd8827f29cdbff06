// krctl: reads and changes a data folder with the library itself.

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "KRClient/Internal/ServerUrl.h"
#include "KRClient/KRClient.h"
#include "Krctl.h"
#include "ZR/Exceptions.h"
#include "ZR/Logger.h"

namespace krctl {

bool TakeOption(std::vector<std::string>& args, const std::string& name, std::string* value) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == name) {
            if (i + 1 >= args.size()) throw UsageError("option " + name + " needs a value");
            *value = args[i + 1];
            args.erase(args.begin() + static_cast<std::ptrdiff_t>(i),
                       args.begin() + static_cast<std::ptrdiff_t>(i) + 2);
            return true;
        }
        if (args[i].rfind(name + "=", 0) == 0) {
            *value = args[i].substr(name.size() + 1);
            args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
            return true;
        }
    }
    return false;
}

bool TakeFlag(std::vector<std::string>& args, const std::string& name) {
    for (std::size_t i = 0; i < args.size(); ++i)
        if (args[i] == name) {
            args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
            return true;
        }
    return false;
}

void ExpectNoMore(const std::vector<std::string>& args) {
    if (!args.empty()) throw UsageError("unexpected argument '" + args.front() + "'");
}

long long ParseNumber(const std::string& text, long long min, long long max) {
    errno = 0;
    char* end = nullptr;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno == ERANGE || v < min || v > max)
        throw UsageError("'" + text + "' is not a number from " + std::to_string(min) + " to " +
                         std::to_string(max));
    return v;
}

bool ParseBool(const std::string& text) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    throw UsageError("'" + text + "' is not true or false");
}

void CheckServerUrl(const std::string& url) {
    if (KRC::ServerUrlHasUserInfo(ZR::UniString(url)))
        throw UsageError(
            "the server URL holds a user name or password; give the server without them (users "
            "and their tokens go in with 'login add-user')");
}

}  // namespace krctl

namespace {

const char* const kUsage =
    "usage: krctl [--base-folder DIR] [--log-file FILE] [--json] [--data-folder DIR]\n"
    "             [--project-cache NAME] [--lib-cache NAME] COMMAND ...\n"
    "commands:\n"
    "  cache create --main-folder DIR --server URL --path PATH --user NAME [--token T]\n"
    "  cache show CACHE_FOLDER\n"
    "  cache set CACHE_FOLDER FIELD VALUE\n"
    "  login list | add-server URL [--name FRIENDLY] | add-user URL USER [--token T] [--full-name "
    "N]\n"
    "        | set-active URL USER\n"
    "  registry list [--user U] [--server URL] | find --server URL --user U --path P\n"
    "        | set PROPERTY [VALUE] --server URL --user U --path P      (these need "
    "--data-folder)\n"
    "  options show | set FIELD VALUE                                  (needs --data-folder)\n"
    "  lock hold --seconds N                                           (needs --data-folder)\n"
    "Each command takes --help. With --json, bytes that are not UTF-8 are written as U+FFFD.\n";

}  // namespace

int main(int argc, char** argv) {
    using namespace krctl;
    std::vector<std::string> args(argv + 1, argv + argc);
    GlobalOptions options;
    std::unique_ptr<ZR::FileLogSink> logSink;
    try {
        if (args.empty() || args.front() == "--help" || args.front() == "-h") {
            std::fputs(kUsage, args.empty() ? stderr : stdout);
            return args.empty() ? 2 : 0;
        }
        // Global options stand before the command.
        while (!args.empty() && args.front().rfind("--", 0) == 0) {
            std::string opt = args.front();
            if (opt == "--json") {
                options.json = true;
                args.erase(args.begin());
                continue;
            }
            std::string* target = nullptr;
            std::string key = opt.substr(0, opt.find('='));
            if (key == "--base-folder")
                target = &options.baseFolder;
            else if (key == "--log-file")
                target = &options.logFile;
            else if (key == "--data-folder")
                target = &options.dataFolder;
            else if (key == "--project-cache")
                target = &options.projectCache;
            else if (key == "--lib-cache")
                target = &options.libCache;
            else
                throw UsageError("unknown option '" + opt + "'");
            std::size_t before = args.size();
            TakeOption(args, key, target);
            if (args.size() == before) throw UsageError("option " + key + " needs a value");
        }
        if (args.empty()) throw UsageError("no command given");
        // Folders are shown and stored as absolute paths, whatever the caller's working folder.
        for (std::string* folder : {&options.baseFolder, &options.dataFolder})
            if (!folder->empty())
                *folder = std::filesystem::absolute(*folder).lexically_normal().string();
        // --json may also follow the command.
        if (TakeFlag(args, "--json")) options.json = true;

        if (!options.logFile.empty()) {
            logSink = std::make_unique<ZR::FileLogSink>(options.logFile);
            if (!logSink->IsOpen())
                throw UsageError("cannot open log file '" + options.logFile + "'");
            ZR::logger.AddSink(logSink.get());
        }

        ZR::PagedArray<ZR::UniString, 8> initArgs;
        if (!options.baseFolder.empty())
            initArgs.Add(ZR::UniString("BaseFolder=" + options.baseFolder));
        KRC::InitKRClient(initArgs);

        std::string command = args.front();
        args.erase(args.begin());
        int rc;
        if (command == "cache")
            rc = RunCacheCommand(options, args);
        else if (command == "login")
            rc = RunLoginCommand(options, args);
        else if (command == "registry")
            rc = RunRegistryCommand(options, args);
        else if (command == "options")
            rc = RunOptionsCommand(options, args);
        else if (command == "lock")
            rc = RunLockCommand(options, args);
        else
            throw UsageError("unknown command '" + command + "'");

        KRC::CloseKRClient();
        if (logSink) ZR::logger.RemoveSink(logSink.get());
        return rc;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "krctl: %s\n", e.what());
        if (logSink) ZR::logger.RemoveSink(logSink.get());
        return 2;
    } catch (const ZR::ZRException& e) {
        std::fprintf(stderr, "krctl: %s: %s\n", e.GetName().ToCString(),
                     e.GetMessage().ToCString());
        if (logSink) ZR::logger.RemoveSink(logSink.get());
        return 1;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "krctl: %s\n", e.what());
        if (logSink) ZR::logger.RemoveSink(logSink.get());
        return 1;
    }
}
