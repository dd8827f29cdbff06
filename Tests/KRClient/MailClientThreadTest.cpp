// The mail client under threads: the monitor delivering, requests ending on
// the monitor's side, the host calling, the message loop running cancelled
// tasks, and Close and destruction racing all of them. Each round has a
// bound; a round past it means a deadlock and ends the process.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>

#include "KRCB/Paths.h"
#include "KRClient/MailClient/UserContactFactory.h"
#include "MailClientFixture.h"
#include "Support/EmulatorFixture.h"

#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace krtest::mailclient {
namespace {

using Ids = KRC::MailClient::Ids;
constexpr auto kBound = std::chrono::seconds(30);

// Aborts the process if the round does not end within the bound: a deadlock
// can't be failed any other way.
class Watchdog {
public:
    explicit Watchdog(const char* what)
        : mThread([this, what] {
              std::unique_lock<std::mutex> lock(mMutex);
              if (!mDone.wait_for(lock, kBound, [&] { return mOver; })) {
                  std::fprintf(stderr, "deadlock: %s did not end within the bound\n", what);
                  std::abort();
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(mMutex);
            mOver = true;
        }
        mDone.notify_all();
        mThread.join();
    }

private:
    std::mutex mMutex;
    std::condition_variable mDone;
    bool mOver = false;
    std::thread mThread;
};

TEST(MailClientThreadTest, CloseAndDestructionRaceDeliveriesHostCallsAndRequestEnds) {
    for (int round = 0; round < 20; ++round) {
        Watchdog watchdog("a round of close against deliveries");
        MailClientHarness h;
        h.KnowUser();
        std::atomic<bool> stop{false}, stopHost{false};
        KRC::MailClient* client = h.client.get();
        std::atomic<int> delivered{0};
        // The monitor's thread: changes, status, contact lists.
        std::thread monitor([&] {
            std::uint64_t revision = 0;
            for (int i = 0; !stop && i < 2000; ++i) {
                std::string id = "m" + std::to_string(i % 50);
                h.monitor.Deliver(ScriptedMailboxMonitor::Change(
                    {.created = {ServerMail(id)}, .from = revision, .to = revision + 1},
                    {.created = {ServerMail("s" + id)}, .from = revision, .to = revision + 1}));
                ++revision;
                h.monitor.SetStatus(i % 3 != 0);
                ++delivered;
            }
        });
        // The monitor's side ending requests as they come.
        std::thread ender([&] {
            std::size_t next = 0;
            while (!stop) {
                auto count = h.monitor.Requests().size();
                for (; next < count; ++next) {
                    if (next % 2)
                        h.monitor.Succeed(next);
                    else
                        h.monitor.Fail(next, "no");
                }
                std::this_thread::yield();
            }
        });
        // The host, and the signal client's callbacks.
        std::thread host([&] {
            for (int i = 0; !stopHost; ++i) {
                std::string id = "m" + std::to_string(i % 50);
                client->SetInboxMailsRead(Ids{ZR::UniString(id)}, h.CallerTask());
                client->DeleteSentMail(ZR::UniString("s" + id), h.CallerTask());
                ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
                client->SendMail(mail, KRC::MailClient::Task());
                (void)client->GetAllMails();
                // The signal client's thread, forwarding to the monitor.
                client->SignalReceived(nullptr, KRCB::Signal(i % 2 ? 10 : 1, "", ""));
                client->PresenceStateChanged(KRCB::kPresenceOnline);
            }
        });
        while (delivered < 5 * (round % 4 + 1)) {
            ZR::MessageLoop::RunPending();
            std::this_thread::yield();
        }
        // The host calls while Close runs, but never on a destroyed client.
        if (round % 2) {
            client->Close();
            stopHost = true;
            host.join();
        } else {
            stopHost = true;
            host.join();
            h.client.reset();
        }
        stop = true;
        monitor.join();
        ender.join();
        ZR::MessageLoop::RunPending();
    }
}

TEST(MailClientThreadTest, DestructionWaitsForAHandlerRunningOnAnotherThread) {
    for (int round = 0; round < 20; ++round) {
        Watchdog watchdog("destruction against request ends");
        MailClientHarness h;
        h.monitor.SetStatus(true);
        for (int i = 0; i < 20; ++i)
            h.client->SetInboxMailsRead(Ids{ZR::UniString("m" + std::to_string(i))},
                                        KRC::MailClient::Task());
        std::thread ender([&] {
            for (std::size_t i = 0; i < h.monitor.Requests().size(); ++i) h.monitor.Succeed(i);
        });
        h.client.reset();
        ender.join();
    }
}

// Pumps the message loop until cond holds; false past the bound.
bool Await(const std::function<bool()>& cond) {
    const auto end = std::chrono::steady_clock::now() + kBound;
    while (!cond()) {
        if (std::chrono::steady_clock::now() > end) return false;
        ZR::MessageLoop::RunUntil(cond, 10);
    }
    return true;
}

// A user's mail client on a real monitor against the emulator.
struct Desk {
    Desk(const std::string& login, const std::string& token, const TempFolder& folder)
        : location(ProjectLocation(login, token)),
          monitor(location, ZR::Ref<MB::ContactFactory>(new KRC::Mailbox::UserContactFactory)),
          signals(kServer, ZR::UniString(login), ZR::UniString(token)),
          manager(folder.Location()),
          client(&monitor, &signals, &manager, false, 0,
                 std::make_unique<RecordingErrorHandler>(heard)) {
        monitor.Start();
        EXPECT_TRUE(Await([&] { return client.IsOnline() && monitor.GetUserContact(); }));
    }
    ~Desk() {
        client.Close();
        monitor.Stop();
    }
    M::Address Inbox() {
        M::Address address;
        monitor.GetUserContact()->GetInboxMailboxAddress(address);
        return address;
    }
    ZR::Ref<KRC::ClientMail> Send(const M::Address& to, const char* text) {
        ZR::Ref<KRC::ClientMail> mail(new KRC::ClientMail);
        mail->SetSingleRecipient(to);
        mail->SetMessagePart(text);
        client.SendMail(mail, KRC::MailClient::Task());
        return mail;
    }

    Heard heard;
    IO::Location location;
    MB::MailboxMonitor monitor;
    KRCB::SignalClient signals;
    FolderManager manager;
    KRC::MailClient client;
};

TEST(MailClientThreadTest, OfflineWorkReachesTheServerAndTheOtherUserOnTheWayBack) {
    Watchdog watchdog("offline work against the emulator");
    EmulatedService service;
    ZR::MessageLoop::Scope loop;
    TempFolder annaFolder, bertFolder;
    Desk anna("anna", "rt-anna", annaFolder), bert("bert", "rt-bert", bertFolder);
    auto first = bert.Send(anna.Inbox(), "one"), second = bert.Send(anna.Inbox(), "two");
    ASSERT_TRUE(Await([&] { return anna.client.GetInboxMails().GetSize() == 2; }));

    anna.client.PresenceStateChanged(KRCB::kPresenceCheckFailed);
    ASSERT_TRUE(Await([&] { return !anna.client.IsOnline(); }));
    anna.client.SetInboxMailRead(first->GetId());
    anna.client.SetInboxMailCompleted(second->GetId());
    auto reply = anna.Send(bert.Inbox(), "thanks");
    EXPECT_EQ(anna.client.GetOutboxMails().GetSize(), 1u);

    anna.client.PresenceStateChanged(KRCB::kPresenceOnline);
    const std::string box = service->GetMailboxId(kServer, "anna", "Inbox");
    auto flagsOnServer = [&] {
        std::string flags;
        for (const M::Mail& mail : service->GetMails(kServer, box))
            flags += std::string(mail.IsRead() ? "r" : "-") + (mail.IsCompleted() ? "c" : "-");
        return flags;
    };
    EXPECT_TRUE(Await([&] {
        return anna.client.GetOutboxMails().IsEmpty() && bert.client.IsInboxMail(reply->GetId()) &&
               flagsOnServer() == "r--c";
    })) << flagsOnServer();
    EXPECT_TRUE(anna.client.IsSentMail(reply->GetId()));
    EXPECT_EQ(anna.heard.Take(), Strings{});
}

}  // namespace
}  // namespace krtest::mailclient
