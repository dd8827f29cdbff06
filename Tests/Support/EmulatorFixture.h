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

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Emulator/Service.h"
#include "IO/Location.h"
#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "KRCB/Paths.h"

namespace krtest {

inline constexpr const char* kServer = "https://portal.test";
inline constexpr const char* kProjectPath = "/Projects/House";
inline constexpr const char* kProjectId = "prj-house";
inline constexpr const char* kAnnaId = "a11ce000-0000-4000-8000-000000000001";
inline constexpr const char* kBertId = "be4d0000-0000-4000-8000-000000000002";

// A project to add: path, model server id and login names to permission texts.
inline Emulator::ProjectSpec ProjectAt(
    const std::string& path, const std::string& modelServer = "",
    std::map<std::string, std::vector<std::string>> permissions = {}) {
    Emulator::ProjectSpec project;
    project.path = path;
    project.modelServer = modelServer;
    project.permissions = std::move(permissions);
    return project;
}

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
    Emulator::ProjectSpec house = ProjectAt(
        kProjectPath, "ms-1",
        {{"anna", {"ReadProject", "WriteProject", "SendMail"}}, {"bert", {"ReadProject"}}});
    house.id = kProjectId;
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

// A connection of a user logged in with a password, given in its encrypted form.
inline ZR::Ref<KRCB::Management::AuthenticatedClientConnection> PasswordLogin(
    const std::string& server = kServer, const std::string& user = "anna",
    const std::string& password = "pw-anna") {
    return KRCB::Management::AuthenticatedClientConnectionFactory::Create(
        ZR::UniString(server), ZR::UniString(user),
        Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt(ZR::UniString(password)), false,
        false, 0);
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
