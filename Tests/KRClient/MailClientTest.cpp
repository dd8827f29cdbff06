// The mail client on the scripted monitor: merges by revision, the outbox,
// local changes that outlive merges, status changes, presence and signals,
// and the requests of the host's operations with their task orders.

#include <gtest/gtest.h>

// Boxes of changes name only the fields a case needs.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include "MailClientFixture.h"

namespace krtest::mailclient {
namespace {

using Box = ScriptedMailboxMonitor::Box;
using Ids = KRC::MailClient::Ids;

// An attachment that keeps its mail from being completed by the client.
class Pinned : public KRC::MailAttachment {
public:
    static const ZR::ClassInfo classInfo;
    MailAttachment* Clone() const override { return new Pinned(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    bool IsAutomaticCompleteEnabled() const override { return false; }
    bool IsSenderNeedToBeActive() const override { return true; }
    static ZR::Object* Make() { return new Pinned; }
};
const ZR::ClassInfo Pinned::classInfo("Test::Pinned", "0A0B0C0D-0000-4000-8000-0000000000e1", 1, 0,
                                      &KRC::MailAttachment::classInfo, &Pinned::Make);

M::Mail PinnedMail(const std::string& id, const std::string& from) {
    ZR::Ref<M::Mail> shared = ZR::Ref<M::Mail>::Make(ServerMail(id, from));
    KRC::ClientMail wrapped(shared);
    wrapped.AddAttachment(Pinned());
    return *wrapped.ToServerMail();
}

TEST(MailClientTest, MergesByRevisionWholeBoxesGapsAndDeletions) {
    MailClientHarness h;
    auto& c = *h.client;
    struct Step {
        Box inbox, sent;
        std::string inboxIds;
        Strings heard;
    } steps[] = {
        {{.created = {ServerMail("a"), ServerMail("b")}, .to = 3},
         {},
         "a,b",
         {"changes c=a,b u= d= | c= u= d="}},
        // An updated mail the table lacks is added; an unknown deleted id is no change.
        {{.updated = {ServerMail("c")}, .deleted = {"zz"}, .from = 3, .to = 4},
         {},
         "a,b,c",
         {"changes c= u=c d=zz | c= u= d="}},
        {{.deleted = {"zz"}, .from = 4, .to = 5}, {}, "a,b,c", {}},
        // A gap applies nothing; the other box changed, so the gap's lists
        // are told all the same.
        {{.created = {ServerMail("x")}, .from = 9, .to = 10},
         {.created = {ServerMail("s")}, .to = 2},
         "a,b,c",
         {"changes c=x u= d= | c=s u= d="}},
        // A whole box with nothing in it empties the table and tells nobody.
        {{.from = 0, .to = 20}, {.from = 2, .to = 2}, "", {}},
    };
    for (const auto& step : steps) {
        h.monitor.Deliver(ScriptedMailboxMonitor::Change(step.inbox, step.sent));
        EXPECT_EQ(Names(c.GetInboxMails()), step.inboxIds);
        EXPECT_EQ(h.heard.Take(), step.heard) << step.inboxIds;
    }
}

TEST(MailClientTest, ConstructionGivesRevisionsOnlyToAMonitorNotRunning) {
    for (bool running : {false, true}) {
        MailClientHarness h(running);
        EXPECT_EQ(h.DescribeAll(), running ? Strings{} : Strings{"InitMailboxRevision 0,0 []"});
        // Not running: observers are not told.
        h.monitor.Deliver(
            ScriptedMailboxMonitor::Change({.created = {ServerMail("a")}, .to = 1}, {}));
        EXPECT_EQ(h.heard.Take().size(), running ? 1u : 0u);
        EXPECT_EQ(Names(h.client->GetInboxMails()), "a");
    }
}

// Each request with its task order, the caller's task last or, for a send,
// first; what its end tells, in that order.
TEST(MailClientTest, RequestsCarryTheirTaskOrdersAndTellTheirEndsInThatOrder) {
    MailClientHarness h;
    auto& c = *h.client;
    h.monitor.Deliver(ScriptedMailboxMonitor::Change(
        {.created = {ServerMail("a"), ServerMail("b"), ServerMail("i")}, .to = 1},
        {.created = {ServerMail("s", "me", true), ServerMail("t", "me", true)}, .to = 1}));
    h.heard.Take();

    // Offline: flags set locally, the caller's task cancelled on the message
    // loop; a mail waits for the user's contact; a delete goes regardless.
    ZR::Ref<KRC::ClientMail> waiting(new KRC::ClientMail);
    c.SendMail(waiting, KRC::MailClient::Task());
    c.SetInboxMailsRead(Ids{"a"}, h.CallerTask());
    c.SetInboxMailCompleted("b");
    c.SetInboxMailCompleted("");
    c.DeleteInboxMail("", h.CallerTask());
    c.DeleteSentMails(Ids{"s"}, h.CallerTask());
    c.DeleteInboxMail("i", KRC::MailClient::Task());
    EXPECT_EQ(h.heard.Take(), Strings{});
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(h.heard.Take(), Strings{"caller cancel"});

    // A status of true repeats the kept lists without an error handler.
    h.KnowUser();
    h.monitor.SetStatus(true);
    ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
    c.SendMail(mail, h.CallerTask());
    c.SendMail(mail, h.CallerTask());  // already in the outbox: nothing
    c.SetInboxMailsRead(Ids{"b"}, h.CallerTask());
    c.SetInboxMailsCompleted(Ids{"a"}, h.CallerTask());
    c.SetSentMailsCompleted(Ids{"t"}, h.CallerTask());
    EXPECT_EQ(mail->GetSender().GetOwnerId(), "me");
    EXPECT_EQ(
        h.DescribeAll(),
        (Strings{
            "DeleteMails Sent s [ShowErrorInMailDeleting,CallerHandler]",
            "DeleteMails Inbox i [ShowErrorInMailDeleting]",
            "SendMails " + waiting->GetId().Std() + " [ShowErrorInMailSending,SendMailFinished]",
            "SetMailsCompleted Inbox b [InboxMailSetToCompleted]",
            "SetMailsRead Inbox a [InboxMailSetToRead]",
            "SendMails " + mail->GetId().Std() +
                " [CallerHandler,ShowErrorInMailSending,SendMailFinished]",
            "SetMailsRead Inbox b [ShowErrorInSetMailsRead,InboxMailSetToRead,CallerHandler]",
            "SetMailsCompleted Inbox a "
            "[InboxMailSetToCompleted,ShowErrorInSetMailsRead,CallerHandler]",
            "SetMailsCompleted Sent t "
            "[ShowErrorInSetMailsRead,SentMailSetToCompleted,CallerHandler]"}));
    const std::pair<int, Strings> ends[] = {
        {-1, {"delete failed: busy", "caller failure: busy"}},
        {1, {"changes"}},
        {-1, {"caller failure: busy", "send failed: busy"}},
        {-1, {"flag failed: busy", "caller failure: busy"}},
        {1, {"changes", "caller success"}},
        {0, {"caller cancel"}},
    };
    const std::size_t requests[] = {0, 1, 5, 6, 7, 8};
    for (std::size_t e = 0; e < std::size(ends); ++e) {
        const auto& [outcome, heard] = ends[e];
        if (outcome < 0) h.monitor.Fail(requests[e], "busy");
        if (outcome == 0) h.monitor.Cancel(requests[e]);
        if (outcome > 0) h.monitor.Succeed(requests[e]);
        EXPECT_EQ(h.heard.Take(), heard) << requests[e];
    }

    // Deleted mails stay hidden until the server reports them; then the set
    // forgets the ids, and a mail of that id coming again shows.
    EXPECT_FALSE(c.IsSentMail("s"));
    h.monitor.Deliver(ScriptedMailboxMonitor::Change({.deleted = {"i"}, .from = 1, .to = 2},
                                                     {.deleted = {"s"}, .from = 1, .to = 2}));
    EXPECT_EQ(h.heard.Take(), Strings{"changes c= u= d=i | c= u= d=s"});
    h.monitor.Deliver(
        ScriptedMailboxMonitor::Change({.created = {ServerMail("i")}, .from = 2, .to = 3}, {}));
    EXPECT_TRUE(c.IsInboxMail("i"));
}

TEST(MailClientTest, SentMailsAreCompletedByTheClientWhenAllowed) {
    MailClientHarness h;
    h.monitor.SetStatus(true);
    // Uncompleted from the server and no attachment forbids it: completed here.
    h.monitor.Deliver(ScriptedMailboxMonitor::Change(
        {}, {.created = {ServerMail("s1"), ServerMail("s2", "me", true), PinnedMail("p1", "me")},
             .to = 1}));
    EXPECT_EQ(
        h.DescribeAll(),
        Strings{"SetMailsCompleted Sent s1 [ShowErrorInSetMailsRead,SentMailSetToCompleted]"});
    h.monitor.Fail(0, "x");
    EXPECT_EQ(h.heard.Take(), (Strings{"changes c= u= d= | c=s1,s2,p1 u= d=", "flag failed: x"}));

    // A sender who left the contacts: uncompleted sent mails of theirs complete.
    h.monitor.Deliver(ScriptedMailboxMonitor::Change(
        {}, {.updated = {ServerMail("s3", "gone"), PinnedMail("p2", "gone")}, .from = 1, .to = 2}));
    h.monitor.ClearRequests();
    h.KnowUser();
    EXPECT_EQ(
        h.DescribeAll(),
        Strings{"SetMailsCompleted Sent s3 [ShowErrorInSetMailsRead,SentMailSetToCompleted]"});
}

TEST(MailClientTest, StatusPresenceAndSignalsDriveTheMonitor) {
    MailClientHarness h;
    auto& c = *h.client;
    struct Case {
        bool signal;  // else a presence state
        int value;
        const char* request;  // none if null
    } cases[] = {
        {false, 7, "Suspend"},     {true, 1, "UpdateContactList"},
        {true, 10, "UpdateMails"}, {true, 18, "ResetConnection"},
        {true, 12, nullptr},
    };
    for (const Case& k : cases) {
        h.monitor.ClearRequests();
        if (k.signal) {
            c.SignalReceived(nullptr, {k.value, "", ""});
            EXPECT_EQ(c.CheckSignalType(k.value), k.request != nullptr) << k.value;
        } else {
            c.PresenceStateChanged(k.value);
        }
        EXPECT_EQ(h.DescribeAll(),
                  k.request ? Strings{k.request + std::string("  []")} : Strings{});
    }

    // Sender and time are renewed on the step from offline to online only.
    ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
    c.SendMail(mail, KRC::MailClient::Task());
    h.KnowUser();
    EXPECT_FALSE(c.IsOnline());
    h.monitor.SetStatus(true);
    EXPECT_TRUE(c.IsOnline());
    EXPECT_EQ(mail->GetSender().GetOwnerId(), "me");
    mail->SetSender(M::Address({"other", "Inbox"}, "Other"));
    h.monitor.SetStatus(true);
    EXPECT_EQ(mail->GetSender().GetOwnerId(), "other");

    // After Close: offline, deaf, and every operation that needs the monitor idle.
    h.monitor.ClearRequests();
    c.Close();
    EXPECT_FALSE(c.IsOnline());
    h.monitor.Deliver(
        ScriptedMailboxMonitor::Change({.created = {ServerMail("late")}, .to = 1}, {}));
    c.SetInboxMailsRead(Ids{"late"}, h.CallerTask());
    c.DeleteInboxMails(Ids{"late"}, h.CallerTask());
    c.SignalReceived(nullptr, {10, "", ""});
    c.NotifyMailListChanged();
    EXPECT_TRUE(c.GetInboxMails().IsEmpty());
    EXPECT_TRUE(h.monitor.Requests().empty());
    EXPECT_EQ(h.heard.Take(), Strings{});
}

TEST(MailClientTest, ListsAndLookUpsAcrossTheBoxes) {
    MailClientHarness h;
    auto& c = *h.client;
    ZR::Ref<KRC::ClientMail> out(new KRC::ClientMail);
    c.SendMail(out, KRC::MailClient::Task());
    h.monitor.Deliver(ScriptedMailboxMonitor::Change(
        {.created = {ServerMail("both")}, .to = 1},
        {.created = {ServerMail("both", "me", true), ServerMail("sent", "me", true)}, .to = 1}));
    EXPECT_EQ(Names(c.GetAllMails()), "both,both,sent," + out->GetId().Std());
    ZR::Ref<KRC::ClientMail> found;
    EXPECT_TRUE(c.GetMail(out->GetId(), found));
    EXPECT_EQ(found, out);
    EXPECT_FALSE(c.GetInboxMail("sent", found));
    EXPECT_FALSE(c.IsInboxMail("") || c.IsSentMail("") || c.IsOutboxMail(""));
    EXPECT_FALSE(c.IsOutboxMail(ZR::Ref<KRC::ClientMail>()));
    // Completed while still in the outbox: set on the outbox mail, kept for the server.
    c.SetSentMailCompleted(out->GetId());
    EXPECT_TRUE(out->IsCompleted());
    h.monitor.SetStatus(true);
    EXPECT_NE(h.DescribeAll().back().find("SetMailsCompleted Sent " + out->GetId().Std()),
              std::string::npos);
    // Outbox observers hear of changes on the message loop, and may read the client.
    struct Reader : KRC::OutboxObserver {
        KRC::MailClient* client = nullptr;
        std::size_t seen = 0;
        void OutboxContentChanged() override { seen = client->GetOutboxMails().GetSize(); }
        ~Reader() override { DetachFromSources(); }
    } reader;
    reader.client = &c;
    c.AttachOutbox(reader);
    c.DeleteOutboxMails({out->GetId()});
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(reader.seen, 0u);
    EXPECT_TRUE(c.GetOutboxMails().IsEmpty());
    c.DetachOutbox(reader);
}

}  // namespace
}  // namespace krtest::mailclient
