// A host process that writes the stored files of the local project store in
// a loop, for the crash and race tests:
//   store_worker BASE create MAIN_FOLDER PREFIX
//       makes the records of PREFIX/0, PREFIX/1, ... in MAIN_FOLDER, prints
//       each number once its record is made, then removes its folder
//   store_worker BASE record CACHE_FOLDER START
//       sets the visit count of the record to START+1, START+2, ... and
//       prints each value once it is written
//   store_worker BASE options DATA_FOLDER START
//       the same with the period of the options, each set under the lock
//   store_worker BASE options-race DATA_FOLDER COUNT
//   store_worker BASE registry-race DATA_FOLDER COUNT
//       COUNT times, under one lock, reads the period of the options (or the
//       visit count of the one record, which the first to come makes) and
//       stores it plus one; then reads it back without the lock and fails
//       (exit 3) if it is below what it set
// The loops print "ready" first and run until they are killed.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

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

void StartRegistry(const std::string& data) {
    RegisteredProjects::Init(Loc(data), "Projects", "Libraries");
}

int Create(const std::string& main, const std::string& prefix) {
    Say("ready");
    for (long i = 0;; ++i) {
        std::string folder;
        {
            KRC::CachedProjectInfo record(Info(prefix + "/" + std::to_string(i)), Loc(main));
            folder = record.GetCacheFolderLocation().ToPath().Std();
        }
        Say(std::to_string(i));
        std::filesystem::remove_all(folder);
    }
}

int Record(const std::string& folder, unsigned start) {
    KRC::CachedProjectInfo record{Loc(folder)};
    Say("ready");
    for (unsigned v = start + 1;; ++v) {
        record.SetVisitCount(v);
        Say(std::to_string(v));
    }
}

int Options(const std::string& data, int start) {
    StartRegistry(data);
    Say("ready");
    for (int v = start + 1;; ++v) {
        registeredProjects.SetPeriodTime(v);
        Say(std::to_string(v));
    }
}

// get and set run under the lock; get runs again without it afterwards.
template <typename Get, typename Set>
int Race(long count, Get get, Set set) {
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
    int rc = 2;
    if (mode == "create") {
        rc = Create(folder, number);
    } else if (mode == "record") {
        rc = Record(folder, static_cast<unsigned>(std::stoul(number)));
    } else if (mode == "options") {
        rc = Options(folder, std::stoi(number));
    } else if (mode == "options-race") {
        StartRegistry(folder);
        rc = Race(
            std::stol(number), [] { return static_cast<long>(registeredProjects.GetPeriodTime()); },
            [](long v) { registeredProjects.SetPeriodTime(static_cast<int>(v)); });
    } else if (mode == "registry-race") {
        StartRegistry(folder);
        IO::Location project;
        Info("/Shared/Race").ToKerrowLocation(&project);
        rc = Race(
            std::stol(number),
            [&] { return static_cast<long>(registeredProjects.GetVisitCount(project)); },
            [&](long v) {
                bool created = false;
                std::unique_ptr<KRC::CachedProjectInfo> record(
                    registeredProjects.CreateCachedProjectInfo(project, created));
                registeredProjects.SetVisitCount(project, static_cast<unsigned>(v));
            });
    }
    KRC::CloseKRClient();
    return rc;
}
