// The smallest host: start the library, make one cached project record in the
// folder given, stop. Built against an installed KRClient by CMake and by pkg-config.
#include <cstdio>
#include <string>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "ZR/Ref.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];
    KRC::InitKRClient({ZR::UniString("BaseFolder=" + folder + "/base")});

    KRC::ProjectConnectionInfo project;
    project.SetServerUrl("https://design.example.com");
    project.SetProjectPath("/Housing/Tower A");
    project.SetUserName("anna");
    KRC::CachedProjectInfo record(project, IO::Location(ZR::UniString(folder + "/Projects")));
    std::printf("%s\n", record.GetLocalFolderName().GetUniString().ToCString());

    // The library's exceptions are caught by their type outside the shared object.
    int caught = 0;
    try {
        ZR::Ref<int> none;
        (void)*none;
    } catch (const ZR::NullReferenceException&) {
        caught = 1;
    }
    KRC::CloseKRClient();
    return caught ? 0 : 1;
}
