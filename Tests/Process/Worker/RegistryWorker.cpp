// A host process for the cross-process tests:
//   registry_worker BASE_FOLDER DATA_FOLDER ROUNDS PROJECTS
// Each round takes every project in turn and, under one lock, makes its
// record if there is none and adds one to its visit count.

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: registry_worker BASE_FOLDER DATA_FOLDER ROUNDS PROJECTS\n");
        return 2;
    }
    ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString(std::string("BaseFolder=") + argv[1])};
    KRC::InitKRClient(args);
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(argv[2])), "Projects", "Libraries");
    int rounds = std::atoi(argv[3]);
    int projects = std::atoi(argv[4]);
    for (int round = 0; round < rounds; ++round) {
        for (int p = 0; p < projects; ++p) {
            KRC::ProjectConnectionInfo info;
            info.SetServerUrl("https://srv.example.com");
            info.SetUserName("anna");
            info.SetProjectPath(ZR::UniString("/Shared/Project " + std::to_string(p)));
            IO::Location location;
            info.ToKerrowLocation(&location);

            KRC::RegisteredProjects::Synchronizer lock;
            bool created = false;
            std::unique_ptr<KRC::CachedProjectInfo> record(
                KRC::registeredProjects.CreateCachedProjectInfo(location, created));
            if (!record) {
                std::fprintf(stderr, "registry_worker: no record for project %d\n", p);
                return 1;
            }
            unsigned visits = KRC::registeredProjects.GetVisitCount(location);
            KRC::registeredProjects.SetVisitCount(location, visits + 1);
        }
    }
    KRC::CloseKRClient();
    return 0;
}
