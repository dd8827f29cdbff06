#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "IO/File.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "Support/AllocationMeter.h"
#include "Support/TempFolder.h"
#include "ZR/MessageLoop.h"

namespace M = Kerrow::Server::Mail;
using KRC::ClientMail;
using KRC::Outbox;
using Mails = ZR::PagedArray<ZR::Ref<ClientMail>, 8>;

namespace {

struct Counter : KRC::OutboxObserver {
    int calls = 0;
    void OutboxContentChanged() override { ++calls; }
    ~Counter() override { DetachFromSources(); }
};

ZR::Ref<ClientMail> NewMail(const std::string& text) {
    ZR::Ref<ClientMail> mail(new ClientMail);
    mail->SetMessagePart(ZR::UniString(text));
    return mail;
}

std::string Texts(const Mails& mails) {
    std::string s;
    for (const auto& m : mails) s += m->GetMessagePart().Std() + ";";
    return s;
}

std::string Texts(Outbox& outbox, bool onlyNotUnderWay = false) {
    Mails mails{NewMail("stale")};
    outbox.GetMails(mails, onlyNotUnderWay);
    return Texts(mails);
}

std::vector<unsigned char> FileBytes(const Mails& mails) {
    ZR::MemoryOChannel32 out;
    EXPECT_EQ(Outbox::WriteMails(mails, out), 0);
    return out.GetBytes();
}

void WriteFile(const krtest::TempFolder& folder, const std::vector<unsigned char>& bytes) {
    std::string data(bytes.begin(), bytes.end());
    ASSERT_EQ(IO::fileSystem.WriteFileAtomically(folder.Location() + IO::Name("Outbox.dat"), data),
              0);
}

TEST(OutboxTest, ContentAndNotificationsAfterSequencesOfCalls) {
    krtest::TempFolder folder;
    ZR::MessageLoop::Scope loop;
    Counter counter;
    auto a = NewMail("a"), b = NewMail("b"), c = NewMail("c");
    {
        Outbox outbox(folder.Location());
        outbox.Attach(counter);
        for (const auto& m : {a, b, c}) outbox.AddMail(m);
        EXPECT_EQ(counter.calls, 0);  // on the message loop, never at once
        ZR::MessageLoop::RunPending();
        EXPECT_EQ(counter.calls, 3);

        outbox.SetMailsUnderWay({a->GetId(), c->GetId()});
        EXPECT_EQ(Texts(outbox, true), "b;");
        outbox.ResetMailsUnderWay({a->GetId(), "not-there"});
        EXPECT_EQ(Texts(outbox, true), "a;b;");
        EXPECT_EQ(Texts(outbox), "a;b;c;");

        outbox.UpdateSender(M::Address({"me", "Sent"}, "Me"));  // under way or not
        for (const auto& m : {a, b, c}) EXPECT_EQ(m->GetSender().GetOwnerId(), "me");
        EXPECT_GT(c->GetSentTime(), 0);

        outbox.DeleteMails({a->GetId(), c->GetId()});
        outbox.DeleteMails({"not-there"});  // told all the same
        ZR::MessageLoop::RunPending();
        EXPECT_EQ(counter.calls, 5);
        EXPECT_EQ(Texts(outbox), "b;");
        EXPECT_FALSE(outbox.ContainsMail(a->GetId()));

        // Told after the outbox is gone: nobody hears it.
        outbox.AddMail(c);
    }
    ZR::MessageLoop::RunPending();
    EXPECT_EQ(counter.calls, 5);

    // The next outbox reads the file; nothing is under way at its start.
    Outbox next(folder.Location());
    EXPECT_EQ(Texts(next), "b;c;");
    EXPECT_EQ(Texts(next, true), "b;c;");
    struct stat st {};
    ASSERT_EQ(stat(folder.Sub("Outbox.dat").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(OutboxTest, MailsOfOneIdLeaveFirstToLast) {
    krtest::TempFolder folder;
    ZR::MessageLoop::Scope loop;
    ZR::Ref<M::Mail> shared(new M::Mail(M::MailId("same")));
    ZR::Ref<ClientMail> first(new ClientMail(shared)), second(new ClientMail(shared));
    Outbox outbox(folder.Location());
    outbox.AddMail(first);
    outbox.AddMail(NewMail("x"));
    outbox.AddMail(second);
    ZR::Ref<ClientMail> got;
    ASSERT_TRUE(outbox.GetMail("same", got));
    EXPECT_EQ(got, first);
    outbox.DeleteMails({"same"});
    ASSERT_TRUE(outbox.GetMail("same", got));
    EXPECT_EQ(got, second);
    outbox.DeleteMails({"same"});
    EXPECT_FALSE(outbox.ContainsMail("same"));
    EXPECT_EQ(Texts(outbox), "x;");
}

TEST(OutboxTest, WithoutALoopNobodyIsToldAndNothingIsLost) {
    krtest::TempFolder folder;
    Counter counter;
    {
        Outbox outbox(folder.Location());
        outbox.Attach(counter);
        outbox.AddMail(NewMail("a"));
        EXPECT_EQ(Texts(outbox), "a;");
    }
    EXPECT_EQ(counter.calls, 0);
    EXPECT_EQ(Texts(*std::make_unique<Outbox>(folder.Location())), "a;");
}

TEST(OutboxTest, DamagedFilesGiveTheMailsBeforeTheDamage) {
    const Mails three{NewMail("a"), NewMail("b"), NewMail("c")};
    const std::vector<unsigned char> good = FileBytes(three);
    std::vector<std::size_t> ends;  // where each mail ends
    for (std::size_t n = 1; n <= 3; ++n) {
        Mails first;
        for (std::size_t i = 0; i < n; ++i) first.Add(three[i]);
        ends.push_back(FileBytes(first).size());
    }

    auto withCount = [&](std::uint32_t count) {
        std::vector<unsigned char> b = good;
        for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(count >> (8 * i));
        return b;
    };
    std::vector<unsigned char> v2 = good;
    v2[ends[0] + 4 + 4 + 16] = 2;  // the second mail's frame says version 2
    struct Case {
        std::vector<unsigned char> bytes;
        std::string texts;
        bool damaged;
    } cases[] = {
        {good, "a;b;c;", false},
        {withCount(4294967295u), "a;b;c;", true},
        {withCount(2), "a;b;", true},  // the third is kept aside, not lost
        {std::vector<unsigned char>(good.begin(), good.begin() + ends[1]), "a;b;", true},
        {v2, "a;", true},
    };
    krtest::TempFolder folder;
    for (const Case& c : cases) {
        WriteFile(folder, c.bytes);
        krtest::LargestAllocation meter;
        Mails mails;
        Outbox::ReadMails(c.bytes.data(), c.bytes.size(), mails);
        EXPECT_EQ(Texts(mails), c.texts);
        EXPECT_LT(meter.Bytes(), c.bytes.size() + 4096);
        EXPECT_EQ(Texts(*std::make_unique<Outbox>(folder.Location())), c.texts);
        // What could not be read is kept beside the file, which is written anew.
        std::vector<std::string> kept;
        for (const auto& entry : std::filesystem::directory_iterator(folder.Path()))
            if (entry.path().filename().string().rfind("Outbox.dat.unread-", 0) == 0) {
                std::ifstream in(entry.path(), std::ios::binary);
                kept.emplace_back(std::istreambuf_iterator<char>(in),
                                  std::istreambuf_iterator<char>());
                std::filesystem::remove(entry.path());
            }
        EXPECT_EQ(kept, c.damaged
                            ? std::vector<std::string>{std::string(c.bytes.begin(), c.bytes.end())}
                            : std::vector<std::string>{});
    }
    for (std::size_t cut = 0; cut < good.size(); ++cut) {
        Mails mails;
        std::size_t stoppedAt = 0;
        EXPECT_NE(Outbox::ReadMails(good.data(), cut, mails, &stoppedAt), 0);
        std::size_t whole = 0;
        while (whole < 3 && ends[whole] <= cut) ++whole;
        EXPECT_EQ(mails.GetSize(), whole) << cut;
        EXPECT_EQ(stoppedAt, whole == 0 ? (cut < 4 ? 0 : 4) : ends[whole - 1]) << cut;
    }
}

TEST(OutboxTest, UnwritableMailEndsTheFileThere) {
    class Mute : public KRC::TestAttachment {
        MailAttachment* Clone() const override { return new Mute(*this); }
        bool SerializeJSON(JSON::Ref<JSON::ObjectValue>) const override { return false; }
    };
    krtest::TempFolder folder;
    {
        Outbox outbox(folder.Location());
        outbox.AddMail(NewMail("a"));
        auto mute = NewMail("mute");
        mute->AddAttachment(Mute());
        outbox.AddMail(mute);
        outbox.AddMail(NewMail("c"));
    }
    std::string data;
    ASSERT_EQ(IO::fileSystem.ReadWholeFile(folder.Location() + IO::Name("Outbox.dat"), &data), 0);
    EXPECT_EQ(data[0], 3);  // the count of all
    EXPECT_EQ(Texts(*std::make_unique<Outbox>(folder.Location())), "a;");
}

}  // namespace
