// A private copy caught inside its own update must not leave the registry's
// record in an update that nobody ends.

#include <gtest/gtest.h>

#include <memory>

#include "KRClient/RegistryFixture.h"

namespace {

class WriteCount : public KRC::CachedProjectInfoObserver {
public:
    WriteCount() { KRC::cachedProjectInfoObserver.Attach(*this); }
    ~WriteCount() override { KRC::cachedProjectInfoObserver.Detach(*this); }
    void ContentWrittenToDisc(const KRC::CachedProjectInfo*) override { ++writes; }
    int writes = 0;
};

class RegistryWriteBackTest : public krtest::RegistryTest {};

TEST_F(RegistryWriteBackTest, ForcedWriteInsideACopysUpdateLeavesTheRegistryWriting) {
    Init();
    IO::Location project = Project("https://srv", "/A/P", "anna");
    bool created = false;
    std::unique_ptr<KRC::CachedProjectInfo> copy(KRC::registeredProjects.CreateCachedProjectInfo(project, created));
    ASSERT_TRUE(copy && created);
    copy->BeginUpdate();
    copy->SetSessionId("s1");
    copy->WriteToDisc();  // the registry's record takes this content

    KRC::registeredProjects.SetVisitCount(project, 7);
    KRC::CachedProjectInfo onDisc(copy->GetCacheFolderLocation());
    EXPECT_EQ(onDisc.GetVisitCount(), 7u);
    EXPECT_EQ(onDisc.GetSessionId(), "s1");

    WriteCount count;
    KRC::registeredProjects.RemoveProject(project);  // memory only
    EXPECT_EQ(count.writes, 0);
    EXPECT_EQ(KRC::registeredProjects.GetCachedProjectInfo(project), nullptr);
    copy->EndUpdate();
}

}  // namespace
