#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "ContactBuilder.h"
#include "Emulator/Service.h"
#include "KRCB/Clients.h"
#include "KRCB/Operation.h"
#include "KRClient/MailClient/UserContact.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "Kerrow/Exceptions.h"
#include "NewDisplay/NativeImage.h"
#include "Support/LibraryTest.h"
#include "ZR/Channel.h"
#include "ZR/Debug.h"

using KRC::Mailbox::UserContact;
using KRC::Mailbox::UserContactFactory;

namespace {

constexpr const char* kUrl = "https://portal.example";

using Guard = KRCB::Management::PortalServerNonTransactionalQueryGuard;
using Emulator::Fault;
using Emulator::FaultKind;
namespace Op = Emulator::Op;

std::vector<unsigned char> Picture(int encoding) {
    std::vector<std::uint8_t> rgba(4 * 4 * 4, 200);
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(NewDisplay::NativeImage(4, 4, rgba).Encode(out, encoding), 0);
    return out.GetBytes();
}

class UserContactFactoryTest : public krtest::LibraryTest {
protected:
    void SetUp() override {
        krtest::LibraryTest::SetUp();
        KRCB::Operation::OperationCache::GetInstance().Clear();
        service.AddServer({kUrl, "Portal", 1, 0});
        AddUser("me", "u-me", "", {});
        AddUser("jo", "u-jo", "image/jpeg", Picture(NewDisplay::NativeImage::kJPEG));
        AddUser("al", "u-al", "image/PNG", Picture(NewDisplay::NativeImage::kPNG));
        AddUser("bo", "u-bo", "image/gif", {'G', 'I', 'F', '8'});
        AddUser("cy", "u-cy", "", {});
        service.Install();
        client = KRCB::Management::PortalServerClientFactory::Create(kUrl, "me", "token-me", false,
                                                                     false);
        service.ResetCounts();
    }
    void TearDown() override {
        client.Reset();
        service.Uninstall();
        KRCB::Operation::OperationCache::GetInstance().Clear();
        krtest::LibraryTest::TearDown();
    }

    void AddUser(const std::string& login, const std::string& id, const std::string& type,
                 std::vector<unsigned char> picture) {
        Emulator::UserSpec user;
        user.login = login;
        user.password = "pw";
        user.fullName = "Full " + login;
        user.id = id;
        user.refreshToken = "token-" + login;
        user.color = "#10203040";
        user.pictureType = type;
        user.picture = std::move(picture);
        service.AddUser(kUrl, user);
    }

    ZR::Ref<const UserContact> Create(const char* ownerId, ZR::Ref<Guard>& guard) {
        ContactSpec spec;
        spec.ownerId = ownerId;
        spec.sessions = {{"s1", "Inbox", "Lumbra"}};
        ZR::Ref<const UserContact> shape = spec.Build();
        auto contact = factory.CreateContact(ownerId, shape->GetMailboxIds(),
                                             shape->GetActiveSessions(), shape->GetSessions(),
                                             shape->GetSessionProperties(), client, guard);
        return std::dynamic_pointer_cast<const UserContact>(contact.Std());
    }

    using ContactSpec = krtest::ContactSpec;
    Emulator::Service service;
    ZR::Ref<KRCB::Management::PortalServerClient> client;
    UserContactFactory factory;
};

}  // namespace

TEST_F(UserContactFactoryTest, BuildsContactsFromTheUsersAndTheirPicturesAndReCreatesThem) {
    ZR::Ref<Guard> guard;
    auto jo = Create("u-jo", guard);
    ASSERT_TRUE(jo);
    EXPECT_EQ(jo->GetName(), "Full jo");
    EXPECT_EQ(jo->GetUserName(), "jo");
    EXPECT_EQ(jo->GetUserColor(), Gfx::Color(0x10, 0x20, 0x30, 0x40));
    EXPECT_EQ(jo->GetImage().GetWidth(), 4u);                     // JPEG
    EXPECT_EQ(Create("u-al", guard)->GetImage().GetWidth(), 4u);  // PNG, type in any case
    EXPECT_TRUE(Create("u-bo", guard)->GetImage().IsNull());      // another type
    EXPECT_TRUE(Create("u-cy", guard)->GetImage().IsNull());      // none at all
    EXPECT_EQ(service.CallCount(Op::kGetUserImage), 3);

    // ReCreate keeps the user part without asking the server.
    guard.Reset();
    service.ResetCounts();
    ContactSpec next;
    next.ownerId = "u-jo";
    next.activeSessions = {{"s9", "Inbox", "Mobile"}};
    auto shape = next.Build();
    auto again = std::dynamic_pointer_cast<const UserContact>(
        factory
            .ReCreateContact(jo, "u-jo", shape->GetMailboxIds(), shape->GetActiveSessions(),
                             shape->GetSessions(), shape->GetSessionProperties(), client, guard)
            .Std());
    ASSERT_TRUE(again);
    EXPECT_EQ(service.ServerCallCount(), 0);
    EXPECT_EQ(again->GetName(), "Full jo");
    EXPECT_EQ(again->GetImage(), jo->GetImage());
    EXPECT_TRUE(again->HasActiveMobilMailboxSession());
    EXPECT_FALSE(again->HasLumbraMailboxSession());

    // No user of that id: no contact, no exception. No client: nothing asked.
    EXPECT_FALSE(Create("u-nobody", guard));
    ZR::Ref<KRCB::Management::PortalServerClient> none;
    ZR::Ref<Guard> noGuard;
    EXPECT_FALSE(factory.CreateContact("u-jo", {}, {}, {}, {}, none, noGuard));
}

TEST_F(UserContactFactoryTest, ABatchIsOneQueryAndCachedUsersCostNoCall) {
    ZR::PagedArray<ZR::UniString> owners{"u-jo", "u-al", "u-bo"};
    ZR::Ref<Guard> guard;
    factory.PreCheckOwners({}, owners, client, guard);
    EXPECT_TRUE(guard);
    EXPECT_EQ(service.CallCount(Op::kGetUsersByIds), 1);
    for (const auto& owner : owners) EXPECT_TRUE(Create(owner.ToCString(), guard));
    // The fetch filled the client's cache: no user was asked for again.
    EXPECT_EQ(service.CallCount(Op::kGetUser), 0);
    EXPECT_EQ(service.CallCount(Op::kGetUserImage), 3);
    EXPECT_EQ(service.CallCount("Query"), 1);
    guard.Reset();

    // The users a query fetched are in the operation cache: no batch fetches them again.
    service.ResetCounts();
    factory.PreCheckOwners({}, owners, client, guard);
    EXPECT_EQ(service.ServerCallCount(), 0);
    EXPECT_FALSE(guard);

    // Without the cache the users are asked one by one, still in one query.
    KRCB::Operation::OperationCache::GetInstance().SetCacheEnabled(false);
    ZR::Ref<KRCB::Management::PortalServerClient> fresh =
        KRCB::Management::PortalServerClientFactory::Create(kUrl, "me", "token-me", false, false);
    service.ResetCounts();
    ZR::Ref<Guard> second;
    factory.PreCheckOwners({}, owners, fresh, second);
    EXPECT_EQ(service.CallCount(Op::kGetUsersByIds), 0);
    client = fresh;
    for (const auto& owner : owners) EXPECT_TRUE(Create(owner.ToCString(), second));
    EXPECT_EQ(service.CallCount(Op::kGetUser), 3);
    EXPECT_EQ(service.CallCount("Query"), 1);
    KRCB::Operation::OperationCache::GetInstance().SetCacheEnabled(true);
}

TEST_F(UserContactFactoryTest, APictureThatFailsLeavesTheContactWithoutOne) {
    ZR::SetDebugOutput([](const std::string&) {});
    ZR::Ref<Guard> guard;
    for (auto [owner, kind] : {std::pair{"u-jo", FaultKind::PortalServerClient},
                               std::pair{"u-al", FaultKind::ZRException}}) {
        service.FailNext(Op::kGetUserImage, Fault{kind});
        auto contact = Create(owner, guard);
        ASSERT_TRUE(contact) << owner;
        EXPECT_TRUE(contact->GetImage().IsNull()) << owner;
    }

    // What the user query itself meets, other than an unknown user, passes on.
    service.FailNext(Op::kGetUser, Fault{FaultKind::ConnectionFailed});
    EXPECT_THROW(Create("u-bo", guard), Kerrow::PortalServer::Client::ConnectionFailedException);
    service.FailNext(Op::kGetUserImage, Fault{FaultKind::Foreign});
    EXPECT_THROW(Create("u-bo", guard), std::runtime_error);
    ZR::SetDebugOutput(nullptr);
}
