#pragma once
// A mail client on the scripted monitor, with a signal client that reaches no
// server, recording what the observers and the error handler hear.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ContactBuilder.h"
#include "KRClient/MailClient/MailClient.h"
#include "Support/ScriptedMailboxMonitor.h"
#include "Support/TempFolder.h"
#include "ZR/MessageLoop.h"

namespace krtest::mailclient {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;
using Strings = std::vector<std::string>;

// What the test hears, from any thread.
struct Heard {
    void Add(std::string what) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(std::move(what));
    }
    Strings Take() {
        std::lock_guard<std::mutex> lock(mutex);
        return std::exchange(lines, {});
    }
    std::mutex mutex;
    Strings lines;
};

class RecordingErrorHandler : public KRC::MailClientErrorHandler {
public:
    explicit RecordingErrorHandler(Heard& heard) : mHeard(heard) {}
    void MailSendingFailed(Failure& f) override { mHeard.Add("send failed: " + Text(f)); }
    void MailDeletingFailed(Failure& f) override { mHeard.Add("delete failed: " + Text(f)); }
    void SetMailsReadFailed(Failure& f) override { mHeard.Add("flag failed: " + Text(f)); }

private:
    static std::string Text(Failure& f) { return f->GetMessage().Std(); }
    Heard& mHeard;
};

// "changes c=a,b u= d= | c= u= d=" for the six lists; "changes" alone when empty.
class RecordingObserver : public KRC::MailClientObserver {
public:
    explicit RecordingObserver(Heard& heard) : mHeard(heard) {}
    ~RecordingObserver() override { DetachFromSources(); }
    void MailListChanged(KRC::MailClient&, const MailboxChanges& c) override {
        std::string text = "changes";
        const MailIds* lists[] = {&c.GetCreatedInboxMails(), &c.GetUpdatedInboxMails(),
                                  &c.GetDeletedInboxMails(), &c.GetCreatedSentMails(),
                                  &c.GetUpdatedSentMails(),  &c.GetDeletedSentMails()};
        std::string all;
        for (int i = 0; i < 6; ++i) {
            all += i == 3 ? " |" : "";
            all += std::string(" ") + "cud"[i % 3] + "=";
            std::string sep;
            for (const auto& id : *lists[i]) all += sep + id.ToString().Std(), sep = ",";
        }
        if (all != " c= u= d= | c= u= d=") text += all;
        mHeard.Add(text);
    }

private:
    Heard& mHeard;
};

// A caller's handler: "caller success" and so on.
class CallerHandler : public MB::MailboxEventHandler {
public:
    explicit CallerHandler(Heard& heard) : mHeard(heard) {}
    void OnSuccess() override { mHeard.Add("caller success"); }
    void OnCancel() override { mHeard.Add("caller cancel"); }
    void OnFailure(ZR::Ref<MB::MailboxMonitorException>& e) override {
        mHeard.Add("caller failure: " + e->GetMessage().Std());
    }

private:
    Heard& mHeard;
};

// The cache folder alone, for a project "/p".
struct FolderManager : KRCB::CacheFolderConnection {
    explicit FolderManager(IO::Location folder)
        : CacheFolderConnection(std::move(folder), IO::Location(), "/p") {}
};

inline M::Mail ServerMail(const std::string& id, const std::string& from = "me",
                          bool completed = false) {
    M::Mail mail{M::MailId(ZR::UniString(id))};
    M::AddressList senders;
    senders.Add(M::Address({ZR::UniString(from), "Inbox"}, ZR::UniString(from)));
    mail.SetFrom(senders);
    mail.SetCompleted(completed);
    return mail;
}

inline std::string Names(const KRC::MailClient::Mails& mails) {
    std::string s, sep;
    for (const auto& mail : mails) s += sep + mail->GetId().Std(), sep = ",";
    return s;
}

class MailClientHarness {
public:
    explicit MailClientHarness(bool monitorRunning = true) {
        if (monitorRunning) monitor.Start();
        client = std::make_unique<KRC::MailClient>(&monitor, &signals, &manager, false, 0,
                                                   std::make_unique<RecordingErrorHandler>(heard));
        client->Attach(observer);
    }
    ~MailClientHarness() {
        client.reset();
        ZR::MessageLoop::RunPending();
    }
    // Gives the monitor the user's own contact, owner "me".
    void KnowUser() {
        ZR::Ref<MB::ContactList> list(new MB::ContactList);
        ContactSpec me;
        me.ownerId = "me";
        list->AddContact(me.Build());
        monitor.SetContacts(list, "me");
        heard.Take();
    }
    ZR::Ref<MB::MailboxEventHandlerTask> CallerTask() {
        return ZR::Ref<MB::MailboxEventHandlerTask>(
            new MB::MailboxEventHandlerTask(&taskOwner, new CallerHandler(heard)));
    }
    // "Op Box ids [Handler,Handler,caller]" of each request.
    Strings DescribeAll() const {
        Strings all;
        for (const auto& r : monitor.Requests()) {
            std::string s = r.op + (r.box.empty() ? "" : " " + r.box) + " ", sep;
            for (const auto& id : r.ids) s += sep + id, sep = ",";
            s += " [", sep.clear();
            for (const auto& task : r.tasks) {
                std::string name = typeid(*task->GetHandler()).name();
                for (const char* known :
                     {"ShowErrorInMailSending", "SendMailFinished", "ShowErrorInMailDeleting",
                      "ShowErrorInSetMailsRead", "InboxMailSetToCompleted", "InboxMailSetToRead",
                      "SentMailSetToCompleted", "CallerHandler"})
                    if (name.find(known) != std::string::npos) name = known;
                s += sep + name, sep = ",";
            }
            all.push_back(s + "]");
        }
        return all;
    }

    struct Owner : ZR::DependentResource {
        ~Owner() override { ReleaseDependents(); }
    } taskOwner;
    TempFolder folder;
    ZR::MessageLoop::Scope loop;
    Heard heard;
    ScriptedMailboxMonitor monitor;
    KRCB::SignalClient signals{"https://nowhere.invalid", "anna", "rt-none"};
    FolderManager manager{folder.Location()};
    RecordingObserver observer{heard};
    std::unique_ptr<KRC::MailClient> client;
};

}  // namespace krtest::mailclient
