#include "ZR/Channel.h"

#include <cstring>

#include "ZR/Internal/ReadBounded.h"

namespace ZR {

namespace {

template <typename T>
int ReadLittleEndian(IChannel& channel, T& value) {
    unsigned char bytes[sizeof(T)];
    if (int status = channel.Read(bytes, sizeof(T))) return status;
    std::uint64_t result = 0;
    for (std::size_t i = sizeof(T); i-- > 0;) result = (result << 8) | bytes[i];
    value = static_cast<T>(result);
    return 0;
}

template <typename T>
int WriteLittleEndian(OChannel& channel, T value) {
    unsigned char bytes[sizeof(T)];
    auto v = static_cast<std::uint64_t>(value);
    for (std::size_t i = 0; i < sizeof(T); ++i, v >>= 8) bytes[i] = static_cast<unsigned char>(v);
    return channel.Write(bytes, sizeof(T));
}

}  // namespace

IChannel::~IChannel() = default;
OChannel::~OChannel() = default;

int IChannel::CheckRemaining(std::uint64_t length) const {
    std::uint64_t remaining = GetRemaining();
    return remaining != kUnknownRemaining && length > remaining ? kErrTooLarge : 0;
}

int IChannel::ReadUInt8(std::uint8_t& value) {
    return Read(&value, 1);
}
int IChannel::ReadUInt16(std::uint16_t& value) {
    return ReadLittleEndian(*this, value);
}
int IChannel::ReadUInt32(std::uint32_t& value) {
    return ReadLittleEndian(*this, value);
}
int IChannel::ReadUInt64(std::uint64_t& value) {
    return ReadLittleEndian(*this, value);
}
int IChannel::ReadInt32(std::int32_t& value) {
    return ReadLittleEndian(*this, value);
}

int IChannel::Read(UniString& text) {
    std::uint32_t length = 0;
    if (int status = ReadUInt32(length)) return status;
    std::string bytes;
    if (int status = Internal::ReadBounded([this](void* b, std::size_t n) { return Read(b, n); },
                                           GetRemaining(), length, bytes))
        return status;
    text = UniString(std::move(bytes));
    return 0;
}

int IChannel::ReadBytes(std::vector<unsigned char>& data, std::uint64_t length) {
    std::vector<unsigned char> bytes;
    if (int status = Internal::ReadBounded([this](void* b, std::size_t n) { return Read(b, n); },
                                           GetRemaining(), length, bytes))
        return status;
    data = std::move(bytes);
    return 0;
}

int IChannel::Skip(std::uint64_t length) {
    if (int status = CheckRemaining(length)) return status;
    unsigned char buffer[4096];
    while (length > 0) {
        std::size_t step =
            length < sizeof(buffer) ? static_cast<std::size_t>(length) : sizeof(buffer);
        if (int status = Read(buffer, step)) return status;
        length -= step;
    }
    return 0;
}

int OChannel::WriteUInt8(std::uint8_t value) {
    return Write(&value, 1);
}
int OChannel::WriteUInt16(std::uint16_t value) {
    return WriteLittleEndian(*this, value);
}
int OChannel::WriteUInt32(std::uint32_t value) {
    return WriteLittleEndian(*this, value);
}
int OChannel::WriteUInt64(std::uint64_t value) {
    return WriteLittleEndian(*this, value);
}
int OChannel::WriteInt32(std::int32_t value) {
    return WriteLittleEndian(*this, value);
}

int OChannel::Write(const UniString& text) {
    const std::string& bytes = text.Std();
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return kErrTooLarge;
    if (int status = WriteUInt32(static_cast<std::uint32_t>(bytes.size()))) return status;
    return Write(bytes.data(), bytes.size());
}

MemoryIChannel::MemoryIChannel(const void* data, std::size_t size)
    : mData(static_cast<const unsigned char*>(data)), mSize(data ? size : 0) {}

MemoryIChannel::MemoryIChannel(const std::vector<unsigned char>& data)
    : MemoryIChannel(data.data(), data.size()) {}

int MemoryIChannel::Read(void* buffer, std::size_t length) {
    if (length > mSize - mPosition) {
        mPosition = mSize;
        return kErrEndOfData;
    }
    if (length > 0) std::memcpy(buffer, mData + mPosition, length);
    mPosition += length;
    return 0;
}

int MemoryOChannel32::Write(const void* data, std::size_t length) {
    if (length > kMaxSize - mData.size()) return kErrTooLarge;
    const auto* bytes = static_cast<const unsigned char*>(data);
    mData.insert(mData.end(), bytes, bytes + length);
    return 0;
}

}  // namespace ZR
