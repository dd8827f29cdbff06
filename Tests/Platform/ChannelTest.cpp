#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "Kerrow/Mail.h"
#include "Support/AllocationMeter.h"
#include "ZR/Channel.h"
#include "ZR/ChannelX.h"
#include "ZR/Exceptions.h"

using Kerrow::Server::Mail::MailboxId;
using Kerrow::Server::Mail::MailboxSessionInfo;

namespace {

using Bytes = std::vector<unsigned char>;

// A source that can't say how much it holds, like a pipe.
class StreamIChannel : public ZR::IChannel {
public:
    explicit StreamIChannel(Bytes data) : mData(std::move(data)), mInner(mData) {}
    int Read(void* buffer, std::size_t length) override { return mInner.Read(buffer, length); }
    using ZR::IChannel::Read;

private:
    Bytes mData;
    ZR::MemoryIChannel mInner;
};

// Protocol channels in network byte order over memory channels.
struct XOut {
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary{out};
    ZR::OChannelX x{binary, ZR::GetNetworkByteOrderOProtocolX()};
};
struct XIn {
    explicit XIn(Bytes data) : bytes(std::move(data)) {}
    Bytes bytes;  // a memory channel reads what its owner keeps
    ZR::MemoryIChannel in{bytes};
    ZR::IBinaryChannelAdapterForIChannel binary{in};
    ZR::IChannelX x{binary, ZR::GetNetworkByteOrderIProtocolX()};
};

Bytes Head(const Bytes& bytes, std::size_t n) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
}

}  // namespace

TEST(Channel, NumbersAndTextsRoundTripInBothByteOrders) {
    // Little-endian and network order can share one channel, as in stored lists.
    XOut o;
    ASSERT_EQ(o.out.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(o.out.Write(ZR::UniString("ab")), 0);
    ASSERT_EQ(o.x.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(o.x.Write(ZR::UniString("hé")), 0);
    ASSERT_EQ(o.x.WriteInt16(-3), 0);
    ASSERT_EQ(o.out.WriteUInt64(0x1122334455667788ull), 0);
    ASSERT_EQ(o.out.WriteInt32(-2), 0);
    ASSERT_EQ(o.x.WriteInt64(-5), 0);
    ASSERT_EQ(o.x.WriteBool(true), 0);
    ASSERT_EQ(o.out.Write(ZR::UniString("")), 0);
    const Bytes head = {4, 3, 2, 1, 2, 0, 0,   0,    'a',  'b',  1,   2,
                        3, 4, 0, 0, 0, 3, 'h', 0xC3, 0xA9, 0xFF, 0xFD};
    EXPECT_EQ(Head(o.out.GetBytes(), head.size()), head);

    XIn i(o.out.GetBytes());
    std::uint32_t le = 0, be = 0;
    std::uint64_t u64 = 0;
    std::int32_t i32 = 0;
    std::int16_t i16 = 0;
    std::int64_t i64 = 0;
    bool flag = false;
    ZR::UniString ab, he, empty("x");
    // In order: && stops at the first failure.
    EXPECT_TRUE(!i.in.ReadUInt32(le) && !i.in.Read(ab) && !i.x.ReadUInt32(be) && !i.x.Read(he) &&
                !i.x.ReadInt16(i16) && !i.in.ReadUInt64(u64) && !i.in.ReadInt32(i32) &&
                !i.x.ReadInt64(i64) && !i.x.ReadBool(flag) && !i.in.Read(empty));
    EXPECT_EQ(std::tie(le, be, i16, u64, i32, i64, flag),
              std::make_tuple(0x01020304u, 0x01020304u, std::int16_t{-3}, 0x1122334455667788ull, -2,
                              std::int64_t{-5}, true));
    EXPECT_EQ((std::vector<ZR::UniString>{ab, he, empty}),
              (std::vector<ZR::UniString>{"ab", "hé", ""}));
    EXPECT_EQ(i.in.GetRemaining(), 0u);

    XIn two(Bytes{2});  // a boolean is 0 or 1, nothing else
    EXPECT_EQ(two.x.ReadBool(flag), ZR::kErrBadData);
}

TEST(Channel, CutInputEndsTheReadAndKeepsTheTarget) {
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(out.Write(ZR::UniString("hello")), 0);
    ASSERT_EQ(out.WriteUInt64(7), 0);
    for (std::size_t cut = 0; cut < out.GetSize(); ++cut) {
        for (bool stream : {false, true}) {
            SCOPED_TRACE("cut at " + std::to_string(cut) + (stream ? ", stream" : ""));
            Bytes part = Head(out.GetBytes(), cut);
            ZR::MemoryIChannel memory(part);
            StreamIChannel piped(part);
            ZR::IChannel& in = stream ? static_cast<ZR::IChannel&>(piped) : memory;
            ZR::UniString text("untouched");
            std::uint64_t number = 42;
            int status = in.Read(text);
            if (status == 0) status = in.ReadUInt64(number);
            // A source that knows its size refuses a text longer than what is left.
            bool refusedUpFront = !stream && cut >= 4 && cut < 9;
            EXPECT_EQ(status, refusedUpFront ? ZR::kErrTooLarge : ZR::kErrEndOfData);
            EXPECT_EQ(text, cut < 9 ? "untouched" : "hello");
            EXPECT_EQ(number, 42u);
        }
    }
}

TEST(Channel, HostileLengthsCostNoMoreThanTheInput) {
    // A length of 4 GiB - 1 in front of 16 bytes.
    Bytes input = {0xFF, 0xFF, 0xFF, 0xFF};
    input.resize(input.size() + 16, 'x');
    ZR::UniString text("kept");
    Bytes bytes;
    {
        krtest::LargestAllocation meter;
        ZR::MemoryIChannel in(input);
        EXPECT_EQ(in.Read(text), ZR::kErrTooLarge);
        EXPECT_EQ(in.ReadBytes(bytes, 1ull << 40), ZR::kErrTooLarge);
        EXPECT_EQ(in.Skip(17), ZR::kErrTooLarge);
        EXPECT_EQ(in.GetRemaining(), 16u);  // refused before reading on
        XIn x(input);
        EXPECT_EQ(x.x.Read(text), ZR::kErrTooLarge);
        EXPECT_LT(meter.Bytes(), 1024u);
    }
    {
        // A stream grows its buffer in steps of 64 KiB as the bytes arrive.
        krtest::LargestAllocation meter;
        StreamIChannel in(input);
        EXPECT_EQ(in.Read(text), ZR::kErrEndOfData);
        EXPECT_LE(meter.Bytes(), 64u * 1024 + input.size());
    }
    EXPECT_EQ(text, "kept");
}

TEST(MailboxId, TextFormRoundTripsAnyOwnerAndName) {
    for (auto [owner, name] : std::vector<std::pair<std::string, std::string>>{
             {"a/b%2F", "Se/nt%"}, {"", ""}, {"ü", "//"}}) {
        MailboxId id{ZR::UniString(owner), ZR::UniString(name)};
        EXPECT_EQ(MailboxId(id.ToString()), id) << id.ToString().Std();
    }
    EXPECT_EQ(MailboxId("a/b", "50%").ToString(), "a%2Fb/50%25");
    for (const char* bad : {"no-separator", "a/b/c", "a/b%", "a/%zz"})
        EXPECT_THROW(MailboxId{ZR::UniString(bad)}, ZR::IllegalArgumentException) << bad;

    // An address is its mailbox; the display name follows the user's profile.
    using Kerrow::Server::Mail::Address;
    EXPECT_EQ(Address(MailboxId("u", "Inbox"), "Jo"), Address(MailboxId("u", "Inbox"), "Joe"));
    EXPECT_FALSE(Address(MailboxId("u", "Inbox"), "Jo") == Address(MailboxId("u", "Sent"), "Jo"));
}

TEST(MailboxSessionInfo, ReadsWhatItWroteAndThrowsOnBadInput) {
    XOut o;
    MailboxSessionInfo session("s-1", MailboxId("u-1", "Inbox"));
    session.Write(o.x);
    XIn i(o.out.GetBytes());
    MailboxSessionInfo back;
    back.Read(i.x);
    EXPECT_EQ(back, session);

    // Cut anywhere: an exception with the channel's code, the object as it was.
    const MailboxSessionInfo old("old", MailboxId("o", "Sent"));
    for (std::size_t cut = 0; cut < o.out.GetSize(); ++cut) {
        XIn cutIn(Head(o.out.GetBytes(), cut));
        MailboxSessionInfo target = old;
        try {
            target.Read(cutIn.x);
            ADD_FAILURE() << "no exception at cut " << cut;
        } catch (const ZR::ZRException& e) {
            EXPECT_TRUE(e.GetErrorCode() == ZR::kErrEndOfData ||
                        e.GetErrorCode() == ZR::kErrTooLarge);
        }
        EXPECT_EQ(target, old);
    }

    XOut bad;  // a mailbox id that is not one
    ASSERT_EQ(bad.x.Write(ZR::UniString("s")), 0);
    ASSERT_EQ(bad.x.Write(ZR::UniString("no separator")), 0);
    XIn badIn(bad.out.GetBytes());
    EXPECT_THROW(back.Read(badIn.x), ZR::IllegalArgumentException);
    EXPECT_EQ(back, session);
}
