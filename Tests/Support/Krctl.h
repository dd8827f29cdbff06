#pragma once
// Base of tests that run krctl as a real process, the way a user does, with
// its folders in a temporary folder of the test. KRCTL_PATH names the program.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Support/Process.h"
#include "Support/TempFolder.h"

namespace krtest {

class KrctlRun : public ::testing::Test {
protected:
    // The program, the options every run of the test gets, then args.
    std::vector<std::string> Krctl(const std::vector<std::string>& args) const {
        std::vector<std::string> argv{KRCTL_PATH};
        argv.insert(argv.end(), globals.begin(), globals.end());
        argv.insert(argv.end(), args.begin(), args.end());
        return argv;
    }
    ProcessResult Run(const std::vector<std::string>& args) const {
        return RunProcess(Krctl(args));
    }
    // With input on its standard input.
    ProcessResult Run(const std::vector<std::string>& args, const std::string& input) const {
        return RunProcess(Krctl(args), input);
    }
    // Every path under folder with its mode, size and modification time.
    static std::map<std::string, std::string> Snapshot(const std::string& folder) {
        std::map<std::string, std::string> files;
        for (const auto& e : std::filesystem::recursive_directory_iterator(folder)) {
            struct stat st {};
            lstat(e.path().c_str(), &st);
            files[e.path().string()] =
                std::to_string(st.st_mode) + "/" + std::to_string(st.st_size) + "/" +
                std::to_string(st.st_mtim.tv_sec) + "." + std::to_string(st.st_mtim.tv_nsec);
        }
        return files;
    }
    std::string Base() const { return temp.Sub("base"); }
    std::string Data() const { return temp.Sub("data"); }
    std::string Log() const { return temp.Sub("krctl.log"); }

    TempFolder temp;
    std::vector<std::string> globals{"--base-folder", Base(), "--log-file", Log()};
};

}  // namespace krtest
