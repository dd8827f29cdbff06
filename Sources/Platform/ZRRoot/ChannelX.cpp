#include "ZR/ChannelX.h"

#include <limits>
#include <string>

#include "ZR/Internal/ReadBounded.h"

namespace ZR {

namespace {

class NetworkIProtocol : public IProtocolX {
public:
    std::uint64_t Decode(const unsigned char* bytes, std::size_t n) const override {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < n; ++i) value = (value << 8) | bytes[i];
        return value;
    }
};

class NetworkOProtocol : public OProtocolX {
public:
    void Encode(std::uint64_t value, unsigned char* bytes, std::size_t n) const override {
        for (std::size_t i = n; i-- > 0; value >>= 8) bytes[i] = static_cast<unsigned char>(value);
    }
};

}  // namespace

IBinaryChannel::~IBinaryChannel() = default;
OBinaryChannel::~OBinaryChannel() = default;
IProtocolX::~IProtocolX() = default;
OProtocolX::~OProtocolX() = default;

const IProtocolX& GetNetworkByteOrderIProtocolX() {
    static const NetworkIProtocol protocol;
    return protocol;
}

const OProtocolX& GetNetworkByteOrderOProtocolX() {
    static const NetworkOProtocol protocol;
    return protocol;
}

int IBinaryChannelAdapterForIChannel::ReadBytes(void* buffer, std::size_t length) {
    return mChannel.Read(buffer, length);
}

int OBinaryChannelAdapterForOChannel::WriteBytes(const void* data, std::size_t length) {
    return mChannel.Write(data, length);
}

int IChannelX::ReadNumber(std::uint64_t& value, std::size_t n) {
    unsigned char bytes[8];
    if (int status = mChannel.ReadBytes(bytes, n)) return status;
    value = mProtocol.Decode(bytes, n);
    return 0;
}

int IChannelX::ReadBool(bool& value) {
    std::uint8_t byte = 0;
    if (int status = ReadUInt8(byte)) return status;
    if (byte > 1) return kErrBadData;
    value = byte == 1;
    return 0;
}

#define ZR_READ_NUMBER(Name, Type)                                   \
    int IChannelX::Name(Type& value) {                               \
        std::uint64_t v = 0;                                         \
        if (int status = ReadNumber(v, sizeof(Type))) return status; \
        value = static_cast<Type>(v);                                \
        return 0;                                                    \
    }
ZR_READ_NUMBER(ReadUInt8, std::uint8_t)
ZR_READ_NUMBER(ReadUInt16, std::uint16_t)
ZR_READ_NUMBER(ReadUInt32, std::uint32_t)
ZR_READ_NUMBER(ReadUInt64, std::uint64_t)
ZR_READ_NUMBER(ReadInt16, std::int16_t)
ZR_READ_NUMBER(ReadInt32, std::int32_t)
ZR_READ_NUMBER(ReadInt64, std::int64_t)
#undef ZR_READ_NUMBER

int IChannelX::Read(UniString& text) {
    std::uint32_t length = 0;
    if (int status = ReadUInt32(length)) return status;
    std::string bytes;
    if (int status = Internal::ReadBounded(
            [this](void* b, std::size_t n) { return mChannel.ReadBytes(b, n); },
            mChannel.GetRemaining(), length, bytes))
        return status;
    text = UniString(std::move(bytes));
    return 0;
}

int OChannelX::WriteNumber(std::uint64_t value, std::size_t n) {
    unsigned char bytes[8];
    mProtocol.Encode(value, bytes, n);
    return mChannel.WriteBytes(bytes, n);
}

int OChannelX::WriteBool(bool value) {
    return WriteUInt8(value ? 1 : 0);
}

#define ZR_WRITE_NUMBER(Name, Type)                                          \
    int OChannelX::Name(Type value) {                                        \
        return WriteNumber(static_cast<std::uint64_t>(value), sizeof(Type)); \
    }
ZR_WRITE_NUMBER(WriteUInt8, std::uint8_t)
ZR_WRITE_NUMBER(WriteUInt16, std::uint16_t)
ZR_WRITE_NUMBER(WriteUInt32, std::uint32_t)
ZR_WRITE_NUMBER(WriteUInt64, std::uint64_t)
ZR_WRITE_NUMBER(WriteInt16, std::int16_t)
ZR_WRITE_NUMBER(WriteInt32, std::int32_t)
ZR_WRITE_NUMBER(WriteInt64, std::int64_t)
#undef ZR_WRITE_NUMBER

int OChannelX::Write(const UniString& text) {
    const std::string& bytes = text.Std();
    if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return kErrTooLarge;
    if (int status = WriteUInt32(static_cast<std::uint32_t>(bytes.size()))) return status;
    return mChannel.WriteBytes(bytes.data(), bytes.size());
}

}  // namespace ZR
