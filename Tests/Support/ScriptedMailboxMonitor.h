#pragma once
// A mailbox monitor that talks to no server: it records every request with
// its task list and ends it only when the test says, and delivers exactly the
// changes, contact lists and status changes the test gives, on the test's
// thread. So the mail client's merge rules can be tested exactly, apart from
// the emulator and its thread.
//
//   ScriptedMailboxMonitor monitor;
//   client = new KRC::MailClient(&monitor, ...);
//   monitor.SetStatus(true);
//   monitor.Deliver(ScriptedMailboxMonitor::Change({.created = {mail}, .to = 1}, {}));
//   auto sent = monitor.Requests();           // what the client asked
//   monitor.Fail(0, "no room");               // ends request 0 in its failure

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "KRCB/MailboxMonitor.h"

namespace krtest {

class ScriptedMailboxMonitor : public KRCB::Mailbox::MailboxMonitor {
public:
    using Mail = Kerrow::Server::Mail::Mail;
    using Tasks = KRCB::Mailbox::MailboxEventHandlerTasks;

    struct Request {
        /// "SendMails", "SetMailsRead", "SetMailsCompleted", "DeleteMails",
        /// "UpdateContactList", "UpdateMails", "ResetConnection", "Suspend",
        /// "Continue", "InitMailboxRevision".
        std::string op;
        std::string box;               ///< "Inbox" or "Sent" where the request names one
        std::vector<std::string> ids;  ///< mails set or deleted, or sent
        std::vector<Mail> mails;       ///< what SendMails was given
        std::uint64_t inboxRevision = 0, sentRevision = 0;  ///< InitMailboxRevision's
        Tasks tasks;
    };

    /// One box of a change.
    struct Box {
        std::vector<Mail> created, updated;
        std::vector<std::string> deleted;
        std::uint64_t from = 0, to = 0;
    };

    ~ScriptedMailboxMonitor() override { DetachObservers(); }

    static ZR::Ref<KRCB::Mailbox::MailboxChange> Change(const Box& inbox, const Box& sent) {
        ZR::Ref<KRCB::Mailbox::MailboxChange> change(new KRCB::Mailbox::MailboxChange);
        Fill(inbox, change->GetInboxCreatedMails(), change->GetInboxUpdatedMails(),
             change->GetInboxDeletedMails());
        Fill(sent, change->GetSentCreatedMails(), change->GetSentUpdatedMails(),
             change->GetSentDeletedMails());
        change->SetInboxRevisions(inbox.from, inbox.to);
        change->SetSentRevisions(sent.from, sent.to);
        return change;
    }

    // What the test says, on its own thread.
    void Deliver(ZR::Ref<KRCB::Mailbox::MailboxChange> change) { NotifyMailboxChanged(change); }
    void SetStatus(bool online) { NotifyServerStatus(online); }
    /// The list becomes the monitor's; userId names the user's own contact.
    void SetContacts(const ZR::Ref<KRCB::Mailbox::ContactList>& list, const std::string& userId) {
        SetContactList(list, ZR::UniString(userId));
        NotifyContactListChanged();
    }

    std::vector<Request> Requests() const {
        std::lock_guard<std::mutex> lock(mMutex);
        return mRequests;
    }
    void ClearRequests() {
        std::lock_guard<std::mutex> lock(mMutex);
        mRequests.clear();
    }
    /// End request i (in the order made) in one outcome, running its tasks here.
    void Succeed(std::size_t i) {
        End(i, [](auto& t) { t->SetSuccessfulResult(); });
    }
    void Cancel(std::size_t i) {
        End(i, [](auto& t) { t->SetCanceledResult(); });
    }
    void Fail(std::size_t i, const std::string& message) {
        ZR::Ref<KRCB::Mailbox::MailboxMonitorException> e(
            new KRCB::Mailbox::MailboxMonitorException(ZR::UniString(message), ZR_HERE));
        End(i, [&](auto& t) { t->SetFailedResult(e); });
    }

    void Start() override { mRunning = true; }
    void Stop() override { mRunning = false; }
    bool IsRunning() const override { return mRunning; }
    void InitMailboxRevision(std::uint64_t inbox, std::uint64_t sent) override {
        Request r = Named("InitMailboxRevision");
        r.inboxRevision = inbox;
        r.sentRevision = sent;
        Record(std::move(r));
    }
    void SendMails(KRCB::Mailbox::ServerMails& mails, Tasks& tasks) override {
        Request r = Named("SendMails");
        for (const auto& mail : mails)
            if (mail) r.mails.push_back(*mail), r.ids.push_back(mail->GetId().ToString().Std());
        r.tasks = tasks;
        Record(std::move(r));
    }
    void SetMailsRead(const KRCB::Mailbox::MailIdTable& ids, const ZR::UniString& box,
                      Tasks& tasks) override {
        Record(WithIds("SetMailsRead", ids, box, tasks));
    }
    void SetMailsCompleted(const KRCB::Mailbox::MailIdTable& ids, const ZR::UniString& box,
                           Tasks& tasks) override {
        Record(WithIds("SetMailsCompleted", ids, box, tasks));
    }
    void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>& ids, const ZR::UniString& box,
                     Tasks& tasks) override {
        Request r = Named("DeleteMails", box.Std());
        for (const auto& id : ids) r.ids.push_back(id.Std());
        r.tasks = tasks;
        Record(std::move(r));
    }
    void UpdateContactList(Tasks& tasks) override { Record(Named("UpdateContactList", "", tasks)); }
    void UpdateMails(Tasks& tasks) override { Record(Named("UpdateMails", "", tasks)); }
    void ResetConnection() override { Record(Named("ResetConnection")); }
    void Suspend() override { Record(Named("Suspend")); }
    void Continue() override { Record(Named("Continue")); }

private:
    static Request Named(std::string op, std::string box = {}, const Tasks& tasks = {}) {
        Request r;
        r.op = std::move(op);
        r.box = std::move(box);
        r.tasks = tasks;
        return r;
    }
    static void Fill(const Box& box, KRCB::Mailbox::ServerMails& created,
                     KRCB::Mailbox::ServerMails& updated, KRCB::Mailbox::ServerMailIds& deleted) {
        for (const Mail& mail : box.created) created.Add(ZR::Ref<Mail>::Make(mail));
        for (const Mail& mail : box.updated) updated.Add(ZR::Ref<Mail>::Make(mail));
        for (const std::string& id : box.deleted)
            deleted.Add(Kerrow::Server::Mail::MailId(ZR::UniString(id)));
    }
    static Request WithIds(const char* op, const KRCB::Mailbox::MailIdTable& ids,
                           const ZR::UniString& box, Tasks& tasks) {
        Request r = Named(op, box.Std());
        for (const auto& entry : ids) r.ids.push_back(entry.first.Std());
        r.tasks = tasks;
        return r;
    }
    void Record(Request request) {
        std::lock_guard<std::mutex> lock(mMutex);
        mRequests.push_back(std::move(request));
    }
    template <typename F>
    void End(std::size_t i, F&& set) {
        Tasks tasks;
        {
            std::lock_guard<std::mutex> lock(mMutex);
            tasks = mRequests.at(i).tasks;
        }
        for (auto& task : tasks) {
            if (!task) continue;
            set(task);
            task->Run();
        }
    }

    mutable std::mutex mMutex;
    std::vector<Request> mRequests;
    std::atomic<bool> mRunning{false};
};

}  // namespace krtest
