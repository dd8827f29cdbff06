#pragma once
// Fixture of the connection tests: the registry in a temporary data folder,
// the standard emulated service installed, and this process acting as the
// computer "PC-1".

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Emulator/Service.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/RegistryFixture.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Network/Network.h"
#include "Support/EmulatorFixture.h"

namespace krtest {

using Result = KRC::ProjectConnectionBase::CheckResult;

class ConnectionTest : public RegistryTest {
protected:
    void SetUp() override {
        RegistryTest::SetUp();
        Init();
        Network::SetClientComputerName("PC-1");
        service->ClearSignals();
        service->ResetCounts();
    }
    void TearDown() override {
        Network::SetClientComputerName("");
        RegistryTest::TearDown();
    }

    static std::unique_ptr<KRC::ClientProjectConnectionManager> Manager(
        bool primary = true, const std::string& user = "anna", const std::string& token = "rt-anna",
        const std::string& path = kProjectPath) {
        return std::make_unique<KRC::ClientProjectConnectionManager>(
            ProjectLocation(user, token, path), primary);
    }
    static KRC::CachedProjectInfo& Record(KRC::ClientProjectConnectionManager& manager) {
        return dynamic_cast<KRC::CachedProjectInfo&>(*manager.GetCachedProjectInfo());
    }

    // Internal signals sent so far, as (id, text), in order.
    std::vector<std::pair<int, std::string>> InternalSignals() const {
        std::vector<std::pair<int, std::string>> out;
        for (const auto& s : service->GetSignals())
            if (s.internal) out.emplace_back(s.id, s.text);
        return out;
    }
    // A failed check leaves presence 2, which stops the next implicit check.
    void ClearPresence(const std::string& user = "anna") {
        service->SetPresenceState(kServer, user, 0);
    }
    int Presence(const std::string& user = "anna") const {
        return service->GetPresenceState(kServer, user);
    }
    // The user's session in the standard project; empty if none.
    std::string SessionOf(const std::string& user = "anna") const {
        for (const auto& s : service->GetSessions(kServer, kProjectPath))
            if (s.user == user) return s.id;
        return std::string();
    }
    std::optional<std::string> ComputerOf(const std::string& user = "anna") const {
        return service->GetSessionComputer(kServer, SessionOf(user));
    }
    // The server and user in the login data, as after a login.
    static void RememberLogin(const std::string& user = "anna", const std::string& token = "old") {
        KRC::UI::Login::UILoginDataStore store(KRC::UI::Login::UILoginDataStore::ForWriting);
        store.AddServer(ZR::Ref<KRC::UI::Login::UILoginDataStore::ServerInfo>(
                            new KRC::UI::Login::UILoginDataStore::ServerInfo(kServer, "Portal")),
                        kServer);
        store.AddUser(kServer, KRC::UI::Login::UILoginDataStore::User(ZR::UniString(user),
                                                                      ZR::UniString(token), ""));
        store.Write();
    }

    EmulatedService service;
};

}  // namespace krtest
