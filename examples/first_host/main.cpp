// A first host: it starts the library on a folder of its own, lists the
// projects cached there, logs a user in and opens a project. The server is
// the service emulator (KRClient::Emulator), as in a host's own tests; a
// product installs a network transport in its place.
// Usage: first_host FOLDER
#include <cstdio>
#include <string>
#include <thread>

#include "Emulator/Service.h"
#include "KRCB/KRClientBase.h"
#include "KRCB/Paths.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/KRClient.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/RegisteredProjects.h"
#include "KRClient/UserInterface/Login/AsyncLoginTaskEventHandler.h"
#include "KRClient/UserInterface/Login/LoginTask.h"
#include "ZR/MessageLoop.h"

namespace {

const char* const kServer = "https://design.example.com";
const char* const kProject = "/Housing/Tower A";

void ListCachedProjects() {
    int count = 0;
    for (KRC::RegisteredProjects::ProjectConstIterator it; it != nullptr; ++it, ++count)
        std::printf("  %s %s (user %s)\n", it->GetServerUrl().ToCString(),
                    it->GetProjectPath().ToCString(), it->GetUserName().ToCString());
    std::printf("  %d cached project(s)\n", count);
}

// The server's state: one user who may read and write one project.
void FillServer(Emulator::Service& service) {
    service.AddServer({.url = kServer, .friendlyName = "Design office"});
    service.AddUser(kServer, {.login = "anna", .password = "anna-secret", .fullName = "Anna Berg"});
    service.AddModelServer(kServer, {.id = "ms-1", .path = "/modelservers/ms-1"});
    service.AddFolder(kServer, "/Housing");
    service.AddProject(kServer, {.path = kProject,
                                 .modelServer = "ms-1",
                                 .permissions = {{"anna", {"ReadProject", "WriteProject"}}}});
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    const std::string folder = argv[1];

    // 1. Start: the base client keeps its login data in BaseFolder. A folder
    //    that can't be made doesn't stop the start; the base client says why.
    KRC::InitKRClient({ZR::UniString("BaseFolder=" + folder + "/base")});
    if (!KRCB::GetBaseFolderProblem().IsEmpty()) {
        std::fprintf(stderr, "%s\n", KRCB::GetBaseFolderProblem().ToCString());
        return 1;
    }
    // The data folder and the names of its two cache folders.
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(folder + "/data")), "Projects",
                                  "Libraries");
    ZR::MessageLoop::Scope loop;  // results of the library's threads land here

    std::printf("Cached projects:\n");
    ListCachedProjects();

    // 2. The server.
    Emulator::Service service;
    FillServer(service);
    service.Install();

    // 3. Log in: the task blocks a worker thread; the handler keeps the outcome.
    using namespace KRC::UI::Login;
    ILoginTaskEventHandler::Connection connection;
    auto* outcome = new AsyncLoginTaskEventHandler(connection);
    LoginTask task(kServer, "anna", "anna-secret", LoginTask::EventHandler(outcome), true, false);
    std::thread worker([&task] { task.Run(); });
    worker.join();
    if (outcome->GetConnectionStatus() != AsyncLoginTaskEventHandler::Connected) {
        std::fprintf(stderr, "login failed: status %d\n", outcome->GetConnectionStatus());
        return 1;
    }
    std::printf("Logged in as %s\n",
                connection->GetPortalServerClient()->GetUserName().ToCString());

    // 4. Open the project with the login's refresh token: the connection's
    //    constructor checks it and makes the cached record.
    IO::Location location;
    KRCB::CreateServerLocation(location, kServer, "anna",
                               connection->GetPortalServerClient()->GetRefreshToken());
    KRCB::SetProjectPath(location, kProject);
    KRC::ProjectConnectionBase::CheckResult result;
    {
        KRC::ClientProjectConnectionManager manager(location, true);
        ZR::Ref<KRC::ReadProjectConnection> read(new KRC::ReadProjectConnection(&manager, true));
        result = read->GetCheckResult();
        std::printf("Opened %s: %s\n", kProject,
                    KRC::ProjectConnectionBase::GetCheckResultName(result));
    }
    std::printf("Cached projects:\n");
    ListCachedProjects();

    service.Uninstall();
    KRC::CloseKRClient();
    return result == KRC::ProjectConnectionBase::CheckOnline ? 0 : 1;
}
