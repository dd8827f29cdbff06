#pragma once
// A service emulator with one management server, installed as the base
// client's transport for the life of the fixture:
//   server  https://portal.test ("Portal", 3.2)
//   users   anna (id kAnnaId, token "rt-anna", password "pw-anna"),
//           bert (kBertId, "rt-bert"); ids are GUID texts, as a server's are
//   model   server "ms-1" at "/ms/one", version 1.0
//   project "/Projects/House" (id "prj-house") on "ms-1"; anna may read,
//           write and send mail, bert may read
//   folder  "/Projects"

#include <memory>
#include <string>

#include "Emulator/Service.h"
#include "IO/Location.h"
#include "KRCB/Clients.h"
#include "KRCB/Paths.h"

namespace krtest {

inline constexpr const char* kServer = "https://portal.test";
inline constexpr const char* kProjectPath = "/Projects/House";
inline constexpr const char* kProjectId = "prj-house";
inline constexpr const char* kAnnaId = "a11ce000-0000-4000-8000-000000000001";
inline constexpr const char* kBertId = "be4d0000-0000-4000-8000-000000000002";

inline std::unique_ptr<Emulator::Service> MakeStandardService(std::uint64_t seed = 1) {
    auto service = std::make_unique<Emulator::Service>(seed);
    service->AddServer({kServer, "Portal", 3, 2});
    Emulator::UserSpec anna;
    anna.login = "anna";
    anna.password = "pw-anna";
    anna.fullName = "Anna Berg";
    anna.id = kAnnaId;
    anna.refreshToken = "rt-anna";
    anna.color = "#ff000080";
    service->AddUser(kServer, anna);
    Emulator::UserSpec bert;
    bert.login = "bert";
    bert.fullName = "Bert Cole";
    bert.id = kBertId;
    bert.refreshToken = "rt-bert";
    service->AddUser(kServer, bert);
    service->AddModelServer(kServer, {"ms-1", "/ms/one", 1, 0});
    service->AddFolder(kServer, "/Projects");
    Emulator::ProjectSpec house;
    house.path = kProjectPath;
    house.id = kProjectId;
    house.modelServer = "ms-1";
    house.permissions["anna"] = {"ReadProject", "WriteProject", "SendMail"};
    house.permissions["bert"] = {"ReadProject"};
    service->AddProject(kServer, house);
    return service;
}

// A project location of the standard project for a user and token.
inline IO::Location ProjectLocation(const std::string& user = "anna",
                                    const std::string& token = "rt-anna",
                                    const std::string& path = kProjectPath) {
    IO::Location location;
    KRCB::CreateServerLocation(location, kServer, ZR::UniString(user), ZR::UniString(token));
    KRCB::SetProjectPath(location, ZR::UniString(path));
    return location;
}

// A client logged in as user with token.
inline ZR::Ref<KRCB::Management::ResourceManagerClient> LogInTo(
    const std::string& server = kServer, const std::string& user = "anna",
    const std::string& token = "rt-anna") {
    return KRCB::Management::ResourceManagerClientFactory::Create(
        ZR::UniString(server), ZR::UniString(user), ZR::UniString(token), true, false);
}

class EmulatedService {
public:
    explicit EmulatedService(std::uint64_t seed = 1) : service(MakeStandardService(seed)) {
        service->Install();
    }
    ~EmulatedService() { service->Uninstall(); }
    Emulator::Service* operator->() const { return service.get(); }
    Emulator::Service& operator*() const { return *service; }

    std::unique_ptr<Emulator::Service> service;
};

}  // namespace krtest
