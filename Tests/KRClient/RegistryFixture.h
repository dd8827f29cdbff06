#pragma once
// Fixture of the local project store's tests: the library started in a temp
// folder, the registry and the options brought back to their load state
// before and after each test, and helpers to lay out cache folders by hand.

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "KRClient/CacheInfoFileBuilder.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "KRClient/RegisteredProjects.h"
#include "Support/LibraryTest.h"

namespace krtest {

// Counts records written and collects file errors while it lives.
class EventRecorder : public KRC::CachedProjectInfoObserver, public KRC::KRCFileErrorObserver {
public:
    EventRecorder() {
        KRC::cachedProjectInfoObserver.Attach(*this);
        KRC::krcFileErrorEventSource.Attach(*this);
    }
    ~EventRecorder() override {
        KRC::cachedProjectInfoObserver.Detach(*this);
        KRC::krcFileErrorEventSource.Detach(*this);
    }
    void ContentWrittenToDisc(const KRC::CachedProjectInfo*) override { ++writes; }
    void FileOperationFailed(KRC::FileError error, const IO::Location& location) override {
        errors.push_back({error, location.ToPath().Std()});
    }
    // True if anything was reported, all of it failures to open or write path.
    bool ReportedWriteOf(const std::string& path) const {
        for (const auto& [error, where] : errors)
            EXPECT_TRUE(where == path && error != KRC::FileReadingFailed) << error << " " << where;
        return !errors.empty();
    }
    int writes = 0;
    std::vector<std::pair<KRC::FileError, std::string>> errors;
};

inline KRC::ProjectConnectionInfo Info(const char* server, const char* path, const char* user,
                                       const char* token = "") {
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl(server);
    info.SetProjectPath(path);
    info.SetUserName(user);
    info.SetRefreshToken(token);
    return info;
}

class RegistryTest : public LibraryTest {
protected:
    void SetUp() override {
        LibraryTest::SetUp();
        KRC::RegisteredProjects::ResetForTesting();
    }
    void TearDown() override {
        KRC::RegisteredProjects::ResetForTesting();
        LibraryTest::TearDown();
    }

    std::string Data() const { return temp.Sub("data"); }
    std::string Projects() const { return Data() + "/Projects"; }
    std::string OptionsFile() const { return Data() + "/KRDataOptions.xml"; }
    std::string LockFile() const { return Data() + "/@DataOptions.Lock"; }

    void Init() { KRC::RegisteredProjects::Init(Loc(Data()), "Projects", "Libraries"); }

    static IO::Location Project(const char* server, const char* path, const char* user) {
        IO::Location location;
        return Info(server, path, user).ToKerrowLocation(&location);
    }

    // The registry's record and cache folder of a project.
    static const KRC::CachedProjectInfo* Find(const std::string& path, const std::string& user,
                                              const char* server = "https://srv.example") {
        return KRC::registeredProjects.GetCachedProjectInfo(
            Project(server, path.c_str(), user.c_str()));
    }
    static IO::Location FolderOf(const std::string& path, const std::string& user,
                                 const char* server = "https://srv.example") {
        return KRC::registeredProjects.GetCacheDataFolder(
            Project(server, path.c_str(), user.c_str()));
    }
};

}  // namespace krtest
