#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "KRCB/Mailbox.h"
#include "KRCB/Operation.h"

namespace {

class NamedContact : public KRCB::Mailbox::Contact {
public:
    NamedContact(const char* id, const char* name) : mId(id), mName(name) {}
    ZR::UniString GetOwnerId() const override { return mId; }
    ZR::UniString GetName() const override { return mName; }
    bool GetInboxMailboxAddress(Kerrow::Server::Mail::Address&) const override { return false; }
    bool GetSentMailboxAddress(Kerrow::Server::Mail::Address&) const override { return false; }
    bool SimilarContact(const Contact&) const override { return false; }

private:
    ZR::UniString mId, mName;
};

ZR::Ref<const KRCB::Mailbox::Contact> Make(const char* id, const char* name = "") {
    return ZR::Ref<const KRCB::Mailbox::Contact>(std::make_shared<const NamedContact>(id, name));
}

std::vector<std::string> Ids(const KRCB::Mailbox::ContactList& list) {
    std::vector<std::string> ids;
    for (const auto& id : list.GetContactOwnerIds()) ids.push_back(id.Std());
    return ids;
}

}  // namespace

TEST(BaseContactList, KeepsOrderAndReplacesInPlace) {
    KRCB::Mailbox::ContactList list;
    EXPECT_TRUE(list.AddContact(Make("c")));
    EXPECT_TRUE(list.AddContact(Make("a", "first")));
    EXPECT_TRUE(list.AddContact(Make("b")));
    EXPECT_FALSE(list.AddContact({}));
    EXPECT_TRUE(list.AddContact(Make("a", "second")));
    EXPECT_EQ(Ids(list), (std::vector<std::string>{"c", "a", "b"}));
    EXPECT_EQ(list.GetContact("a")->GetName(), "second");
    EXPECT_TRUE(list.ContainsContact("b"));
    EXPECT_FALSE(list.GetContact("z"));

    EXPECT_TRUE(list.RemoveContact("c"));
    EXPECT_FALSE(list.RemoveContact("c"));
    EXPECT_EQ(Ids(list), (std::vector<std::string>{"a", "b"}));
}

TEST(BaseContactListThreadTest, ReadersAndAWriterShareTheList) {
    // Each call is atomic; ThreadSanitizer checks that no call races another.
    KRCB::Mailbox::ContactList list;
    std::atomic<bool> done{false};
    std::atomic<int> bad{0};
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&] {
            while (!done) {
                for (const auto& contact : list.GetContacts())
                    if (!contact || contact->GetOwnerId().IsEmpty()) ++bad;
                auto a = list.GetContact("a");
                if (a && !(a->GetOwnerId() == "a")) ++bad;
                KRCB::Mailbox::ContactList copy(list);
                if (copy.GetSize() > 2) ++bad;
                ++reads;
            }
        });
    }
    // Writes go on until the readers have been at it for a while, however the
    // threads are scheduled.
    for (int i = 0; i < 300 || reads < 300; ++i) {
        list.AddContact(Make("a"));
        list.AddContact(Make("b"));
        list.RemoveContact("a");
        if (i % 3 == 0) list.Clear();
    }
    done = true;
    for (auto& t : readers) t.join();
    EXPECT_EQ(bad.load(), 0);
}

TEST(OperationGuard, MarksWorkUnderWayWhileItStands) {
    using KRCB::Operation::OperationGuard;
    const int busyStates = KRCB::BusyStateGuard::GetCount();
    EXPECT_FALSE(OperationGuard::IsBusy());
    {
        OperationGuard background("GetProjectMembersTask", false);
        KRCB::BusyStateGuard quiet(false);
        EXPECT_FALSE(OperationGuard::IsBusy());
        EXPECT_EQ(KRCB::BusyStateGuard::GetCount(), busyStates + 1);
        {
            OperationGuard shown("Send", true);
            KRCB::BusyStateGuard busy(true);
            EXPECT_TRUE(OperationGuard::IsBusy());
            auto names = OperationGuard::GetRunningOperations();
            ASSERT_EQ(names.GetSize(), 4u);
            EXPECT_EQ(names[0], "GetProjectMembersTask");
            EXPECT_EQ(names[2], "Send");
        }
        EXPECT_FALSE(OperationGuard::IsBusy());
        EXPECT_EQ(OperationGuard::GetRunningOperations().GetSize(), 2u);
    }
    EXPECT_EQ(OperationGuard::GetRunningOperations().GetSize(), 0u);
    EXPECT_EQ(KRCB::BusyStateGuard::GetCount(), busyStates);
}

TEST(OperationCache, SplitsKnownFromMissingPerServerAndUser) {
    auto& cache = KRCB::Operation::OperationCache::GetInstance();
    cache.Clear();
    ASSERT_TRUE(cache.CacheEnabled());
    cache.AddUsers("https://a", "jo", {"u1", "u3"});
    ZR::Array<ZR::UniString> known{"junk"}, missing;
    EXPECT_TRUE(cache.ContainsUsers("https://a", "jo", {"u1", "u2", "u3", "u4"}, known, missing));
    EXPECT_EQ(known, (ZR::Array<ZR::UniString>{"u1", "u3"}));
    EXPECT_EQ(missing, (ZR::Array<ZR::UniString>{"u2", "u4"}));
    // Another login knows nothing yet, but the cache can say so.
    EXPECT_TRUE(cache.ContainsUsers("https://a", "al", {"u1"}, known, missing));
    EXPECT_TRUE(known.IsEmpty());
    EXPECT_EQ(missing.GetSize(), 1u);
    EXPECT_FALSE(cache.ContainsUsers("", "jo", {"u1"}, known, missing));

    cache.SetCacheEnabled(false);
    EXPECT_FALSE(cache.ContainsUsers("https://a", "jo", {"u1"}, known, missing));
    EXPECT_TRUE(known.IsEmpty() && missing.IsEmpty());
    cache.AddUsers("https://a", "jo", {"u1"});
    cache.SetCacheEnabled(true);
    EXPECT_TRUE(cache.ContainsUsers("https://a", "jo", {"u1"}, known, missing));
    EXPECT_TRUE(known.IsEmpty());  // turning it off forgot everything
}
