#include <gtest/gtest.h>

#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "Support/TempFolder.h"
#include "ZR/Debug.h"

namespace {

TEST(FrameTest, ToStringPrintsTheWholeChain) {
    ZR::IllegalArgumentException root("bad value", "root.cpp", 3, -50);
    KRC::FileOpeningError middle;  // no message, no position
    middle.SetCause(root);
    KRC::KRClientException top("Failed to open", "top.cpp", 42, middle);
    EXPECT_EQ(top.GetErrorCode(), -7003);

    std::string text = KRC::ToString(top).Std();
    EXPECT_EQ(text,
              "\nException: KRClientException: Failed to open\n\tat top.cpp(42)"
              "\nCaused by: ZRException\n\tat (null)(0)"
              "\nCaused by: IllegalArgumentException: bad value\n\tat root.cpp(3)");

    // Copies keep the chain; Clone gives an owned copy of the right class.
    std::unique_ptr<ZR::ZRException> clone(top.Clone());
    EXPECT_EQ(KRC::ToString(*clone), KRC::ToString(top));
    EXPECT_NE(dynamic_cast<KRC::KRClientException*>(clone.get()), nullptr);

    static std::string debugText;
    debugText.clear();
    ZR::SetDebugOutput([](const std::string& t) { debugText += t; });
    KRC::DebugPrintEx(top);
    ZR::SetDebugOutput(nullptr);
    EXPECT_EQ(debugText, text + "\n");
}

TEST(FrameTest, FileExceptionsCarryTheirLocation) {
    KRC::ErrorWritingFile none;
    EXPECT_EQ(none.GetFileLocationString(), "");
    EXPECT_EQ(none.GetErrorCode(), -7003);
    KRC::ErrorReadingFile withFile(IO::Location(ZR::UniString("/tmp/x/CacheInfo.xml")));
    EXPECT_EQ(withFile.GetFileLocationString(), "/tmp/x/CacheInfo.xml");
    EXPECT_EQ(withFile.GetName(), "ZRException");
}

class Recorder : public KRC::KRCFileErrorObserver {
public:
    void FileOperationFailed(KRC::FileError error, const IO::Location& location) override {
        calls.emplace_back(error, location.ToPath().Std());
    }
    std::vector<std::pair<KRC::FileError, std::string>> calls;
};

TEST(FrameTest, FileFailuresAtTheEdgeBecomeEvents) {
    KRC::krcFileErrorEventSource.SendFileOperationFailed(KRC::FileReadingFailed, IO::Location());  // nobody listens
    Recorder recorder;
    KRC::krcFileErrorEventSource.Attach(recorder);
    IO::Location where(ZR::UniString("/data/KRDataOptions.xml"));
    EXPECT_FALSE(KRC::ReportFileFailures([&] { throw KRC::ErrorWritingFile(where); }));
    EXPECT_TRUE(KRC::ReportFileFailures([] {}));
    KRC::krcFileErrorEventSource.Detach(recorder);
    ASSERT_EQ(recorder.calls.size(), 1u);
    EXPECT_EQ(recorder.calls[0].first, KRC::FileWritingFailed);
    EXPECT_EQ(recorder.calls[0].second, "/data/KRDataOptions.xml");
}

TEST(FrameTest, StartResultSwitchesTheCachedProjectCheck) {
    krtest::TempFolder temp;
    krtest::WriteFile(temp.Sub("not-a-folder"), "x");
    ZR::PagedArray<ZR::UniString, 8> bad{ZR::UniString("BaseFolder=" + temp.Sub("not-a-folder"))};
    KRC::InitKRClient(bad);
    EXPECT_FALSE(KRC::UI::CachedProjectCheckTask::IsEnabled());
    KRC::CloseKRClient();

    ZR::PagedArray<ZR::UniString, 8> good{ZR::UniString("BaseFolder=" + temp.Sub("base"))};
    KRC::InitKRClient(good);
    EXPECT_TRUE(KRC::UI::CachedProjectCheckTask::IsEnabled());
    KRC::CloseKRClient();

    EXPECT_TRUE(KRC::FileExist(IO::Location(ZR::UniString(temp.Sub("not-a-folder")))));
    EXPECT_FALSE(KRC::FileExist(IO::Location(ZR::UniString(temp.Sub("nothing")))));
}

}  // namespace
