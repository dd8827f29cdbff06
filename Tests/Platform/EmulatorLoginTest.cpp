// Logins of a dialog against the emulated service: password and state logins,
// the tokens they issue, and what the server answers with. The scripted
// refusals are tested through the login task.

#include <gtest/gtest.h>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Clients.h"
#include "Kerrow/Exceptions.h"
#include "Support/EmulatorFixture.h"

namespace {

using namespace krtest;
using Kerrow::PortalServer::Client::PasswordEncrypter;
using KRCB::Management::AuthenticatedClientConnectionFactory;

TEST(EmulatorLoginTest, APasswordTravelsEncryptedAndALoginIssuesATokenOfItsOwn) {
    EmulatedService service;
    ZR::UniString encrypted;
    auto connection = AuthenticatedClientConnectionFactory::Create(kServer, "anna", "pw-anna",
                                                                   encrypted, true, false, 0);
    EXPECT_TRUE(PasswordEncrypter::IsEncrypted(encrypted));
    EXPECT_EQ(encrypted.Std().find("pw-anna"), std::string::npos);
    EXPECT_EQ(PasswordEncrypter::Encrypt(encrypted), encrypted);

    const ZR::UniString token = connection->GetPortalServerClient()->GetRefreshToken();
    EXPECT_FALSE(token.IsEmpty());
    EXPECT_NE(token, "rt-anna");
    EXPECT_EQ(connection->GetUserDetails()->GetFullName(), "Anna Berg");
    EXPECT_EQ(connection->GetServerInfo()->friendlyName, "Portal");
    EXPECT_EQ(connection->GetSslSession()->GetVerifyResult(), 0);

    // The encrypted form logs in as well, and each login has a token of its own.
    auto again =
        AuthenticatedClientConnectionFactory::Create(kServer, "anna", encrypted, false, false, 0);
    EXPECT_NE(again->GetPortalServerClient()->GetRefreshToken(), token);
    EXPECT_FALSE(again->GetUserDetails());
    // The issued token opens the user's other clients.
    EXPECT_NO_THROW(KRCB::Management::ResourceManagerClientFactory::Create(kServer, "anna", token,
                                                                           false, false));
    EXPECT_THROW(AuthenticatedClientConnectionFactory::Create(kServer, "anna", "wrong", encrypted,
                                                              false, false, 0),
                 Kerrow::PortalServer::Client::CreateSessionFailedException);
    // bert has no password: nothing fits, an empty one least of all.
    EXPECT_THROW(AuthenticatedClientConnectionFactory::Create(kServer, "bert", "", encrypted, false,
                                                              false, 0),
                 Kerrow::PortalServer::Client::CreateSessionFailedException);
}

TEST(EmulatorLoginTest, TheScenarioDecidesUrlChannelCompanyVersionAndStateLogins) {
    auto service = Emulator::Service::FromScenarioText(R"({"servers": [
      {"url": "http://plain.example", "answeredUrl": "http://plain.example//", "version": [0, 9],
       "users": [{"login": "anna", "password": "pw"}]},
      {"url": "https://unverified.example", "sslVerifyResult": 20,
       "users": [{"login": "anna", "password": "pw"},
                 {"login": "olaf", "password": "pw", "fullName": "Olaf", "companyMember": false}],
       "stateLogins": [{"key": "k-1", "state": "s-1", "user": "anna"}]}]})");
    service->Install();
    ZR::UniString encrypted;
    EXPECT_THROW(AuthenticatedClientConnectionFactory::Create("http://plain.example", "anna", "pw",
                                                              encrypted, false, false, 0),
                 KRCB::IncompatiblePortalServerVersionException);

    auto unverified = AuthenticatedClientConnectionFactory::Create(
        "https://unverified.example", "anna", "pw", encrypted, false, false, 0);
    EXPECT_EQ(unverified->GetSslSession()->GetVerifyResult(), 20);
    EXPECT_THROW(AuthenticatedClientConnectionFactory::Create("https://unverified.example", "olaf",
                                                              "pw", encrypted, false, false, 0),
                 Kerrow::PortalServer::Client::NotInCompanyResponseException);

    // A state login: no call until the session is made, then the key's user.
    service->ResetCounts();
    auto state =
        AuthenticatedClientConnectionFactory::Create("https://unverified.example", "k-1", false, 0);
    EXPECT_EQ(service->ServerCallCount(), 0);
    EXPECT_TRUE(state->GetPortalServerClient()->GetRefreshToken().IsEmpty());
    EXPECT_THROW(state->GetPortalServerClient()->CreateSessionWithState("k-1", "other", true),
                 Kerrow::PortalServer::Client::CreateSessionFailedException);
    service->InterruptNext(Emulator::Op::kCreateSessionWithState);
    state->GetPortalServerClient()->CreateSessionWithState("k-1", "s-1", true);
    EXPECT_EQ(state->GetPortalServerClient()->GetUserName(), "anna");
    EXPECT_FALSE(state->GetPortalServerClient()->GetRefreshToken().IsEmpty());
    EXPECT_TRUE(state->GetPortalServerClient()->IsInterrupted());
    // The scenario's own text forms are tested with the scenario.
    EXPECT_EQ(service->ToDisplayText().find("s-1"), std::string::npos);
    service->Uninstall();
}

}  // namespace
