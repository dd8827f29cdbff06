#include <gtest/gtest.h>

#include "ContactBuilder.h"
#include "KRClient/MailClient/UserContact.h"

using KRC::Mailbox::UserContact;
using krtest::ContactSpec;

namespace {

class OtherContact : public KRCB::Mailbox::Contact {
public:
    explicit OtherContact(const char* id) : mId(id) {}
    ZR::UniString GetOwnerId() const override { return mId; }
    ZR::UniString GetName() const override { return "other"; }
    bool GetInboxMailboxAddress(Kerrow::Server::Mail::Address&) const override { return true; }
    bool GetSentMailboxAddress(Kerrow::Server::Mail::Address&) const override { return true; }
    bool SimilarContact(const Contact&) const override { return true; }

private:
    ZR::UniString mId;
};

}  // namespace

TEST(UserContact, SessionKindsCountOnlyInboxSessionsWithAClientType) {
    ContactSpec spec;
    spec.sessions = {{"s1", "Inbox", "lumbra"},
                     {"s2", "Sent", "Mobile"},
                     {"s3", "inbox", "Mobile"},
                     {"s4", "Inbox", ""}};
    spec.activeSessions = {{"a1", "Inbox", "MOBILE"}};
    auto contact = spec.Build();
    EXPECT_TRUE(contact->HasLumbraMailboxSession());  // the type ignores case
    EXPECT_FALSE(contact->HasActiveLumbraMailboxSession());
    // "Sent" never counts, nor "inbox": the mailbox name is compared exactly.
    EXPECT_FALSE(contact->HasMobilMailboxSession());
    EXPECT_TRUE(contact->HasActiveMobilMailboxSession());

    ContactSpec none;
    none.sessions = {{"s4", "Inbox", ""}};
    EXPECT_FALSE(none.Build()->HasLumbraMailboxSession());
    EXPECT_FALSE(none.Build()->HasMobilMailboxSession());
}

TEST(UserContact, AddressesComeFromTheFirstMailboxOfTheirName) {
    ContactSpec spec;
    spec.mailboxes = {"Drafts", "Inbox", "Inbox"};
    auto contact = spec.Build();
    Kerrow::Server::Mail::Address inbox;
    ASSERT_TRUE(contact->GetInboxMailboxAddress(inbox));
    EXPECT_EQ(inbox.GetMailboxId(), Kerrow::Server::Mail::MailboxId("u-1", "Inbox"));
    EXPECT_EQ(inbox.GetName(), "Jo Doe");
    Kerrow::Server::Mail::Address sent(Kerrow::Server::Mail::MailboxId("x", "y"), "kept");
    EXPECT_FALSE(contact->GetSentMailboxAddress(sent));
    EXPECT_EQ(sent.GetName(), "kept");
}

TEST(UserContact, SimilarContactLooksAtWhatAUserSees) {
    ContactSpec base;
    base.sessions = {{"s1", "Inbox", "Lumbra"}};
    auto contact = base.Build();
    ContactSpec renamed = base, recoloured = base, noSent = base, nowActive = base;
    renamed.name = "Someone Else";
    renamed.userName = "else";
    renamed.ownerId = "u-2";
    recoloured.color = Gfx::Color(10, 20, 31, 255);
    noSent.mailboxes = {"Inbox"};
    nowActive.activeSessions = {{"s1", "Inbox", "Lumbra"}};
    EXPECT_TRUE(contact->SimilarContact(*renamed.Build()));
    EXPECT_FALSE(contact->SimilarContact(*recoloured.Build()));
    EXPECT_FALSE(contact->SimilarContact(*noSent.Build()));
    // Having a mailbox more than this contact doesn't matter.
    EXPECT_TRUE(noSent.Build()->SimilarContact(*contact));
    EXPECT_FALSE(contact->SimilarContact(*nowActive.Build()));
    EXPECT_FALSE(contact->SimilarContact(OtherContact("u-1")));
}

TEST(UserContact, LookUpsFindOnlyUserContacts) {
    ZR::Ref<KRCB::Mailbox::ContactList> list = ZR::Ref<KRCB::Mailbox::ContactList>::Make();
    ContactSpec jo, al;
    al.ownerId = "u-2";
    al.userName = "al";
    list->AddContact(
        ZR::Ref<const KRCB::Mailbox::Contact>(std::make_shared<const OtherContact>("u-0")));
    list->AddContact(jo.Build());
    list->AddContact(al.Build());

    EXPECT_EQ(KRC::Mailbox::GetUserContact(list, "u-1")->GetUserName(), "jo");
    EXPECT_FALSE(KRC::Mailbox::GetUserContact(list, "u-0"));
    EXPECT_FALSE(KRC::Mailbox::GetUserContact(list, "u-9"));
    EXPECT_FALSE(KRC::Mailbox::GetUserContact({}, "u-1"));

    EXPECT_EQ(KRC::Mailbox::GetUserContactByUserName(list, "al")->GetOwnerId(), "u-2");
    EXPECT_FALSE(KRC::Mailbox::GetUserContactByUserName(list, "AL"));
    EXPECT_FALSE(KRC::Mailbox::GetUserContactByUserName(list, "other"));

    ZR::HashTable<ZR::UniString, ZR::Ref<const UserContact>> all;
    all.Add("stale", jo.Build());
    KRC::Mailbox::GetUserContacts(list, all);
    ASSERT_EQ(all.GetSize(), 2u);
    EXPECT_EQ(all.begin()->first, "u-1");
    EXPECT_FALSE(all.Contains("stale"));
}
