// The mail client in bulk, on a monitor that answers every request at once
// with success. Each case reports a baseline measured side by side in the
// same run (see bench::ReportRatio), and the longest wait of another thread
// for the client's lock while the case runs (lock_wait_max_us):
//
//   BM_MailClientMerge     a change of N created mails into a client holding
//                          100,000, and one deleting them again; baseline:
//                          wrapping the same mails, inserting them into a hash
//                          map of 100,000 and erasing them
//   BM_MailClientRead      N inbox mails marked read, the server confirming;
//                          baseline: the ids added to and removed from a set
//   BM_MailClientDelete    N inbox mails deleted, the server reporting the
//                          deletion, and the mails coming again; baseline: the
//                          same in a hash map and a set
//
// A cost that grows faster than the input shows as a ratio that grows with N.
//
//   KRC_BENCH=MailClientBenchmark scripts/bench.sh

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>

#include "BenchSupport.h"
#include "KRClient/MailClient/MailClient.h"

namespace {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;
constexpr int kHeld = 100000;

class AnsweringMonitor : public MB::MailboxMonitor {
public:
    ~AnsweringMonitor() override { DetachObservers(); }
    bool IsRunning() const override { return true; }
    void InitMailboxRevision(std::uint64_t, std::uint64_t) override {}
    void SetMailsRead(const MB::MailIdTable&, const M::MailboxName&,
                      MB::MailboxEventHandlerTasks& tasks) override {
        Succeed(tasks);
    }
    void SetMailsCompleted(const MB::MailIdTable&, const M::MailboxName&,
                           MB::MailboxEventHandlerTasks& tasks) override {
        Succeed(tasks);
    }
    void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>&, const M::MailboxName&,
                     MB::MailboxEventHandlerTasks& tasks) override {
        Succeed(tasks);
    }
    void Deliver(ZR::Ref<MB::MailboxChange> change) { NotifyMailboxChanged(change); }
    void Online() { NotifyServerStatus(true); }

private:
    static void Succeed(MB::MailboxEventHandlerTasks& tasks) {
        for (auto& task : tasks) task->SetSuccessfulResult(), task->Run();
    }
};

class NoErrors : public KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure&) override {}
    void MailDeletingFailed(Failure&) override {}
    void SetMailsReadFailed(Failure&) override {}
};

MB::ServerMails NewMails(const std::string& prefix, int n) {
    MB::ServerMails mails;
    for (int i = 0; i < n; ++i)
        mails.Add(ZR::Ref<M::Mail>::Make(M::MailId(ZR::UniString(prefix + std::to_string(i)))));
    return mails;
}

// A client holding kHeld inbox mails, online.
struct Setup {
    Setup() {
        client = std::make_unique<KRC::MailClient>(&monitor, &signals, &folder, false, 0,
                                                   std::make_unique<NoErrors>());
        monitor.Online();
        ZR::Ref<MB::MailboxChange> whole(new MB::MailboxChange);
        whole->GetInboxCreatedMails() = NewMails("held-", kHeld);
        whole->SetInboxRevisions(0, 1);
        Deliver(whole);
    }
    ~Setup() { client.reset(); }
    void Deliver(ZR::Ref<MB::MailboxChange> change) {
        change->SetSentRevisions(0, 0);
        monitor.Deliver(change);
    }
    ZR::Ref<MB::MailboxChange> Change() {
        ZR::Ref<MB::MailboxChange> change(new MB::MailboxChange);
        change->SetInboxRevisions(client->GetInboxRevision(), client->GetInboxRevision() + 1);
        return change;
    }

    AnsweringMonitor monitor;
    KRCB::SignalClient signals{"https://nowhere.invalid", "bench", "rt-none"};
    KRCB::CacheFolderConnection folder{IO::Location(
        ZR::UniString(std::string(std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp")))};
    std::unique_ptr<KRC::MailClient> client;
};

// Runs work once while another thread reads the client in a loop; the
// longest of its waits, in microseconds.
template <typename W>
double LongestLockWait(KRC::MailClient& client, W&& work) {
    std::atomic<bool> stop{false};
    double longest = 0;
    std::thread prober([&] {
        while (!stop) {
            auto start = std::chrono::steady_clock::now();
            benchmark::DoNotOptimize(client.IsOnline());
            double us =
                std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                    .count();
            if (us > longest) longest = us;
        }
    });
    work(0);
    stop = true;
    prober.join();
    return longest;
}

using HeldMap = std::unordered_map<ZR::UniString, ZR::Ref<KRC::ClientMail>>;

// The baselines' stand-in for the client's table of kHeld mails.
HeldMap HeldMails() {
    HeldMap map;
    for (auto& mail : NewMails("held-", kHeld))
        map.emplace(mail->GetId().ToString(), ZR::Ref<KRC::ClientMail>(new KRC::ClientMail(mail)));
    return map;
}

void BM_MailClientMerge(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Setup s;
    // Created, then deleted again, so that every round meets kHeld mails.
    MB::ServerMails mails = NewMails("new-", n);
    auto subject = [&](std::int64_t) {
        auto created = s.Change();
        created->GetInboxCreatedMails() = mails;
        s.Deliver(created);
        auto deleted = s.Change();
        for (const auto& mail : mails) deleted->GetInboxDeletedMails().Add(mail->GetId());
        s.Deliver(deleted);
    };
    for (auto _ : state) subject(0);
    HeldMap map = HeldMails();
    bench::ReportRatio(
        state, "map", subject,
        [&](std::int64_t) {
            for (auto& mail : mails)
                map.emplace(mail->GetId().ToString(),
                            ZR::Ref<KRC::ClientMail>(new KRC::ClientMail(mail)));
            for (const auto& mail : mails) map.erase(mail->GetId().ToString());
        },
        1);
    state.counters["lock_wait_max_us"] = LongestLockWait(*s.client, subject);
}
BENCHMARK(BM_MailClientMerge)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_MailClientRead(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Setup s;
    KRC::MailClient::Ids ids;
    for (int i = 0; i < n; ++i) ids.Add(ZR::UniString("held-" + std::to_string(i * 7)));
    auto subject = [&](std::int64_t) { s.client->SetInboxMailsRead(ids, KRC::MailClient::Task()); };
    for (auto _ : state) subject(0);
    bench::ReportRatio(
        state, "set", subject,
        [&](std::int64_t) {
            ZR::HashSet<ZR::UniString> set;
            for (const auto& id : ids) set.Add(id);
            for (const auto& id : ids) set.Remove(id);
            benchmark::DoNotOptimize(set);
        },
        1);
    state.counters["lock_wait_max_us"] = LongestLockWait(*s.client, subject);
}
BENCHMARK(BM_MailClientRead)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_MailClientDelete(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    Setup s;
    KRC::MailClient::Ids ids;
    MB::ServerMails again;
    for (int i = 0; i < n; ++i) {
        ids.Add(ZR::UniString("held-" + std::to_string(i * 7)));
        again.Add(ZR::Ref<M::Mail>::Make(M::MailId(ids.GetLast())));
    }
    auto subject = [&](std::int64_t) {
        s.client->DeleteInboxMails(ids, KRC::MailClient::Task());
        auto gone = s.Change();
        for (const auto& id : ids) gone->GetInboxDeletedMails().Add(M::MailId(id));
        s.Deliver(gone);
        auto back = s.Change();
        back->GetInboxCreatedMails() = again;
        s.Deliver(back);
    };
    for (auto _ : state) subject(0);
    HeldMap map = HeldMails();
    bench::ReportRatio(
        state, "map", subject,
        [&](std::int64_t) {
            ZR::HashSet<ZR::UniString> deleting;
            for (const auto& id : ids) deleting.Add(id);
            for (const auto& id : ids) map.erase(id), deleting.Remove(id);
            for (auto& mail : again)
                map.emplace(mail->GetId().ToString(),
                            ZR::Ref<KRC::ClientMail>(new KRC::ClientMail(mail)));
        },
        1);
    state.counters["lock_wait_max_us"] = LongestLockWait(*s.client, subject);
}
BENCHMARK(BM_MailClientDelete)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
