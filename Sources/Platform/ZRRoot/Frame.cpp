#include "ZR/Frame.h"

#include <algorithm>
#include <array>
#include <string>

#include "ZR/Exceptions.h"

namespace ZR {

const ClassInfo HashTablePrivate::classInfo("ZR::HashTable", "2B8C4E61-7D3A-4F19-A5E2-90C4D8B1F3A7",
                                            1, 0);

OutputFrame::OutputFrame(OChannel& channel, const ClassInfo& info)
    : mChannel(channel), mInfo(info) {}

int OutputFrame::Write(const void* data, std::size_t length) {
    return mBody.Write(data, length);
}

int OutputFrame::Close() {
    if (mClosed) return 0;
    mClosed = true;
    if (int status = mChannel.Write(mInfo.GetName())) return status;
    const auto& id = mInfo.GetId().GetBytes();
    if (int status = mChannel.Write(id.data(), id.size())) return status;
    if (int status = mChannel.WriteUInt16(mInfo.GetMajorVersion())) return status;
    if (int status = mChannel.WriteUInt16(mInfo.GetMinorVersion())) return status;
    if (int status = mChannel.WriteUInt32(mBody.GetSize())) return status;
    return mBody.GetSize() == 0 ? 0 : mChannel.Write(mBody.GetData(), mBody.GetSize());
}

InputFrame::InputFrame(IChannel& channel, const ClassInfo* expected) : mChannel(channel) {
    std::uint32_t nameLength = 0;
    if ((mStatus = channel.ReadUInt32(nameLength))) return;
    // A class name is short: a longer one is no frame, whatever the input holds.
    if (nameLength > kMaxFrameClassName) {
        mStatus = kErrBadData;
        return;
    }
    std::string name(nameLength, '\0');
    std::array<std::uint8_t, 16> id{};
    if ((mStatus = channel.Read(name.data(), name.size())) ||
        (mStatus = channel.Read(id.data(), id.size())) || (mStatus = channel.ReadUInt16(mMajor)) ||
        (mStatus = channel.ReadUInt16(mMinor)) || (mStatus = channel.ReadUInt32(mLength)))
        return;
    std::uint64_t remaining = channel.GetRemaining();
    if (remaining != kUnknownRemaining && mLength > remaining) {
        mStatus = kErrEndOfData;
        return;
    }
    mName = UniString(std::move(name));
    mId = Guid(id);
    mLeft = mLength;
    if (expected && (mName != expected->GetName() || mId != expected->GetId()))
        mStatus = kErrFrameClass;
}

int InputFrame::Read(void* buffer, std::size_t length) {
    if (length > mLeft) return kErrEndOfData;
    if (int status = mChannel.Read(buffer, length)) return status;
    mLeft -= static_cast<std::uint32_t>(length);
    return 0;
}

int InputFrame::Close() {
    std::uint32_t left = mLeft;
    mLeft = 0;
    return left == 0 ? 0 : mChannel.Skip(left);
}

int WriteHashTable(OChannel& channel, const HashTable<UniString, UniString>& table) {
    OutputFrame frame(channel, HashTablePrivate::classInfo);
    if (table.GetSize() > 0xFFFFFFFFu) return kErrTooLarge;
    if (int status = frame.WriteUInt32(static_cast<std::uint32_t>(table.GetSize()))) return status;
    for (const auto& [key, value] : table) {
        if (int status = frame.Write(key)) return status;
        if (int status = frame.Write(value)) return status;
    }
    return frame.Close();
}

int ReadHashTable(IChannel& channel, HashTable<UniString, UniString>& table) {
    InputFrame frame(channel, HashTablePrivate::classInfo);
    if (frame.GetStatus()) return frame.GetStatus();
    if (frame.GetMajorVersion() != 1) return kGeneralErrorCode;
    std::uint32_t count = 0;
    if (int status = frame.ReadUInt32(count)) return status;
    // Each entry takes at least its two lengths.
    if (count > frame.GetRemaining() / 8) return kErrTooLarge;
    HashTable<UniString, UniString> read;
    for (std::uint32_t i = 0; i < count; ++i) {
        UniString key, value;
        if (int status = frame.Read(key)) return status;
        if (int status = frame.Read(value)) return status;
        read.Add(key, value);
    }
    if (int status = frame.Close()) return status;
    table = std::move(read);
    return 0;
}

}  // namespace ZR
