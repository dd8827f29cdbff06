#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kerrow/Mail.h"
#include "Support/AllocationMeter.h"
#include "ZR/ChannelX.h"
#include "ZR/Exceptions.h"

namespace M = Kerrow::Server::Mail;

namespace {

using Bytes = std::vector<unsigned char>;

M::Mail Sample() {
    M::Mail mail(M::MailId("id-1"));
    mail.SetFrom({M::Address({"u-1", "Sent"}, "Jo")});
    mail.SetTo({M::Address({"u-2", "Inbox"}, "Al"), M::Address({"u/3", "Inbox"}, "Ü")});
    mail.SetSent(M::Date(-5));
    mail.SetImportance(M::Importance::High);
    mail.SetRead(true);
    mail.SetHeader("ThreadId", "t");
    mail.SetHeader("Version", "1.0");
    M::BodyPart text("KerrowMessage", {},
                     ZR::Ref<M::Contents::Content>(new M::Contents::TextContent("hi")));
    text.SetContentType("KerrowMessage");
    M::Headers headers;
    headers.Add("h", "v");
    M::BodyPart blob(
        "b", headers,
        ZR::Ref<M::Contents::Content>(new M::Contents::MemoryContent(std::string("\0\1", 2))));
    mail.GetBodyParts().Add(text);
    mail.GetBodyParts().Add(blob);
    return mail;
}

Bytes Stored(const M::Mail& mail) {
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary(out);
    ZR::OChannelX x(binary, ZR::GetNetworkByteOrderOProtocolX());
    mail.Write(x);
    return out.GetBytes();
}

// Reads into a mail with id "kept"; the status of the channel, 0 on success.
int ReadInto(const Bytes& bytes, M::Mail& mail) {
    ZR::MemoryIChannel in(bytes);
    ZR::IBinaryChannelAdapterForIChannel binary(in);
    ZR::IChannelX x(binary, ZR::GetNetworkByteOrderIProtocolX());
    try {
        mail.Read(x);
        return 0;
    } catch (const ZR::ZRException& e) {
        return e.GetErrorCode();
    }
}

std::string Describe(const M::Mail& m) {
    std::string s = m.GetId().ToString().Std() + "|" + std::to_string(m.GetSent().GetTime()) + "|" +
                    std::to_string(int(m.GetImportance())) + std::to_string(m.IsRead()) +
                    std::to_string(m.IsCompleted()) + "|";
    for (const auto& a : m.GetFrom())
        s += a.GetMailboxId().ToString().Std() + ":" + a.GetName().Std() + ",";
    for (const auto& a : m.GetTo())
        s += a.GetMailboxId().ToString().Std() + ":" + a.GetName().Std() + ",";
    for (const auto& [k, v] : m.GetHeaders()) s += k.Std() + "=" + v.Std() + ";";
    for (const auto& p : m.GetBodyParts())
        s += p.GetName().Std() + "/" + p.GetContentType().Std() + "/" +
             std::to_string(p.GetHeaders().GetSize()) + "/" +
             std::to_string(int(p.GetContent()->GetKind())) + "/" + p.GetContent()->GetBytes() +
             ";";
    return s;
}

TEST(ServerMailTest, StoredFormRoundTripsEveryField) {
    M::Mail mail = Sample();
    M::Mail read;
    ASSERT_EQ(ReadInto(Stored(mail), read), 0);
    EXPECT_EQ(Describe(read), Describe(mail));
    EXPECT_EQ(Stored(read), Stored(mail));

    // A copy shares contents but has parts and headers of its own.
    M::Mail copy(mail);
    copy.GetBodyParts().Remove("b");
    copy.SetHeader("Version", "2");
    EXPECT_EQ(mail.GetBodyParts().GetSize(), 2u);
    EXPECT_EQ(*mail.GetHeader("Version"), "1.0");
    EXPECT_EQ(copy.GetBodyParts().Find("KerrowMessage")->GetContent(),
              mail.GetBodyParts().Find("KerrowMessage")->GetContent());
    EXPECT_FALSE(copy.GetBodyParts().Add(*mail.GetBodyParts().Find("KerrowMessage")));
}

TEST(ServerMailTest, DamagedFormsFailAndLeaveTheMailAsItWas) {
    const Bytes good = Stored(Sample());
    M::Mail kept(M::MailId("kept"));
    for (std::size_t cut = 0; cut < good.size(); ++cut) {
        EXPECT_NE(ReadInto(Bytes(good.begin(), good.begin() + cut), kept), 0) << cut;
        EXPECT_EQ(kept.GetId().ToString(), "kept");
    }
    // Offsets of the counts and lengths in Sample's form.
    const std::size_t fromCount = 1 + 4 + 4;                      // after version, id
    const std::size_t toCount = fromCount + 4 + (4 + 8 + 4 + 2);  // one sender
    const std::size_t headersCount =
        toCount + 4 + (4 + 9 + 4 + 2) + (4 + 11 + 4 + 2) + 4 + 1 + 1 + 1;
    const std::size_t partsCount = headersCount + 4 + (4 + 8 + 4 + 1) + (4 + 7 + 4 + 3);
    const std::size_t firstLength = partsCount + 4 + (4 + 13) + (4 + 13) + 4 + 1;
    auto patched = [&](std::size_t at, std::uint32_t value) {
        Bytes b = good;
        for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(value >> (24 - 8 * i));
        return b;
    };
    struct Case {
        std::size_t at;
        std::uint32_t value;
        int status;
    } cases[] = {
        {fromCount, 0xFFFFFFFFu, ZR::kErrTooLarge},
        {firstLength, 0xC0000000u, ZR::kErrTooLarge},  // a part that claims 3 GiB
        {partsCount, 3, ZR::kErrEndOfData},            // one part more than there are
    };
    for (const Case& c : cases) {
        Bytes bytes = patched(c.at, c.value);
        krtest::LargestAllocation meter;
        EXPECT_EQ(ReadInto(bytes, kept), c.status) << c.at;
        EXPECT_LT(meter.Bytes(), bytes.size() + 1024) << c.at;
        EXPECT_EQ(kept.GetId().ToString(), "kept");
    }
    Bytes badVersion = good;
    badVersion[0] = 2;
    EXPECT_EQ(ReadInto(badVersion, kept), ZR::kErrBadData);
}

}  // namespace
