#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Kerrow/Mail.h"
#include "Support/AllocationMeter.h"
#include "ZR/Channel.h"
#include "ZR/ChannelX.h"
#include "ZR/Exceptions.h"

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

Bytes Le32(std::uint32_t v) {
    return {static_cast<unsigned char>(v), static_cast<unsigned char>(v >> 8),
            static_cast<unsigned char>(v >> 16), static_cast<unsigned char>(v >> 24)};
}

}  // namespace

TEST(Channel, LittleEndianNumbersAndTextsRoundTrip) {
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(out.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(out.Write(ZR::UniString("ab")), 0);
    ASSERT_EQ(out.WriteUInt8(0xFE), 0);
    ASSERT_EQ(out.WriteUInt16(0xBEEF), 0);
    ASSERT_EQ(out.WriteUInt64(0x1122334455667788ull), 0);
    ASSERT_EQ(out.WriteInt32(-2), 0);
    ASSERT_EQ(out.Write(ZR::UniString("")), 0);
    ASSERT_EQ(out.Write(ZR::UniString("Ärger ∑")), 0);
    const Bytes head = {4, 3, 2, 1, 2, 0, 0, 0, 'a', 'b', 0xFE, 0xEF, 0xBE};
    ASSERT_GE(out.GetBytes().size(), head.size());
    EXPECT_EQ(Bytes(out.GetBytes().begin(), out.GetBytes().begin() + head.size()), head);

    ZR::MemoryIChannel in(out.GetBytes());
    std::uint32_t u32 = 0;
    std::uint8_t u8 = 0;
    std::uint16_t u16 = 0;
    std::uint64_t u64 = 0;
    std::int32_t i32 = 0;
    ZR::UniString ab, empty("x"), text;
    EXPECT_EQ(in.ReadUInt32(u32), 0);
    EXPECT_EQ(in.Read(ab), 0);
    EXPECT_EQ(in.ReadUInt8(u8), 0);
    EXPECT_EQ(in.ReadUInt16(u16), 0);
    EXPECT_EQ(in.ReadUInt64(u64), 0);
    EXPECT_EQ(in.ReadInt32(i32), 0);
    EXPECT_EQ(in.Read(empty), 0);
    EXPECT_EQ(in.Read(text), 0);
    EXPECT_EQ(u32, 0x01020304u);
    EXPECT_EQ(ab, "ab");
    EXPECT_EQ(u8, 0xFE);
    EXPECT_EQ(u16, 0xBEEF);
    EXPECT_EQ(u64, 0x1122334455667788ull);
    EXPECT_EQ(i32, -2);
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(text, "Ärger ∑");
    EXPECT_EQ(in.GetRemaining(), 0u);
    EXPECT_EQ(in.ReadUInt8(u8), ZR::kErrEndOfData);
}

TEST(Channel, NetworkOrderOverTheSameChannelAsLittleEndian) {
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary(out);
    ZR::OChannelX x(binary, ZR::GetNetworkByteOrderOProtocolX());
    ASSERT_EQ(out.WriteUInt16(0x0102), 0);
    ASSERT_EQ(x.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(x.Write(ZR::UniString("hé")), 0);
    ASSERT_EQ(x.WriteInt16(-3), 0);
    ASSERT_EQ(x.WriteInt64(-5), 0);
    ASSERT_EQ(x.WriteBool(true), 0);
    ASSERT_EQ(out.WriteUInt16(0x0102), 0);
    const Bytes head = {2, 1, 1, 2, 3, 4, 0, 0, 0, 3, 'h', 0xC3, 0xA9, 0xFF, 0xFD};
    EXPECT_EQ(Bytes(out.GetBytes().begin(), out.GetBytes().begin() + head.size()), head);

    ZR::MemoryIChannel in(out.GetBytes());
    ZR::IBinaryChannelAdapterForIChannel inBinary(in);
    ZR::IChannelX ix(inBinary, ZR::GetNetworkByteOrderIProtocolX());
    std::uint16_t le = 0, le2 = 0;
    std::uint32_t u32 = 0;
    std::int16_t i16 = 0;
    std::int64_t i64 = 0;
    bool flag = false;
    ZR::UniString text;
    EXPECT_EQ(in.ReadUInt16(le), 0);
    EXPECT_EQ(ix.ReadUInt32(u32), 0);
    EXPECT_EQ(ix.Read(text), 0);
    EXPECT_EQ(ix.ReadInt16(i16), 0);
    EXPECT_EQ(ix.ReadInt64(i64), 0);
    EXPECT_EQ(ix.ReadBool(flag), 0);
    EXPECT_EQ(in.ReadUInt16(le2), 0);
    EXPECT_EQ(le, 0x0102);
    EXPECT_EQ(u32, 0x01020304u);
    EXPECT_EQ(text, "hé");
    EXPECT_EQ(i16, -3);
    EXPECT_EQ(i64, -5);
    EXPECT_TRUE(flag);
    EXPECT_EQ(le2, 0x0102);

    // A boolean is 0 or 1, nothing else.
    Bytes two = {2};
    ZR::MemoryIChannel twoIn(two);
    ZR::IBinaryChannelAdapterForIChannel twoBinary(twoIn);
    ZR::IChannelX twoX(twoBinary, ZR::GetNetworkByteOrderIProtocolX());
    EXPECT_EQ(twoX.ReadBool(flag), ZR::kErrBadData);
}

TEST(Channel, CutInputEndsTheReadAndKeepsTheTarget) {
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(out.Write(ZR::UniString("hello")), 0);
    ASSERT_EQ(out.WriteUInt64(7), 0);
    const Bytes& whole = out.GetBytes();
    for (std::size_t cut = 0; cut < whole.size(); ++cut) {
        Bytes part(whole.begin(), whole.begin() + cut);
        for (bool stream : {false, true}) {
            SCOPED_TRACE("cut at " + std::to_string(cut) + (stream ? ", stream" : ""));
            ZR::MemoryIChannel memory(part);
            StreamIChannel piped(part);
            ZR::IChannel& in = stream ? static_cast<ZR::IChannel&>(piped) : memory;
            ZR::UniString text("untouched");
            std::uint64_t number = 42;
            int status = in.Read(text);
            if (status == 0) status = in.ReadUInt64(number);
            // A known source refuses a text longer than what is left; a stream finds the end.
            bool refusedUpFront = !stream && cut >= 4 && cut < 9;
            EXPECT_EQ(status, refusedUpFront ? ZR::kErrTooLarge : ZR::kErrEndOfData);
            if (cut < 9) {
                EXPECT_EQ(text, "untouched");
            }
            EXPECT_EQ(number, 42u);
        }
    }
}

TEST(Channel, HostileLengthsCostNoMoreThanTheInput) {
    // A length of 4 GiB - 1 in front of 16 bytes.
    Bytes input = Le32(0xFFFFFFFFu);
    input.resize(input.size() + 16, 'x');

    {
        krtest::LargestAllocation meter;
        ZR::MemoryIChannel in(input);
        ZR::UniString text;
        EXPECT_EQ(in.Read(text), ZR::kErrTooLarge);
        EXPECT_EQ(in.GetRemaining(), 16u);  // refused before reading on
        Bytes bytes;
        EXPECT_EQ(in.ReadBytes(bytes, 1ull << 40), ZR::kErrTooLarge);
        EXPECT_EQ(in.Skip(17), ZR::kErrTooLarge);
        EXPECT_EQ(in.GetRemaining(), 16u);
        EXPECT_LT(meter.Bytes(), 1024u);
    }
    {
        krtest::LargestAllocation meter;
        StreamIChannel in(input);
        ZR::UniString text("kept");
        EXPECT_EQ(in.Read(text), ZR::kErrEndOfData);
        EXPECT_EQ(text, "kept");
        // The stream grows its buffer in steps of 64 KiB as bytes arrive.
        EXPECT_LE(meter.Bytes(), 64u * 1024 + input.size());
    }
    {
        krtest::LargestAllocation meter;
        ZR::MemoryIChannel in(input);
        ZR::IBinaryChannelAdapterForIChannel binary(in);
        ZR::IChannelX x(binary, ZR::GetNetworkByteOrderIProtocolX());
        ZR::UniString text;
        EXPECT_EQ(x.Read(text), ZR::kErrTooLarge);
        EXPECT_LT(meter.Bytes(), 1024u);
    }
}

TEST(MailboxId, TextFormRoundTripsAnyOwnerAndName) {
    using Kerrow::Server::Mail::MailboxId;
    for (auto [owner, name] : std::vector<std::pair<std::string, std::string>>{
             {"u-1", "Inbox"}, {"a/b%2F", "Se/nt%"}, {"", ""}, {"ü", "//"}}) {
        MailboxId id{ZR::UniString(owner), ZR::UniString(name)};
        MailboxId back(id.ToString());
        EXPECT_EQ(back.GetOwnerId(), owner);
        EXPECT_EQ(back.GetName(), name);
        EXPECT_EQ(back, id);
    }
    EXPECT_EQ(MailboxId("u-1", "Inbox").ToString(), "u-1/Inbox");
    EXPECT_EQ(MailboxId("a/b", "50%").ToString(), "a%2Fb/50%25");
    for (const char* bad : {"no-separator", "a/b/c", "a%2/b", "a/b%", "a/%zz"})
        EXPECT_THROW(MailboxId{ZR::UniString(bad)}, ZR::IllegalArgumentException) << bad;

    // An address is its mailbox; the display name follows the user's profile.
    using Kerrow::Server::Mail::Address;
    EXPECT_EQ(Address(MailboxId("u", "Inbox"), "Jo"), Address(MailboxId("u", "Inbox"), "Joe"));
    EXPECT_FALSE(Address(MailboxId("u", "Inbox"), "Jo") == Address(MailboxId("u", "Sent"), "Jo"));
    EXPECT_TRUE(Address().IsEmpty());
}

TEST(MailboxSessionInfo, ReadsWhatItWroteAndThrowsOnBadInput) {
    using Kerrow::Server::Mail::MailboxId;
    using Kerrow::Server::Mail::MailboxSessionInfo;
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary(out);
    ZR::OChannelX x(binary, ZR::GetNetworkByteOrderOProtocolX());
    MailboxSessionInfo session("s-1", MailboxId("u-1", "Inbox"));
    session.Write(x);

    ZR::MemoryIChannel in(out.GetBytes());
    ZR::IBinaryChannelAdapterForIChannel inBinary(in);
    ZR::IChannelX ix(inBinary, ZR::GetNetworkByteOrderIProtocolX());
    MailboxSessionInfo back;
    back.Read(ix);
    EXPECT_EQ(back, session);

    // Cut anywhere: an exception with the channel's code, the object as it was.
    for (std::size_t cut = 0; cut < out.GetBytes().size(); ++cut) {
        Bytes part(out.GetBytes().begin(), out.GetBytes().begin() + cut);
        ZR::MemoryIChannel cutIn(part);
        ZR::IBinaryChannelAdapterForIChannel cutBinary(cutIn);
        ZR::IChannelX cutX(cutBinary, ZR::GetNetworkByteOrderIProtocolX());
        MailboxSessionInfo target("old", MailboxId("o", "Sent"));
        try {
            target.Read(cutX);
            ADD_FAILURE() << "no exception at cut " << cut;
        } catch (const ZR::ZRException& e) {
            EXPECT_TRUE(e.GetErrorCode() == ZR::kErrEndOfData ||
                        e.GetErrorCode() == ZR::kErrTooLarge)
                << e.GetErrorCode();
        }
        EXPECT_EQ(target, MailboxSessionInfo("old", MailboxId("o", "Sent")));
    }

    // A mailbox id that is not one.
    ZR::MemoryOChannel32 badOut;
    ZR::OBinaryChannelAdapterForOChannel badBinary(badOut);
    ZR::OChannelX badX(badBinary, ZR::GetNetworkByteOrderOProtocolX());
    ASSERT_EQ(badX.Write(ZR::UniString("s")), 0);
    ASSERT_EQ(badX.Write(ZR::UniString("no separator")), 0);
    ZR::MemoryIChannel badIn(badOut.GetBytes());
    ZR::IBinaryChannelAdapterForIChannel badInBinary(badIn);
    ZR::IChannelX badIx(badInBinary, ZR::GetNetworkByteOrderIProtocolX());
    EXPECT_THROW(back.Read(badIx), ZR::ZRException);
    EXPECT_EQ(back, session);
}
