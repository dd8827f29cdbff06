// A host process that writes the stored files in a loop, for the crash and
// race tests: store_worker BASE MODE FOLDER NUMBER, with MODE
//   create   makes the records of NUMBER/0, NUMBER/1, ... in the main folder
//            FOLDER, prints each number once its record is made, then removes it
//   record   sets the visit count of the record in FOLDER to NUMBER+1,
//            NUMBER+2, ... and prints each value once it is written
//   login    saves the token "tok-N" of user anna of https://srv.example for
//            N = NUMBER, NUMBER+1, ... and prints N after each save
// These print "ready" first (login does not) and run until they are killed.
//   options-race, registry-race
//            NUMBER times, under one lock, reads the period of the options of
//            the data FOLDER (or the visit count of the one record, which the
//            first to come makes) and stores it plus one; then reads it back
//            without the lock and fails (exit 3) if it is below what it set

#include <cstdio>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "KRCB/LoginDataStore.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"

namespace {

using KRC::RegisteredProjects;
using KRC::registeredProjects;

KRC::ProjectConnectionInfo Info(const std::string& path) {
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl("https://srv.example.com");
    info.SetUserName("anna");
    info.SetProjectPath(ZR::UniString(path));
    return info;
}

IO::Location Loc(const std::string& path) {
    return IO::Location(ZR::UniString(path));
}

void Say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

// Runs step(N) for N = first, first + 1, ... and says each N after its step.
[[noreturn]] void Loop(long first, const std::function<void(long)>& step) {
    for (long n = first;; ++n) {
        step(n);
        Say(std::to_string(n));
    }
}

void SaveToken(long n) {
    using namespace KRCB::LoginDataStore;
    const ZR::UniString url("https://srv.example");
    LoginDataStoreCache& cache = LoginDataStoreCache::GetInstance();
    ZR::Ref<LoginDataStore> store = cache.GetLoginDataStoreCopy(OpenForWriting);
    if (!store->ContainsServer(url))
        store->StoreServer(Kerrow::PortalServer::Client::Management::ServerInfo(url, "Srv"), url,
                           ZR::UniString());
    store->AddUser(url, User("anna", ZR::UniString("tok-" + std::to_string(n)), "Anna"));
    cache.SaveToFile(*store);
}

// get and set run under the lock; get runs again without it afterwards.
int Race(long count, const std::function<long()>& get, const std::function<void(long)>& set) {
    for (long i = 0; i < count; ++i) {
        long written;
        {
            RegisteredProjects::Synchronizer guard;
            if (!RegisteredProjects::Synchronizer::IsLocked()) {
                std::fprintf(stderr, "store_worker: lock not taken\n");
                return 3;
            }
            written = get() + 1;
            set(written);
        }
        if (long seen = get(); seen < written) {
            std::fprintf(stderr, "store_worker: set %ld, read back %ld\n", written, seen);
            return 3;
        }
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: store_worker BASE MODE FOLDER NUMBER\n");
        return 2;
    }
    ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString(std::string("BaseFolder=") + argv[1])};
    KRC::InitKRClient(args);
    const std::string mode = argv[2], folder = argv[3], number = argv[4];
    if (mode == "login") Loop(std::stol(number), SaveToken);
    if (mode == "create") {
        Say("ready");
        Loop(0, [&](long i) {
            std::string made;
            {
                KRC::CachedProjectInfo record(Info(number + "/" + std::to_string(i)), Loc(folder));
                made = record.GetCacheFolderLocation().ToPath().Std();
            }
            std::filesystem::remove_all(made);
        });
    }
    if (mode == "record") {
        KRC::CachedProjectInfo record{Loc(folder)};
        Say("ready");
        Loop(std::stol(number) + 1,
             [&](long v) { record.SetVisitCount(static_cast<unsigned>(v)); });
    }
    RegisteredProjects::Init(Loc(folder), "Projects", "Libraries");
    IO::Location project;
    Info("/Shared/Race").ToKerrowLocation(&project);
    const bool options = mode == "options-race";
    if (!options && mode != "registry-race") return 2;
    int rc = Race(
        std::stol(number),
        [&] {
            return options ? registeredProjects.GetPeriodTime()
                           : static_cast<long>(registeredProjects.GetVisitCount(project));
        },
        [&](long v) {
            if (options) {
                registeredProjects.SetPeriodTime(static_cast<int>(v));
                return;
            }
            bool created = false;
            std::unique_ptr<KRC::CachedProjectInfo> record(
                registeredProjects.CreateCachedProjectInfo(project, created));
            registeredProjects.SetVisitCount(project, static_cast<unsigned>(v));
        });
    KRC::CloseKRClient();
    return rc;
}
