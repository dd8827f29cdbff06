// The mail client's storage at scale: "Mails.dat" with 100,000 mails of about
// 1 KB each, and the limit on completed mails. Each case reports baselines
// measured side by side in the same run:
//
//   BM_MailsFileWrite   the client's tables into Mails.dat; baseline: writing
//                       the file's bytes, held in memory, the same atomic way
//   BM_MailsFileRead    Mails.dat into tables of mails, as a starting client
//                       reads it; baselines: reading the file's bytes, and
//                       loading the same mails from an SQLite table with one
//                       row per mail (id, box, stored form), which is what a
//                       host would pick instead (ratio_sqlite < 1: faster)
//   BM_MailClientHeap   a client started on that file: heap it holds and its
//                       peak while reading, against the mails' own size (the
//                       file's bytes)
//   BM_CompletedLimit   the limit over N completed mails in threads of 4,
//                       keeping half; baseline: sorting N (time, id) pairs and
//                       putting the ids into a set: a flat ratio over N is
//                       n log n
//
//   KRC_BENCH=MailStorageBenchmark scripts/bench.sh

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "IO/File.h"
#include "KRCB/Paths.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/MailClient.h"

namespace {

namespace M = Kerrow::Server::Mail;
namespace MB = KRCB::Mailbox;
namespace I = KRC::Internal;
constexpr int kMails = 100000;

class QuietMonitor : public MB::MailboxMonitor {
public:
    ~QuietMonitor() override { DetachObservers(); }
    bool IsRunning() const override { return true; }
    void InitMailboxRevision(std::uint64_t, std::uint64_t) override {}
    void DeleteMails(const ZR::PagedArray<ZR::UniString, 8>&, const M::MailboxName&,
                     MB::MailboxEventHandlerTasks&) override {}
    void Deliver(ZR::Ref<MB::MailboxChange> change) { NotifyMailboxChanged(change); }
};

struct Folder : KRCB::ProjectConnectionManagerInterface {
    explicit Folder(IO::Location at) : location(std::move(at)) {}
    const IO::Location& GetKerrowLocation() const override { return location; }
    ZR::UniString GetProjectPath() const override { return ""; }
    bool IsSecondary() const override { return false; }
    KRCB::SignalClient* GetSignalClient() const override { return nullptr; }
    ZR::UniString GetSessionId() const override { return ""; }
    IO::Location GetCacheFolderLocation() const override { return location; }
    IO::Location location;
};

class NoErrors : public KRC::MailClientErrorHandler {
    void MailSendingFailed(Failure&) override {}
    void MailDeletingFailed(Failure&) override {}
    void SetMailsReadFailed(Failure&) override {}
};

// Mail i: about 1 KB stored, sent at i, in thread i / 4, completed.
M::Mail NewMail(int i, const M::Mail& form) {
    M::Mail mail{M::MailId(ZR::UniString("mail-" + std::to_string(i)))};
    mail.SetFrom(form.GetFrom());
    mail.SetTo(form.GetTo());
    mail.SetSent(M::Date(i));
    mail.SetCompleted(true);
    for (const auto& header : form.GetHeaders()) mail.SetHeader(header.first, header.second);
    mail.SetHeader(KRC::ClientMail::kThreadHeaderName,
                   ZR::UniString("thread-" + std::to_string(i / 4)));
    mail.GetBodyParts() = form.GetBodyParts();
    return mail;
}

MB::ServerMails NewMails(int n) {
    KRC::ClientMail draft;
    draft.SetMessagePart(ZR::UniString(std::string(800, 'm')));
    draft.SetSender(M::Address({"u-anna", "Inbox"}, "Anna Example"));
    M::AddressList to;
    to.Add(M::Address({"u-bert", "Inbox"}, "Bert Example"));
    draft.SetRecipients(to);
    ZR::Ref<M::Mail> form = draft.ToServerMail();
    MB::ServerMails mails;
    for (int i = 0; i < n; ++i) mails.Add(ZR::Ref<M::Mail>::Make(NewMail(i, *form)));
    return mails;
}

// A client holding n mails in its inbox, on folder.
struct Client {
    Client(const IO::Location& at, int n) : folder(at) {
        client = std::make_unique<KRC::MailClient>(&monitor, &signals, &folder, false, 0,
                                                   std::make_unique<NoErrors>());
        if (n == 0) return;
        ZR::Ref<MB::MailboxChange> whole(new MB::MailboxChange);
        whole->GetInboxCreatedMails() = NewMails(n);
        whole->SetInboxRevisions(0, 1);
        monitor.Deliver(whole);
    }
    QuietMonitor monitor;
    KRCB::SignalClient signals{"https://nowhere.invalid", "bench", "rt-none"};
    Folder folder;
    std::unique_ptr<KRC::MailClient> client;
};

std::string TempFolder() {
    std::string base = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "/tmp";
    std::string path = base + "/krc-mails-bench-XXXXXX";
    if (!mkdtemp(path.data())) std::abort();
    return path;
}

// A folder whose Mails.dat holds kMails mails, written once by a client.
struct Stored {
    Stored() : path(TempFolder()), folder(ZR::UniString(path)) {
        Client writer(folder, kMails);
        writer.client.reset();
        file = folder + IO::Name(KRC::MailClient::kMailsFileName);
        if (IO::fileSystem.ReadWholeFile(file, &bytes)) std::abort();
    }
    ~Stored() { IO::fileSystem.Delete(folder, 0, 0); }
    std::string path;
    IO::Location folder;
    IO::Location file;
    std::string bytes;
};

const Stored& GetStored() {
    static Stored stored;
    return stored;
}

int ReadAll(const IO::Location& file) {
    I::MailsFileContent content;
    int status = I::ReadMailsFile(file, content);
    if (status || content.inbox.GetSize() != kMails) std::abort();
    return status;
}

void BM_MailsFileWrite(benchmark::State& state) {
    const Stored& stored = GetStored();
    I::MailsFileContent content;
    if (I::ReadMailsFile(stored.file, content)) std::abort();
    const IO::Location out = stored.folder + IO::Name("Written.dat");
    auto subject = [&](std::int64_t) {
        if (I::WriteMailsFile(
                out, {content.inboxRevision, content.inbox, content.sentRevision, content.sent,
                      content.inboxToComplete, content.sentToComplete, content.inboxToRead}))
            std::abort();
    };
    for (auto _ : state) subject(0);
    bench::ReportRatio(
        state, "bytes", subject,
        [&](std::int64_t) {
            if (IO::fileSystem.WriteFileAtomically(out, stored.bytes)) std::abort();
        },
        1);
    state.counters["file_MB"] = static_cast<double>(stored.bytes.size()) / 1e6;
}
BENCHMARK(BM_MailsFileWrite)->Unit(benchmark::kMillisecond)->Iterations(3);

// The same mails in SQLite: one row per mail, its stored form as a blob.
struct SqliteMails {
    explicit SqliteMails(const Stored& stored) {
        path = stored.path + "/mails.sqlite";
        if (sqlite3_open(path.c_str(), &db) != SQLITE_OK) std::abort();
        Exec("CREATE TABLE mails (id TEXT PRIMARY KEY, box INTEGER, form BLOB)");
        Exec("BEGIN");
        sqlite3_stmt* insert = nullptr;
        sqlite3_prepare_v2(db, "INSERT INTO mails VALUES (?, 0, ?)", -1, &insert, nullptr);
        I::MailsFileContent content;
        if (I::ReadMailsFile(stored.file, content)) std::abort();
        for (const auto& entry : content.inbox) {
            ZR::MemoryOChannel32 form;
            KRC::ClientMail::Write(entry.second, form);
            sqlite3_bind_text(insert, 1, entry.first.ToCString(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_blob(insert, 2, form.GetData(), static_cast<int>(form.GetSize()),
                              SQLITE_TRANSIENT);
            if (sqlite3_step(insert) != SQLITE_DONE) std::abort();
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        Exec("COMMIT");
    }
    ~SqliteMails() { sqlite3_close(db); }
    void Exec(const char* sql) {
        if (sqlite3_exec(db, sql, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
    }
    // Every row into a table of mails, as a client would load its box.
    void Load() {
        I::MailTable table;
        sqlite3_stmt* select = nullptr;
        sqlite3_prepare_v2(db, "SELECT id, form FROM mails WHERE box = 0", -1, &select, nullptr);
        while (sqlite3_step(select) == SQLITE_ROW) {
            ZR::MemoryIChannel in(sqlite3_column_blob(select, 1),
                                  static_cast<std::size_t>(sqlite3_column_bytes(select, 1)));
            ZR::Ref<KRC::ClientMail> mail;
            if (KRC::ClientMail::Read(mail, in)) std::abort();
            table.Add(ZR::UniString(reinterpret_cast<const char*>(sqlite3_column_text(select, 0))),
                      mail);
        }
        sqlite3_finalize(select);
        if (table.GetSize() != kMails) std::abort();
    }
    std::string path;
    sqlite3* db = nullptr;
};

void BM_MailsFileRead(benchmark::State& state) {
    const Stored& stored = GetStored();
    auto subject = [&](std::int64_t) { benchmark::DoNotOptimize(ReadAll(stored.file)); };
    for (auto _ : state) subject(0);
    bench::ReportRatio(
        state, "bytes", subject,
        [&](std::int64_t) {
            std::string data;
            if (IO::fileSystem.ReadWholeFile(stored.file, &data)) std::abort();
            benchmark::DoNotOptimize(data);
        },
        1);
    const double subjectUs = state.counters["subject_us"];
    SqliteMails sqlite(stored);
    const double sqliteUs =
        bench::BestSecondsPerCall([&](std::int64_t) { sqlite.Load(); }, 1) * 1e6;
    state.counters["sqlite_us"] = sqliteUs;
    state.counters["ratio_sqlite"] = subjectUs / sqliteUs;
    state.counters["file_MB"] = static_cast<double>(stored.bytes.size()) / 1e6;
}
BENCHMARK(BM_MailsFileRead)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_MailClientHeap(benchmark::State& state) {
    const Stored& stored = GetStored();
    double held = 0, peak = 0;
    for (auto _ : state) {
        const bench::HeapCount before = bench::GetHeapCount();
        bench::ResetHeapPeak();
        Client reader(stored.folder, 0);
        const bench::HeapCount after = bench::GetHeapCount();
        if (reader.client->GetInboxMails().GetSize() != kMails) std::abort();
        held = static_cast<double>(after.liveBytes - before.liveBytes);
        peak = static_cast<double>(after.peakBytes - before.liveBytes);
        state.PauseTiming();
        reader.client.reset();  // writes the file again: not timed
        state.ResumeTiming();
    }
    const double own = static_cast<double>(stored.bytes.size());
    state.counters["held_MB"] = held / 1e6;
    state.counters["peak_MB"] = peak / 1e6;
    state.counters["file_MB"] = own / 1e6;
    state.counters["ratio_held"] = held / own;
    state.counters["ratio_peak"] = peak / own;
}
BENCHMARK(BM_MailClientHeap)->Unit(benchmark::kMillisecond)->Iterations(2);

void BM_CompletedLimit(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    // A project location: the client neither reads nor writes files there.
    IO::Location nowhere;
    KRCB::CreateServerLocation(nowhere, ZR::UniString("https://nowhere.invalid"),
                               ZR::UniString("bench"), ZR::UniString("rt-none"));
    std::vector<std::pair<int, ZR::UniString>> pairs;
    for (int i = 0; i < n; ++i) pairs.emplace_back((i * 7919) % n, "mail-" + std::to_string(i));
    double subjectSeconds = 0;
    for (auto _ : state) {
        state.PauseTiming();
        Client c(nowhere, n);
        c.client->SetUseCompletedLimit(true);
        c.client->SetCompletedLimitNum(static_cast<unsigned int>(n / 2));
        state.ResumeTiming();
        subjectSeconds = bench::BestSecondsPerCall(
            [&](std::int64_t) {
                if (!c.client->DeleteCompletedMailsOverLimit()) std::abort();
            },
            1, 1);
        state.PauseTiming();
        c.client.reset();
        state.ResumeTiming();
    }
    const double baseline = bench::BestSecondsPerCall(
        [&](std::int64_t) {
            auto sorted = pairs;
            std::sort(sorted.begin(), sorted.end(),
                      [](const auto& a, const auto& b) { return a.first < b.first; });
            ZR::HashSet<ZR::UniString> ids;
            for (const auto& p : sorted) ids.Add(p.second);
            benchmark::DoNotOptimize(ids);
        },
        1);
    state.counters["subject_us"] = subjectSeconds * 1e6;
    state.counters["sort_us"] = baseline * 1e6;
    state.counters["ratio_sort"] = subjectSeconds / baseline;
}
BENCHMARK(BM_CompletedLimit)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(2);

}  // namespace

BENCHMARK_MAIN();
