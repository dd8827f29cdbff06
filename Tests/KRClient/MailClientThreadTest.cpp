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
#include <mutex>
#include <thread>

#include "MailClientFixture.h"

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

// Another thread reads the client while the observer's call is under way:
// it would wait forever if the lock were held.
TEST(MailClientThreadTest, ObserversAreCalledOutsideTheLock) {
    Watchdog watchdog("a read from inside an observer");
    MailClientHarness h;
    struct CrossReader : KRC::MailClientObserver {
        std::size_t seen = 99;
        void MailListChanged(KRC::MailClient& client, const MailboxChanges&) override {
            std::thread([&] { seen = client.GetInboxMails().GetSize(); }).join();
        }
        ~CrossReader() override { DetachFromSources(); }
    } reader;
    h.client->Attach(reader);
    h.monitor.Deliver(ScriptedMailboxMonitor::Change({.created = {ServerMail("a")}, .to = 1}, {}));
    EXPECT_EQ(reader.seen, 1u);
    h.client->Detach(reader);
}

}  // namespace
}  // namespace krtest::mailclient
