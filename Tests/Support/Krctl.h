#pragma once
// Base of tests that run krctl as a real process, the way a user does, with
// its folders in a temporary folder of the test. KRCTL_PATH names the program.

#include <gtest/gtest.h>

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
    std::string Base() const { return temp.Sub("base"); }
    std::string Data() const { return temp.Sub("data"); }
    std::string Log() const { return temp.Sub("krctl.log"); }

    TempFolder temp;
    std::vector<std::string> globals{"--base-folder", Base(), "--log-file", Log()};
};

}  // namespace krtest
