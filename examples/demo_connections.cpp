// The demo's server part: a scenario of the service emulator, a project opened
// on one computer, its members, the project refused on a second computer,
// taken over by it, and the first computer's next check seeing that.

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "Emulator/Service.h"
#include "KRCB/Paths.h"
#include "KRCB/SignalClient.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"
#include "KRClient/RegisteredProjects.h"
#include "Network/Network.h"
#include "ZR/MessageLoop.h"

namespace {

const char* const kScenario = R"({
  "servers": [{
    "url": "https://design.example.com",
    "friendlyName": "Design office",
    "version": [26, 3],
    "users": [
      {"login": "anna", "password": "anna-secret", "fullName": "Anna Berg", "id": "u-anna",
       "refreshToken": "rt-anna-0001", "color": "#3366ccff"},
      {"login": "ben", "password": "ben-secret", "fullName": "Ben Ortiz", "id": "u-ben",
       "refreshToken": "rt-ben-0001"},
      {"login": "carla", "password": "carla-secret", "fullName": "Carla Reyes", "id": "u-carla",
       "refreshToken": "rt-carla-0001", "color": "#cc6633ff"}
    ],
    "modelServers": [{"id": "ms-1", "path": "/modelservers/ms-1", "version": [1, 2]}],
    "folders": ["/Housing", "/Housing/Archive", "/Public"],
    "projects": [{
      "path": "/Housing/Tower B", "id": "p-tower-b", "modelServer": "ms-1", "state": 0,
      "permissions": {"anna": ["ReadProject", "WriteProject", "AdministerProject"],
                      "ben": ["ReadProject", "SendMail"], "carla": ["ReadProject", "WriteProject"]},
      "members": [{"user": "anna", "userId": 1}, {"user": "ben", "userId": 2}]
    }]
  }]
})";

const char* const kServer = "https://design.example.com";
const char* const kPath = "/Housing/Tower B";

// What the check told the other clients, since the last look.
void ShowSignals(Emulator::Service& service) {
    for (const Emulator::SignalRecord& signal : service.GetSignals())
        std::printf("     signal %d (%s) \"%s\"\n", signal.id, KRCB::GetSignalName(signal.id),
                    signal.text.c_str());
    service.ClearSignals();
    const int presence = service.GetPresenceState(kServer, "anna");
    std::printf("     presence %d (%s)\n", presence, KRCB::GetPresenceStateName(presence));
}

void ShowRecord(const KRC::ClientProjectConnectionManager& manager) {
    const auto* record =
        dynamic_cast<const KRC::CachedProjectInfo*>(manager.GetCachedProjectInfo());
    if (!record) return;
    std::printf("     cached record: project id %s, session %s, user %s (%s), logon id %d\n",
                record->GetProjectId().ToCString(), record->GetSessionId().ToCString(),
                record->GetUserId().ToCString(), record->GetUserName_().ToCString(),
                record->GetLogonId());
}

IO::Location AnnaOnTowerB(const ZR::UniString& token) {
    IO::Location location;
    KRCB::CreateServerLocation(location, kServer, "anna", token);
    KRCB::SetProjectPath(location, kPath);
    return location;
}

}  // namespace

ZR::UniString RunLoginDemo(const char* server, const char* user, const char* password);
void RunMembersDemo(Emulator::Service& service, KRC::ClientProjectConnectionManager& manager,
                    const char* server, const char* path);
void RunBrowseDemo(const char* server, const char* user, const char* password);
void RunMailDemo(Emulator::Service& service, const char* server, const std::string& root);

void RunLocalCacheDemo(const char* server, const char* user, const char* password);

void RunConnectionDemo(const std::string& root) {
    std::printf("\n9. A project on a server: the service emulator plays the servers.\n");
    const std::string scenario = root + "/scenario.json";
    std::ofstream(scenario) << kScenario;
    // It holds passwords and tokens.
    std::filesystem::permissions(
        scenario, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    // The login's notifiers and the members' lists land on this thread.
    ZR::MessageLoop::Scope loop;
    std::unique_ptr<Emulator::Service> service = Emulator::Service::FromScenarioFile(scenario);
    service->Install();
    // The registry stands on root/shared since the step before.
    std::printf("   Anna logs in to %s from the host's login dialog.\n", kServer);
    const IO::Location location = AnnaOnTowerB(RunLoginDemo(kServer, "anna", "anna-secret"));

    std::printf("   Anna opens %s on DESK-ANNA: a session is made and claimed.\n", kPath);
    Network::SetClientComputerName("DESK-ANNA");
    KRC::ClientProjectConnectionManager desk(location, true);
    {
        ZR::Ref<KRC::ReadProjectConnection> connection(new KRC::ReadProjectConnection(&desk, true));
        std::printf("     %s\n",
                    KRC::ProjectConnectionBase::GetCheckResultName(connection->GetCheckResult()));
        ShowSignals(*service);
        ShowRecord(desk);
    }

    std::printf("\n10. Who works on %s: the project's members.\n", kPath);
    RunMembersDemo(*service, desk, kServer, kPath);

    std::printf("\n11. A second computer.\n");
    std::printf("   The same project on LAPTOP-ANNA: refused, the session is DESK-ANNA's.\n");
    Network::SetClientComputerName("LAPTOP-ANNA");
    {
        KRC::ClientProjectConnectionManager laptop(location, true);
        ZR::Ref<KRC::ReadProjectConnection> connection(
            new KRC::ReadProjectConnection(&laptop, true));
        std::printf("     %s\n",
                    KRC::ProjectConnectionBase::GetCheckResultName(connection->GetCheckResult()));
        ShowSignals(*service);

        std::printf("   LAPTOP-ANNA takes the session over (ReceiveSession).\n");
        bool taken = KRC::ProjectConnectionBase::ReceiveSession(&laptop, false);
        std::printf("     %s\n", taken ? "CheckOnline" : "refused");
        ShowSignals(*service);
    }

    std::printf("   DESK-ANNA checks again and sees the session gone to the laptop.\n");
    Network::SetClientComputerName("DESK-ANNA");
    std::printf("     %s\n", KRC::ProjectConnectionBase::GetCheckResultName(
                                 KRC::ProjectConnectionBase::Check(&desk, true, false)));
    ShowSignals(*service);

    std::printf("\n12. Anna's browse dialog: folders, a new folder chain, a rename.\n");
    RunBrowseDemo(kServer, "anna", "anna-secret");
    std::printf("\n13. Mail between two users, with one of them offline for a while.\n");
    RunMailDemo(*service, kServer, root);

    std::printf(
        "\n14. The browse dialog's picture with the local caches, and a project that\n"
        "    moved since its cache was made (Tower B, renamed in step 12).\n");
    RunLocalCacheDemo(kServer, "anna", "anna-secret");

    service->SaveScenarioFile(scenario);
    service->Uninstall();
    Network::SetClientComputerName("");
    std::printf("   The server's state is in %s (krctl emulate %s show).\n", scenario.c_str(),
                scenario.c_str());
}
