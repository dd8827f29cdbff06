#pragma once
/// @file
/// Binary channels. Every read and write answers 0 or an error code. Numbers
/// are little-endian; a UniString is its UTF-8 byte count (u32) followed by the
/// bytes. An input channel that knows how many bytes are left refuses a length
/// larger than that before it allocates anything; one that doesn't reads in
/// bounded steps, so a hostile length costs at most what the input really holds.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// The input ended before the value did; what was read of it is lost.
inline constexpr int kErrEndOfData = static_cast<int>(0x81020101u);
/// A length larger than the input holds, or than the output or the form can take.
inline constexpr int kErrTooLarge = static_cast<int>(0x81020102u);
/// Bytes that are not a value of the form asked for.
inline constexpr int kErrBadData = static_cast<int>(0x81020103u);

/// Source of bytes.
class ZRROOT_EXPORT IChannel {
public:
    /// GetRemaining's answer for a source that can't tell.
    static constexpr std::uint64_t kUnknownRemaining = std::numeric_limits<std::uint64_t>::max();

    virtual ~IChannel();

    /// Reads exactly length bytes; kErrEndOfData if fewer are left.
    virtual int Read(void* buffer, std::size_t length) = 0;
    /// Bytes left to read, or kUnknownRemaining.
    virtual std::uint64_t GetRemaining() const { return kUnknownRemaining; }

    int ReadUInt8(std::uint8_t& value);
    int ReadUInt16(std::uint16_t& value);
    int ReadUInt32(std::uint32_t& value);
    int ReadUInt64(std::uint64_t& value);
    int ReadInt32(std::int32_t& value);
    /// A length-prefixed UniString; the text is changed only on success.
    int Read(UniString& text);
    /// length bytes into data (replacing its content); data is changed only on success.
    int ReadBytes(std::vector<unsigned char>& data, std::uint64_t length);
    /// Passes over length bytes.
    int Skip(std::uint64_t length);

protected:
    /// kErrTooLarge if the source is known to hold fewer than length bytes.
    int CheckRemaining(std::uint64_t length) const;
};

/// Sink of bytes.
class ZRROOT_EXPORT OChannel {
public:
    virtual ~OChannel();

    /// Writes all length bytes or answers an error.
    virtual int Write(const void* data, std::size_t length) = 0;

    int WriteUInt8(std::uint8_t value);
    int WriteUInt16(std::uint16_t value);
    int WriteUInt32(std::uint32_t value);
    int WriteUInt64(std::uint64_t value);
    int WriteInt32(std::int32_t value);
    /// Length-prefixed; kErrTooLarge for a text of 4 GiB or more.
    int Write(const UniString& text);
};

/// Reads from memory that the caller keeps alive and unchanged meanwhile.
class ZRROOT_EXPORT MemoryIChannel : public IChannel {
public:
    MemoryIChannel(const void* data, std::size_t size);
    explicit MemoryIChannel(const std::vector<unsigned char>& data);

    int Read(void* buffer, std::size_t length) override;
    using IChannel::Read;
    std::uint64_t GetRemaining() const override { return mSize - mPosition; }
    std::size_t GetPosition() const { return mPosition; }

private:
    const unsigned char* mData;
    std::size_t mSize;
    std::size_t mPosition = 0;
};

/// Collects what is written in memory, up to 4 GiB - 1 bytes: the size of
/// what it holds always fits the u32 that stored forms put before it.
class ZRROOT_EXPORT MemoryOChannel32 : public OChannel {
public:
    static constexpr std::size_t kMaxSize = std::numeric_limits<std::uint32_t>::max();

    /// kErrTooLarge, and nothing written, if the total would pass kMaxSize.
    int Write(const void* data, std::size_t length) override;
    using OChannel::Write;

    const unsigned char* GetData() const { return mData.data(); }
    std::uint32_t GetSize() const { return static_cast<std::uint32_t>(mData.size()); }
    const std::vector<unsigned char>& GetBytes() const { return mData; }
    void Clear() { mData.clear(); }

private:
    std::vector<unsigned char> mData;
};

}  // namespace ZR
