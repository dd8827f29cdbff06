// The mail client's "Mails.dat" across restarts, read whole or not at all
// whatever the damage, and the limit on completed mails.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

// Boxes of changes name only the fields a case needs.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include "KRClient/MailClient/Internal/MailsFile.h"
#include "MailClientFixture.h"
#include "MailRandom/PinnedAttachment.h"
#include "Support/AllocationMeter.h"
#include "Support/FaultEnv.h"

namespace krtest::mailclient {
namespace {

// A server mail sent at time, in thread (none if empty), from sender; flags
// "c" completed, "f" with an attachment that forbids automatic completing.
M::Mail At(const std::string& id, int time, const std::string& flags = "",
           const std::string& thread = "", const std::string& sender = "me") {
    ZR::Ref<M::Mail> shared =
        ZR::Ref<M::Mail>::Make(ServerMail(id, sender, flags.find('c') != std::string::npos));
    KRC::ClientMail wrapped(shared);
    wrapped.SetSent(M::Date(time));
    if (!thread.empty()) wrapped.SetThreadId(ZR::UniString(thread));
    if (flags.find('f') != std::string::npos) wrapped.AddAttachment(mailrandom::Pinned());
    return *wrapped.ToServerMail();
}

std::string Bytes(const ZR::MemoryOChannel32& out) {
    return std::string(reinterpret_cast<const char*>(out.GetData()), out.GetSize());
}

void PutMail(ZR::OChannel& out, const M::Mail& mail) {
    ZR::Ref<M::Mail> shared = ZR::Ref<M::Mail>::Make(mail);
    ASSERT_EQ(KRC::ClientMail::Write(ZR::Ref<KRC::ClientMail>(new KRC::ClientMail(shared)), out),
              0);
}

// A new client on the harness's folder, as a new run of the host makes it.
void Restart(MailClientHarness& h, bool monitorRunning) {
    h.client.reset();
    h.monitor.ClearRequests();
    if (monitorRunning)
        h.monitor.Start();
    else
        h.monitor.Stop();
    h.client = std::make_unique<KRC::MailClient>(&h.monitor, &h.signals, &h.manager, false, 0,
                                                 std::make_unique<RecordingErrorHandler>(h.heard));
    h.client->Attach(h.observer);
}

std::string InitRevisions(const MailClientHarness& h) {
    for (const auto& r : h.monitor.Requests())
        if (r.op == "InitMailboxRevision") return r.ids.at(0) + "/" + r.ids.at(1);
    return "none";
}

// The file as documented, composed by hand: revisions, inbox, sent box, then
// completed inbox, completed sent and read inbox.
std::string Composed(bool duplicate) {
    ZR::MemoryOChannel32 out;
    out.WriteUInt64(9);
    out.WriteUInt32(duplicate ? 2 : 1);
    PutMail(out, At("x", 100, "", "", "first"));
    if (duplicate) PutMail(out, At("x", 200, "", "", "second"));
    out.WriteUInt64(3);
    out.WriteUInt32(1);
    PutMail(out, At("s", 300, "", "t"));
    for (const char* id : {"c1", "c2", "r1"}) {
        out.WriteUInt32(1);
        out.Write(ZR::UniString(id));
    }
    return Bytes(out);
}

TEST(MailStorageTest, AHandComposedFileIsReadAsLaidOutAndWrittenBackInTheSameLayout) {
    MailClientHarness h(false);
    const std::string file = h.folder.Sub("Mails.dat");
    h.client.reset();  // its end would write the file
    WriteFile(file, Composed(true));
    Restart(h, false);
    EXPECT_EQ(InitRevisions(h), "9/3");
    ZR::Ref<KRC::ClientMail> x;
    ASSERT_TRUE(h.client->GetMail("x", x));
    EXPECT_EQ(x->GetSender().GetName().Std(), "first");  // of two with one id the first stays
    EXPECT_EQ(Names(h.client->GetSentMails()), "s");

    h.monitor.Start();
    h.monitor.ClearRequests();
    h.monitor.SetStatus(true);
    EXPECT_EQ(h.DescribeAll(), (Strings{"SetMailsCompleted Inbox c1 [InboxMailSetToCompleted]",
                                        "SetMailsCompleted Sent c2 [SentMailSetToCompleted]",
                                        "SetMailsRead Inbox r1 [InboxMailSetToRead]"}));
    h.client.reset();
    EXPECT_EQ(ReadFile(file), Composed(false));
    struct stat st;
    ASSERT_EQ(::stat(file.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(MailStorageTest, HostileFilesAreRefusedWithoutAllocatingOrReadingBeyondTheInput) {
    namespace I = KRC::Internal;
    ZR::MemoryOChannel32 mails;
    for (const char* id : {"m1", "m2", "m3"}) PutMail(mails, At(id, 1));
    const std::string three = Bytes(mails);
    const std::size_t oneMail = three.size() / 3;
    std::string newer = three;
    newer[oneMail + 4 + 4 + 16] = 2;  // main version of the second frame, behind name and id
    auto box = [](std::uint32_t count, const std::string& body) {
        ZR::MemoryOChannel32 out;
        out.WriteUInt64(1);
        out.WriteUInt32(count);
        return Bytes(out) + body;
    };
    const std::string emptyBox = box(0, "");
    struct Case {
        const char* name;
        std::string bytes;
        int status;
        std::uint64_t stoppedAt;
    } cases[] = {
        {"mail count", box(0xFFFFFFFFu, std::string(64, '\0')), ZR::kErrTooLarge, 8},
        {"newer frame", box(3, newer), ZR::kGeneralErrorCode, 12 + oneMail},
        {"bytes behind are not looked at", box(3, three) + emptyBox + std::string(12, '\0') + "zz",
         0, 12 + three.size() + 12 + 12},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ZR::MemoryIChannel in(c.bytes.data(), c.bytes.size());
        I::MailsFileContent content;
        std::uint64_t stoppedAt = 0;
        LargestAllocation meter;
        EXPECT_EQ(I::ReadMails(in, content, &stoppedAt), c.status);
        EXPECT_EQ(stoppedAt, c.stoppedAt);
        EXPECT_LT(meter.Bytes(), 4096u);
    }
    const std::string whole = Composed(true);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        ZR::MemoryIChannel in(whole.data(), size);
        I::MailsFileContent content;
        EXPECT_NE(I::ReadMails(in, content), 0) << size;
    }

    // A file of 1 GB whose counts lie: refused after its revision, and the
    // client, which takes it whole or not at all, holds nothing of it and
    // leaves it until its next write.
    MailClientHarness h(false);
    const std::string file = h.folder.Sub("Mails.dat");
    h.client.reset();
    WriteFile(file, box(0xFFFFFFFFu, three));
    std::filesystem::resize_file(file, 1u << 30);
    std::uint64_t stoppedAt = 0;
    I::MailsFileContent content;
    LargestAllocation meter;
    EXPECT_EQ(I::ReadMailsFile(h.folder.Location() + IO::Name("Mails.dat"), content, &stoppedAt),
              ZR::kErrTooLarge);
    EXPECT_EQ(stoppedAt, 8u);
    Restart(h, false);
    EXPECT_LT(meter.Bytes(), 1u << 20);
    EXPECT_EQ(InitRevisions(h), "0/0");
    EXPECT_TRUE(h.client->GetAllMails().IsEmpty());
    EXPECT_EQ(std::filesystem::file_size(file), 1u << 30);
}

TEST(MailStorageTest, AWriteThatFailsLeavesTheOldFileAndNoTemporaryFile) {
    for (const auto& [call, error] : {std::pair{Call::Write, ENOSPC}, std::pair{Call::Fsync, EIO},
                                      std::pair{Call::Rename, EROFS}}) {
        SCOPED_TRACE(CallName(call));
        MailClientHarness h;
        h.monitor.Deliver(
            ScriptedMailboxMonitor::Change({.created = {ServerMail("a")}, .to = 1}, {}));
        h.client.reset();
        const std::string old = ReadFile(h.folder.Sub("Mails.dat"));
        Restart(h, true);
        h.monitor.Deliver(
            ScriptedMailboxMonitor::Change({.created = {ServerMail("b")}, .from = 1, .to = 2}, {}));
        FaultEnv faults;
        faults.FailNth(call, 1, error);
        h.client.reset();
        EXPECT_EQ(faults.Struck(), 1);
        EXPECT_EQ(ReadFile(h.folder.Sub("Mails.dat")), old);
        EXPECT_TRUE(Listing(h.folder.Path(), ".Mails.dat.tmp").empty());
    }
}

// The limit through the public interface: the mails of each case stand in
// the boxes as the server gave them; requests name the ids deleted.
TEST(MailStorageTest, TheLimitDeletesTheOldestCountableMailsWithTheirThreads) {
    struct Case {
        int limit;  // -1: the limit is not used
        unsigned int countable;
        std::vector<M::Mail> inbox, sent;
        Strings deleted;
    } cases[] = {
        {-1, 1, {At("a", 1, "c")}, {}, {}},
        {3, 3, {At("a", 1, "c"), At("b", 2, "c"), At("c", 3, "c")}, {}, {}},
        // Every countable mail, inbox then sent.
        {0, 2, {At("a", 1, "c"), At("u", 2)}, {At("s", 3, "c")}, {"Inbox a", "Sent s"}},
        // A thread goes whole, newer and uncompleted mails too.
        {1,
         2,
         {At("old", 1, "c", "T"), At("other", 3, "c"), At("young", 5, "", "T")},
         {At("reply", 6, "f", "T")},
         {"Inbox old,young", "Sent reply"}},
        // The oldest mail goes alone when it has no thread.
        {1, 2, {At("b", 2, "c", "T"), At("a", 1, "c"), At("c", 3, "", "T")}, {}, {"Inbox a"}},
        // Fixed in a thread with a mail that allows completing: not counted,
        // but it goes with its thread; in a thread of its own it counts.
        {0,
         2,
         {At("f", 1, "cf", "T"), At("q", 2, "c", "T"), At("g", 3, "cf", "G")},
         {},
         {"Inbox f,q,g"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(&c - cases);
        MailClientHarness h;
        auto& client = *h.client;
        h.monitor.Deliver(ScriptedMailboxMonitor::Change({.created = c.inbox, .to = 1},
                                                         {.created = c.sent, .to = 1}));
        h.monitor.ClearRequests();
        // The setters only store their value.
        client.SetUseCompletedLimit(c.limit >= 0);
        client.SetCompletedLimitNum(std::max(c.limit, 0));
        EXPECT_TRUE(h.monitor.Requests().empty());
        EXPECT_EQ(client.CountCompletedMails(), c.countable);
        EXPECT_EQ(client.DeleteCompletedMailsOverLimit(), !c.deleted.empty());
        Strings requests;
        for (const auto& d : c.deleted)
            requests.push_back("DeleteMails " + d + " [ShowErrorInMailDeleting]");
        EXPECT_EQ(h.DescribeAll(), requests);
        if (c.deleted.empty()) continue;
        // The mails being deleted no longer count: a second run finds nothing to do.
        EXPECT_EQ(client.CountCompletedMails(), std::min<unsigned int>(c.limit, c.countable));
        h.monitor.ClearRequests();
        EXPECT_FALSE(client.DeleteCompletedMailsOverLimit());
        EXPECT_TRUE(h.monitor.Requests().empty());
    }
}

TEST(MailStorageTest, TheLimitTakesOutboxMailsAloneAndRunsWhenMailsAreCompleted) {
    MailClientHarness h;
    auto& c = *h.client;
    // An outbox mail, completed while it waits, and a mail of its thread.
    ZR::Ref<KRC::ClientMail> out(new KRC::ClientMail);
    out->SetSent(M::Date(1));
    c.SendMail(out, {});
    c.SetSentMailCompleted(out->GetId());
    h.monitor.Deliver(ScriptedMailboxMonitor::Change(
        {.created = {At("mate", 2, "c", out->GetThreadId().Std()), At("a", 5, "c"), At("b", 6)},
         .to = 1},
        {}));
    c.SetUseCompletedLimit(true);
    c.SetCompletedLimitNum(2);
    EXPECT_TRUE(c.DeleteCompletedMailsOverLimit());
    EXPECT_TRUE(c.GetOutboxMails().IsEmpty());
    EXPECT_TRUE(h.monitor.Requests().empty());
    EXPECT_EQ(Names(c.GetInboxMails()), "mate,a,b");

    // Completing a mail runs the limit: "mate", now the oldest, goes.
    c.SetInboxMailCompleted("b");
    EXPECT_EQ(h.DescribeAll().back(), "DeleteMails Inbox mate [ShowErrorInMailDeleting]");
    EXPECT_EQ(Names(c.GetInboxMails()), "a,b");

    // So does a sent mail that the client completes when the server lists
    // it, before its own request goes out.
    h.monitor.SetStatus(true);
    h.monitor.ClearRequests();
    c.SetCompletedLimitNum(0);
    h.monitor.Deliver(
        ScriptedMailboxMonitor::Change({.from = 1, .to = 1}, {.created = {At("s", 9)}, .to = 1}));
    EXPECT_EQ(
        h.DescribeAll(),
        (Strings{"DeleteMails Inbox a,b [ShowErrorInMailDeleting]",
                 "DeleteMails Sent s [ShowErrorInMailDeleting]",
                 "SetMailsCompleted Sent s [ShowErrorInSetMailsRead,SentMailSetToCompleted]"}));
}

}  // namespace
}  // namespace krtest::mailclient
