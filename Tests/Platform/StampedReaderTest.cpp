#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/StampedFile.h"
#include "Support/TempFolder.h"

namespace {

using IO::StampedReader;

// One buffer serves files of any size in any order; each read gives exactly
// the file's bytes and the stamp the file layer reports for it.
TEST(StampedReaderTest, ReadsEachFileWholeWithItsStampWhateverCameBefore) {
    krtest::TempFolder temp;
    const std::vector<std::pair<std::string, std::string>> files = {
        {"big", std::string(100000, 'b') + "end"},
        {"small", "abc"},
        {"empty", ""},
        {"middle", std::string(5000, 'm')},
        {"over", std::string(200001, 'o')}};
    std::vector<std::string> paths;
    for (const auto& [name, content] : files) {
        krtest::WriteFile(temp.Sub(name), content);
        paths.push_back(temp.Sub(name));
    }
    std::filesystem::create_directories(temp.Sub("folder"));
    paths.push_back(temp.Sub("folder"));
    paths.push_back(temp.Sub("missing"));

    for (auto policy : {StampedReader::ReadAhead::kNever, StampedReader::ReadAhead::kAlways}) {
        StampedReader::SetReadAheadPolicy(policy);
        StampedReader reader(paths, 200000);
        for (std::size_t i = 0; i + 1 < files.size(); ++i) {
            IO::FileStamp stamp;
            ASSERT_EQ(reader.Read(i, &stamp), IO::kOk) << files[i].first;
            EXPECT_EQ(std::string(reader.GetData(), reader.GetSize()), files[i].second);
            IO::File file(IO::Location(ZR::UniString(paths[i])));
            std::uint64_t change = 0;
            std::int32_t time = 0;
            ASSERT_EQ(file.GetChangeStamp(&change), IO::kOk);
            ASSERT_EQ(file.GetModificationTime(&time), IO::kOk);
            EXPECT_EQ(stamp.changeStamp, change);
            EXPECT_EQ(stamp.modificationTime, time);
        }
        IO::FileStamp stamp;
        EXPECT_EQ(reader.Read(files.size() - 1, &stamp), IO::kErrTooLarge);
        EXPECT_EQ(reader.Read(files.size(), &stamp), IO::kErrIsAFolder);
        EXPECT_EQ(reader.Read(files.size() + 1, &stamp), IO::kErrNotFound);
    }
    StampedReader::SetReadAheadPolicy(StampedReader::ReadAhead::kAdaptive);
}

}  // namespace
