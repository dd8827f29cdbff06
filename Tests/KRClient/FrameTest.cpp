#include <gtest/gtest.h>

#include "KRClient/KRClient.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "Support/TempFolder.h"

namespace {

TEST(FrameTest, ToStringPrintsTheWholeChain) {
    ZR::IllegalArgumentException root("bad value", "root.cpp", 3, -50);
    KRC::FileOpeningError middle;  // no message, no position
    middle.SetCause(root);
    KRC::KRClientException top("Failed to open", "top.cpp", 42, middle);
    EXPECT_EQ(top.GetErrorCode(), -7003);
    EXPECT_EQ(KRC::ToString(top).Std(),
              "\nException: KRClientException: Failed to open\n\tat top.cpp(42)"
              "\nCaused by: ZRException\n\tat (null)(0)"
              "\nCaused by: IllegalArgumentException: bad value\n\tat root.cpp(3)");

    // Copies own copies of the chain; Clone gives one of the right class.
    ZR::ZRException copy(top);
    EXPECT_NE(copy.GetCause(), top.GetCause());
    EXPECT_EQ(copy.GetCause()->GetCause()->GetErrorCode(), -50);
    std::unique_ptr<ZR::ZRException> clone(top.Clone());
    EXPECT_EQ(KRC::ToString(*clone), KRC::ToString(top));
    EXPECT_NE(dynamic_cast<KRC::KRClientException*>(clone.get()), nullptr);
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
}

}  // namespace
