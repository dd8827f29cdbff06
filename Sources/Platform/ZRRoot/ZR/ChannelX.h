#pragma once
/// @file
/// Protocol channels: numbers and texts in the byte order of a protocol object,
/// over a binary channel. Server messages are written with the network byte
/// order protocol (big-endian), also where they are stored inside a file whose
/// own numbers are little-endian. A text is its UTF-8 byte count (u32, in the
/// protocol's order) and the bytes. Every call answers 0 or an error code of
/// ZR/Channel.h.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZR/Channel.h"
#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// Raw bytes in.
class ZRROOT_EXPORT IBinaryChannel {
public:
    virtual ~IBinaryChannel();
    /// Exactly length bytes, or kErrEndOfData.
    virtual int ReadBytes(void* buffer, std::size_t length) = 0;
    /// Bytes left, or IChannel::kUnknownRemaining.
    virtual std::uint64_t GetRemaining() const = 0;
};

/// Raw bytes out.
class ZRROOT_EXPORT OBinaryChannel {
public:
    virtual ~OBinaryChannel();
    virtual int WriteBytes(const void* data, std::size_t length) = 0;
};

/// Reads through an IChannel that the caller keeps alive: what is read here is
/// gone from that channel too.
class ZRROOT_EXPORT IBinaryChannelAdapterForIChannel : public IBinaryChannel {
public:
    explicit IBinaryChannelAdapterForIChannel(IChannel& channel) : mChannel(channel) {}
    int ReadBytes(void* buffer, std::size_t length) override;
    std::uint64_t GetRemaining() const override { return mChannel.GetRemaining(); }

private:
    IChannel& mChannel;
};

/// Writes through an OChannel that the caller keeps alive.
class ZRROOT_EXPORT OBinaryChannelAdapterForOChannel : public OBinaryChannel {
public:
    explicit OBinaryChannelAdapterForOChannel(OChannel& channel) : mChannel(channel) {}
    int WriteBytes(const void* data, std::size_t length) override;

private:
    OChannel& mChannel;
};

/// How a protocol lays out numbers: turns n bytes (1 to 8) into a number.
class ZRROOT_EXPORT IProtocolX {
public:
    virtual ~IProtocolX();
    virtual std::uint64_t Decode(const unsigned char* bytes, std::size_t n) const = 0;
};

/// The writing side: the low n bytes of value into n bytes.
class ZRROOT_EXPORT OProtocolX {
public:
    virtual ~OProtocolX();
    virtual void Encode(std::uint64_t value, unsigned char* bytes, std::size_t n) const = 0;
};

/// Big-endian, shared by every channel that uses it.
ZRROOT_EXPORT const IProtocolX& GetNetworkByteOrderIProtocolX();
ZRROOT_EXPORT const OProtocolX& GetNetworkByteOrderOProtocolX();

/// Reads a protocol's numbers and texts from a binary channel.
class ZRROOT_EXPORT IChannelX {
public:
    IChannelX(IBinaryChannel& channel, const IProtocolX& protocol)
        : mChannel(channel), mProtocol(protocol) {}

    int ReadBool(bool& value);
    int ReadUInt8(std::uint8_t& value);
    int ReadUInt16(std::uint16_t& value);
    int ReadUInt32(std::uint32_t& value);
    int ReadUInt64(std::uint64_t& value);
    int ReadInt16(std::int16_t& value);
    int ReadInt32(std::int32_t& value);
    int ReadInt64(std::int64_t& value);
    /// The text is changed only on success; a count larger than what is left
    /// is refused before anything is allocated.
    int Read(UniString& text);
    int ReadBytes(void* buffer, std::size_t length) { return mChannel.ReadBytes(buffer, length); }
    std::uint64_t GetRemaining() const { return mChannel.GetRemaining(); }

private:
    int ReadNumber(std::uint64_t& value, std::size_t n);
    IBinaryChannel& mChannel;
    const IProtocolX& mProtocol;
};

/// Writes a protocol's numbers and texts to a binary channel.
class ZRROOT_EXPORT OChannelX {
public:
    OChannelX(OBinaryChannel& channel, const OProtocolX& protocol)
        : mChannel(channel), mProtocol(protocol) {}

    int WriteBool(bool value);
    int WriteUInt8(std::uint8_t value);
    int WriteUInt16(std::uint16_t value);
    int WriteUInt32(std::uint32_t value);
    int WriteUInt64(std::uint64_t value);
    int WriteInt16(std::int16_t value);
    int WriteInt32(std::int32_t value);
    int WriteInt64(std::int64_t value);
    /// kErrTooLarge for a text of 4 GiB or more.
    int Write(const UniString& text);
    int WriteBytes(const void* data, std::size_t length) {
        return mChannel.WriteBytes(data, length);
    }

private:
    int WriteNumber(std::uint64_t value, std::size_t n);
    OBinaryChannel& mChannel;
    const OProtocolX& mProtocol;
};

}  // namespace ZR
