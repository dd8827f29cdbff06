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
#include "KRClient/KRClientExceptions.h"
#include "KRClient/KRDataOptions.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "KRClient/RegisteredProjects.h"
#include "Support/LibraryTest.h"

namespace krtest {

class FileErrorRecorder : public KRC::KRCFileErrorObserver {
public:
    FileErrorRecorder() { KRC::krcFileErrorEventSource.Attach(*this); }
    ~FileErrorRecorder() override { KRC::krcFileErrorEventSource.Detach(*this); }
    void FileOperationFailed(KRC::FileError error, const IO::Location& location) override {
        errors.push_back({error, location.ToPath().Std()});
    }
    std::vector<std::pair<KRC::FileError, std::string>> errors;
};

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

    static IO::Location Loc(const std::string& path) { return IO::Location(ZR::UniString(path)); }
    std::string Data() const { return temp.Sub("data"); }
    std::string Projects() const { return Data() + "/Projects"; }
    std::string OptionsFile() const { return Data() + "/KRDataOptions.xml"; }
    std::string LockFile() const { return Data() + "/@DataOptions.Lock"; }

    void Init() { KRC::RegisteredProjects::Init(Loc(Data()), "Projects", "Libraries"); }

    static IO::Location Project(const std::string& server, const std::string& path, const std::string& user) {
        KRC::ProjectConnectionInfo info;
        info.SetServerUrl(server);
        info.SetProjectPath(path);
        info.SetUserName(user);
        IO::Location location;
        return info.ToKerrowLocation(&location);
    }

    // A cache folder with a hand-written "CacheInfo.xml"; answers the folder.
    std::string WriteCache(const std::string& main, const std::string& name, const std::string& server,
                           const std::string& path, const std::string& user,
                           std::map<std::string, std::string> more = {}) const {
        std::string folder = main + "/" + name;
        std::filesystem::create_directories(folder);
        more["PortalServerUrl"] = server;
        more["ProjectPath"] = path;
        more["LoginName"] = user;
        WriteFile(folder + "/CacheInfo.xml", BuildCacheInfoXml(10, std::move(more)));
        return folder;
    }

    static std::size_t Count(KRC::RegisteredProjects::ProjectConstIterator it) {
        std::size_t n = 0;
        for (; it != nullptr; ++it) ++n;
        return n;
    }
};

}  // namespace krtest
