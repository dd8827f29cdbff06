// Mails and the outbox. Each case reports, beside its own time, a baseline
// measured side by side in the same run (see bench::ReportRatio):
//
//   BM_ClientMailText      a stored mail with a text of N MiB written and read;
//                          baseline: copying the same bytes
//   BM_ClientMailParts     a stored mail with N attachment parts written and
//                          read; baseline: copying the same bytes
//   BM_OutboxSendDelete    N mails added to an outbox one by one, then deleted
//                          in one call; baseline: the same ids added to and
//                          removed from a hash set
//   BM_OutboxFile          an "Outbox.dat" of N mails read (the outbox made)
//                          and written (the outbox ended); baseline: reading
//                          the file's bytes and writing them atomically
//
// A cost that grows faster than the input shows as a ratio that grows with N.
//
//   KRC_BENCH=MailBenchmark scripts/bench.sh

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "IO/File.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/Internal/Outbox.h"

namespace {

using KRC::ClientMail;
using Mails = ZR::PagedArray<ZR::Ref<ClientMail>, 8>;

// An attachment of many classes: each instance takes the class its document
// names, so that one program can register as many classes as a case needs.
class BenchAttachment : public KRC::MailAttachment {
public:
    explicit BenchAttachment(const ZR::ClassInfo* info = nullptr) : mInfo(info) {}
    MailAttachment* Clone() const override { return new BenchAttachment(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return *mInfo; }
    static ZR::Object* Make() { return new BenchAttachment; }

protected:
    bool DeserializeJSON(JSON::Ref<JSON::ObjectValue> object) override {
        mInfo = ZR::classManager.Find(
            object->GetMandatoryMember<JSON::StringValue>("className")->GetValue());
        return mInfo != nullptr;
    }

private:
    const ZR::ClassInfo* mInfo;
};

const ZR::ClassInfo& BenchClass(int i) {
    static std::vector<std::unique_ptr<ZR::ClassInfo>> classes;
    while (static_cast<int>(classes.size()) <= i) {
        std::string name = "Bench::Attachment" + std::to_string(classes.size());
        char id[40];
        std::snprintf(id, sizeof id, "00000000-0000-4000-8000-%012zx", classes.size());
        classes.push_back(std::make_unique<ZR::ClassInfo>(
            name.c_str(), id, 1, 0, &KRC::MailAttachment::classInfo, &BenchAttachment::Make));
    }
    return *classes[i];
}

std::vector<unsigned char> Stored(const ZR::Ref<ClientMail>& mail) {
    ZR::MemoryOChannel32 out;
    if (ClientMail::Write(mail, out) != 0) std::abort();
    return out.GetBytes();
}

// Writes the mail and reads it back.
void WriteAndRead(const ZR::Ref<ClientMail>& mail) {
    ZR::MemoryOChannel32 out;
    if (ClientMail::Write(mail, out) != 0) std::abort();
    ZR::MemoryIChannel in(out.GetBytes());
    ZR::Ref<ClientMail> back;
    if (ClientMail::Read(back, in) != 0) std::abort();
    benchmark::DoNotOptimize(back);
}

void CopyBytes(const std::vector<unsigned char>& bytes) {
    std::vector<unsigned char> copy(bytes.size());
    std::memcpy(copy.data(), bytes.data(), bytes.size());
    benchmark::DoNotOptimize(copy.data());
}

void RunMail(benchmark::State& state, const ZR::Ref<ClientMail>& mail) {
    const std::vector<unsigned char> bytes = Stored(mail);
    for (auto _ : state) WriteAndRead(mail);
    bench::ReportRatio(
        state, "copy", [&](std::int64_t) { WriteAndRead(mail); },
        [&](std::int64_t) { CopyBytes(bytes); }, 1);
    state.counters["bytes"] = static_cast<double>(bytes.size());
}

void BM_ClientMailText(benchmark::State& state) {
    ZR::Ref<ClientMail> mail(new ClientMail);
    mail->SetMessagePart(ZR::UniString(std::string(state.range(0) << 20, 'x')));
    RunMail(state, mail);
}
BENCHMARK(BM_ClientMailText)->Arg(1)->Arg(10)->Unit(benchmark::kMillisecond);

void BM_ClientMailParts(benchmark::State& state) {
    ZR::Ref<ClientMail> mail(new ClientMail);
    for (int i = 0; i < state.range(0); ++i) {
        BenchAttachment attachment(&BenchClass(i));
        attachment.SetCustomProperty("n", ZR::UniString(std::to_string(i)));
        mail->AddAttachment(attachment);
    }
    RunMail(state, mail);
}
BENCHMARK(BM_ClientMailParts)->Arg(100)->Arg(1000)->Unit(benchmark::kMillisecond);

Mails MakeMails(int count) {
    Mails mails;
    for (int i = 0; i < count; ++i) {
        ZR::Ref<ClientMail> mail(new ClientMail);
        mail->SetMessagePart(ZR::UniString("mail " + std::to_string(i)));
        mails.Add(mail);
    }
    return mails;
}

std::string Folder() {
    static std::string folder = [] {
        char path[] = "/tmp/krc-mail-bench-XXXXXX";
        if (!mkdtemp(path)) std::abort();
        return std::string(path);
    }();
    return folder;
}

void BM_OutboxSendDelete(benchmark::State& state) {
    const Mails mails = MakeMails(static_cast<int>(state.range(0)));
    ZR::HashSet<ZR::UniString> ids;
    for (const auto& mail : mails) ids.Add(mail->GetId());
    const IO::Location folder{ZR::UniString(Folder())};
    auto subject = [&](std::int64_t) {
        KRC::Outbox outbox(folder);
        for (const auto& mail : mails) outbox.AddMail(mail);
        outbox.DeleteMails(ids);
    };
    for (auto _ : state) subject(0);
    bench::ReportRatio(
        state, "set", subject,
        [&](std::int64_t) {
            ZR::HashSet<ZR::UniString> set;
            for (const auto& mail : mails) set.Add(mail->GetId());
            for (const auto& id : ids) set.Remove(id);
            benchmark::DoNotOptimize(set);
        },
        1);
}
BENCHMARK(BM_OutboxSendDelete)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_OutboxFile(benchmark::State& state) {
    const IO::Location folder{ZR::UniString(Folder())};
    const IO::Location file = folder + IO::Name("Outbox.dat");
    {
        KRC::Outbox outbox(folder);
        for (const auto& mail : MakeMails(static_cast<int>(state.range(0)))) outbox.AddMail(mail);
    }
    std::string bytes;
    IO::fileSystem.ReadWholeFile(file, &bytes);
    auto subject = [&](std::int64_t) {
        KRC::Outbox outbox(folder);  // reads, and writes when it ends
        benchmark::DoNotOptimize(outbox.ContainsMail("x"));
    };
    for (auto _ : state) subject(0);
    bench::ReportRatio(
        state, "bytes", subject,
        [&](std::int64_t) {
            std::string data;
            IO::fileSystem.ReadWholeFile(file, &data);
            IO::fileSystem.WriteFileAtomically(file, data);
        },
        1);
    state.counters["bytes"] = static_cast<double>(bytes.size());
}
BENCHMARK(BM_OutboxFile)->Arg(1000)->Arg(10000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
