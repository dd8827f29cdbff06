#pragma once
// A mailbox monitor that talks to no server: it records every request with
// its task list and ends it only when the test says, and delivers exactly the
// changes, contact lists and status changes the test gives, on the test's
// thread. So the mail client's merge rules can be tested exactly, apart from
// the emulator and its thread.

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
        std::string op;                // the name of the monitor's call
        std::string box;               // "Inbox" or "Sent" where the call names one
        std::vector<std::string> ids;  // mails set, deleted or sent; revisions of an init
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
        Record("InitMailboxRevision", {}, {std::to_string(inbox), std::to_string(sent)});
    }
    void SendMails(KRCB::Mailbox::ServerMails& mails, Tasks& tasks) override {
        std::vector<std::string> ids;
        for (const auto& mail : mails)
            if (mail) ids.push_back(mail->GetId().ToString().Std());
        Record("SendMails", {}, ids, tasks);
    }
    void SetMailsRead(const KRCB::Mailbox::MailIdTable& ids, const ZR::UniString& box,
                      Tasks& tasks) override {
        Record("SetMailsRead", box.Std(), Keys(ids), tasks);
    }
    void SetMailsCompleted(const KRCB::Mailbox::MailIdTable& ids, const ZR::UniString& box,
                           Tasks& tasks) override {
        Record("SetMailsCompleted", box.Std(), Keys(ids), tasks);
    }
    void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>& ids, const ZR::UniString& box,
                     Tasks& tasks) override {
        std::vector<std::string> list;
        for (const auto& id : ids) list.push_back(id.Std());
        Record("DeleteMails", box.Std(), list, tasks);
    }
    void UpdateContactList(Tasks& tasks) override { Record("UpdateContactList", {}, {}, tasks); }
    void UpdateMails(Tasks& tasks) override { Record("UpdateMails", {}, {}, tasks); }
    void ResetConnection() override { Record("ResetConnection"); }
    void Suspend() override { Record("Suspend"); }
    void Continue() override { Record("Continue"); }

private:
    static void Fill(const Box& box, KRCB::Mailbox::ServerMails& created,
                     KRCB::Mailbox::ServerMails& updated, KRCB::Mailbox::ServerMailIds& deleted) {
        for (const Mail& mail : box.created) created.Add(ZR::Ref<Mail>::Make(mail));
        for (const Mail& mail : box.updated) updated.Add(ZR::Ref<Mail>::Make(mail));
        for (const std::string& id : box.deleted)
            deleted.Add(Kerrow::Server::Mail::MailId(ZR::UniString(id)));
    }
    static std::vector<std::string> Keys(const KRCB::Mailbox::MailIdTable& ids) {
        std::vector<std::string> keys;
        for (const auto& entry : ids) keys.push_back(entry.first.Std());
        return keys;
    }
    void Record(std::string op, std::string box = {}, std::vector<std::string> ids = {},
                const Tasks& tasks = {}) {
        std::lock_guard<std::mutex> lock(mMutex);
        mRequests.push_back({std::move(op), std::move(box), std::move(ids), tasks});
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
