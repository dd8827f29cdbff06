#pragma once
// Base of tests that start the library: a temporary folder of their own, the
// base client's data in it, and a capture of every log line.

#include <gtest/gtest.h>

#include <string>

#include "Support/TempFolder.h"
#include "ZR/Logger.h"

namespace krtest {

class LibraryTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::string BaseFolder() const { return temp.Sub("base"); }
    bool Logged(const std::string& text) const {
        return log.GetText().find(text) != std::string::npos;
    }

    TempFolder temp;
    ZR::CaptureLogSink log;
};

}  // namespace krtest
