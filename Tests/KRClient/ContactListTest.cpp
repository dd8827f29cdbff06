#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ContactBuilder.h"
#include "KRClient/MailClient/ContactListSerializer.h"
#include "KRClient/MailClient/UserContact.h"
#include "Support/AllocationMeter.h"
#include "ZR/Channel.h"
#include "ZR/Debug.h"

using KRC::Mailbox::ContactListSerializer;
using krtest::ContactSpec;

namespace {

using Bytes = std::vector<unsigned char>;
using ListRef = ZR::Ref<KRCB::Mailbox::ContactList>;

Bytes Write(const ListRef& list) {
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(ContactListSerializer::WriteContactList(list, out), 0);
    return out.GetBytes();
}

int Read(const Bytes& bytes, ListRef& list) {
    ZR::MemoryIChannel in(bytes);
    return ContactListSerializer::ReadContactList(in, list);
}

void PutLe32(Bytes& bytes, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

void PutText(Bytes& bytes, const std::string& text) {
    PutLe32(bytes, static_cast<std::uint32_t>(text.size()));
    bytes.insert(bytes.end(), text.begin(), text.end());
}

std::vector<std::string> OwnerIds(const ListRef& list) {
    std::vector<std::string> ids;
    for (const auto& id : list->GetContactOwnerIds()) ids.push_back(id.Std());
    return ids;
}

// A list that holds one contact "kept", to show that a failed read leaves it so.
ListRef KeptList() {
    ListRef list = ListRef::Make();
    ContactSpec spec;
    spec.ownerId = "kept";
    list->AddContact(spec.Build());
    return list;
}

// The head of a list, then one record of the given type around body.
Bytes ListWith(std::uint32_t count, std::uint32_t type, const Bytes& body) {
    Bytes bytes;
    PutLe32(bytes, 1);
    PutLe32(bytes, 0);
    PutLe32(bytes, count);
    PutLe32(bytes, type);
    PutLe32(bytes, static_cast<std::uint32_t>(body.size()));
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

// A contact body up to its mailbox ids, whose count and texts are given.
Bytes BodyWithMailboxes(std::uint32_t count, const std::vector<std::string>& texts) {
    Bytes body;
    PutText(body, "u-1");
    PutText(body, "Jo");
    PutText(body, "jo");
    body.insert(body.end(), {1, 2, 3, 4});
    PutLe32(body, 0);  // no image
    PutLe32(body, count);
    for (const auto& t : texts) PutText(body, t);
    return body;
}

}  // namespace

TEST(ContactList, RoundTripKeepsSessionsButNotActiveSessions) {
    std::vector<std::uint8_t> rgba;
    for (int i = 0; i < 4 * 6; ++i) rgba.push_back(static_cast<std::uint8_t>(i * 10));
    ContactSpec jo;
    jo.image = NewDisplay::NativeImage(3, 2, rgba);
    jo.color = Gfx::Color(1, 2, 3, 4);
    jo.mailboxes = {"Inbox", "Sent", "Odd/Name%"};
    jo.sessions = {{"s1", "Inbox", "Lumbra"}, {"s2", "Inbox", "Mobile"}};
    jo.activeSessions = {{"s1", "Inbox", "Lumbra"}};
    ContactSpec al;
    al.ownerId = "u-2";
    al.userName = "al";
    al.name = "Äl Ünicode";

    ListRef list = ListRef::Make();
    list->AddContact(jo.Build());
    list->AddContact(al.Build());
    Bytes bytes = Write(list);

    ListRef back = KeptList();
    ASSERT_EQ(Read(bytes, back), 0);
    EXPECT_EQ(OwnerIds(back), (std::vector<std::string>{"u-1", "u-2"}));
    auto was = KRC::Mailbox::GetUserContact(list, "u-1");
    auto now = KRC::Mailbox::GetUserContact(back, "u-1");
    ASSERT_TRUE(now);
    EXPECT_EQ(now->GetName(), "Jo Doe");
    EXPECT_EQ(now->GetUserName(), "jo");
    EXPECT_EQ(now->GetUserColor(), Gfx::Color(1, 2, 3, 4));
    EXPECT_EQ(now->GetImage(), jo.image);
    EXPECT_EQ(now->GetMailboxIds(), was->GetMailboxIds());
    EXPECT_EQ(now->GetSessions().GetSize(), 1u);
    EXPECT_EQ(now->GetSessions().begin()->second, was->GetSessions().begin()->second);
    EXPECT_EQ(now->GetSessionProperties().GetSize(), was->GetSessionProperties().GetSize());
    EXPECT_TRUE(now->GetActiveSessions().IsEmpty());

    auto alBack = KRC::Mailbox::GetUserContact(back, "u-2");
    EXPECT_EQ(alBack->GetName(), "Äl Ünicode");
    EXPECT_TRUE(alBack->GetImage().IsNull());
    // The picture is stored as PNG: one without comes back with size 0 and null.
    EXPECT_EQ(Write(back), bytes);
}

TEST(ContactList, AnEmptyListIsThreeWordsAndLaterVersionsAndUnknownRecordsAreNoData) {
    Bytes empty = Write(ListRef::Make());
    EXPECT_EQ(empty, (Bytes{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    Bytes v2;
    PutLe32(v2, 2);
    PutLe32(v2, 0);  // and nothing else: a later form may look like anything
    for (const Bytes& bytes : {empty, v2}) {
        ListRef list = KeptList();
        EXPECT_EQ(Read(bytes, list), 0);
        EXPECT_EQ(list->GetSize(), 0u);
    }

    // A record of type 2 with 8 bytes is passed over; the next one is read.
    ListRef one = ListRef::Make();
    ContactSpec jo;
    one->AddContact(jo.Build());
    Bytes stored = Write(one);
    Bytes withUnknown(stored.begin(), stored.begin() + 8);
    PutLe32(withUnknown, 2);
    PutLe32(withUnknown, 2);
    PutLe32(withUnknown, 8);
    withUnknown.insert(withUnknown.end(), 8, 0xEE);
    withUnknown.insert(withUnknown.end(), stored.begin() + 12, stored.end());
    ListRef list = KeptList();
    EXPECT_EQ(Read(withUnknown, list), 0);
    EXPECT_EQ(OwnerIds(list), (std::vector<std::string>{"u-1"}));
}

TEST(ContactList, CutOrBrokenListsLeaveTheListAsItWas) {
    ZR::SetDebugOutput([](const std::string&) {});
    ListRef two = ListRef::Make();
    ContactSpec jo, al;
    jo.sessions = {{"s1", "Inbox", "Lumbra"}};
    al.ownerId = "u-2";
    two->AddContact(jo.Build());
    two->AddContact(al.Build());
    Bytes bytes = Write(two);

    for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
        ListRef list = KeptList();
        int status = Read(Bytes(bytes.begin(), bytes.begin() + cut), list);
        EXPECT_TRUE(status == ZR::kErrEndOfData || status == ZR::kErrTooLarge)
            << "cut " << cut << ": " << status;
        EXPECT_EQ(OwnerIds(list), (std::vector<std::string>{"kept"})) << "cut " << cut;
    }

    // Records whose size fits but whose body is cut inside: the body's own error.
    Bytes shortBody = BodyWithMailboxes(2, {"u-1/Inbox"});
    ListRef list = KeptList();
    EXPECT_EQ(Read(ListWith(1, 1, shortBody), list), ZR::kErrEndOfData);
    // A mailbox id that is not one, and a session that doesn't read.
    EXPECT_EQ(Read(ListWith(1, 1, BodyWithMailboxes(1, {"no separator"})), list),
              ZR::kGeneralErrorCode);
    Bytes badSession = BodyWithMailboxes(0, {});
    PutLe32(badSession, 1);  // one session entry
    PutText(badSession, "key");
    PutLe32(badSession, 1);  // one session, in network byte order: a huge length
    badSession.insert(badSession.end(), {0xFF, 0xFF, 0xFF, 0xF0, 'x'});
    EXPECT_EQ(Read(ListWith(1, 1, badSession), list), ZR::kGeneralErrorCode);
    EXPECT_EQ(OwnerIds(list), (std::vector<std::string>{"kept"}));

    ListRef empty;
    ZR::MemoryIChannel in(bytes);
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(ContactListSerializer::ReadContactList(in, empty), ZR::kGeneralErrorCode);
    EXPECT_EQ(ContactListSerializer::WriteContactList(empty, out), ZR::kGeneralErrorCode);
    ZR::SetDebugOutput(nullptr);
}

TEST(ContactList, HostileCountsAllocateNoMoreThanTheInput) {
    Bytes bigImage = BodyWithMailboxes(0, {});
    bigImage.resize(bigImage.size() - 8);
    PutLe32(bigImage, 0xFFFFFF00u);
    const std::vector<Bytes> inputs = {
        ListWith(0xFFFFFFFFu, 1, BodyWithMailboxes(0, {})),  // records
        ListWith(1, 1, {0xF0, 0xFF, 0xFF, 0xFF}),            // owner id length
        ListWith(1, 1, bigImage),                            // image size
    };
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        ListRef list = KeptList();
        krtest::LargestAllocation meter;
        EXPECT_NE(Read(inputs[i], list), 0) << "input " << i;
        // The contact objects themselves take a few hundred bytes.
        EXPECT_LE(meter.Bytes(), 1024 + inputs[i].size()) << "input " << i;
        EXPECT_EQ(OwnerIds(list), (std::vector<std::string>{"kept"}));
    }
}
