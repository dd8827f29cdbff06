#pragma once
/// @file
/// Frames: the envelope of an object's stored form. A frame is the class
/// name, class id, major and minor version and the length of the body, then
/// the body (docs/FORMATS.md). A reader learns what it meets before it reads
/// the body, so it can refuse a class it does not know or a version newer than
/// its own, or step over the body, and never misreads it.

#include <cstdint>

#include "ZR/Channel.h"
#include "ZR/Containers.h"
#include "ZR/Object.h"
#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

/// The frame is of another class than the reader expected.
inline constexpr int kErrFrameClass = static_cast<int>(0x81020104u);
/// Longest class name a frame may carry.
inline constexpr std::uint32_t kMaxFrameClassName = 1024;

/// Writes one frame to channel. The body is written to the frame itself and
/// goes out, behind the header, at Close: the header needs its length. A frame
/// never closed writes nothing. Frames nest: an inner frame's channel is the
/// outer frame.
class ZRROOT_EXPORT OutputFrame : public OChannel {
public:
    /// With the name, id and version of info.
    OutputFrame(OChannel& channel, const ClassInfo& info);

    std::uint16_t GetMajorVersion() const { return mInfo.GetMajorVersion(); }
    std::uint16_t GetMinorVersion() const { return mInfo.GetMinorVersion(); }

    /// Into the body; kErrTooLarge past 4 GiB - 1 bytes.
    int Write(const void* data, std::size_t length) override;
    using OChannel::Write;
    /// Header and body to the channel; 0 or the channel's error. Once only.
    int Close();

private:
    OChannel& mChannel;
    const ClassInfo& mInfo;
    MemoryOChannel32 mBody;
    bool mClosed = false;
};

/// Reads the header of one frame from channel at construction; reads of the
/// frame then give the body and no more. GetStatus is 0 for a frame of the
/// expected class (any version: the version is the caller's to judge), and
/// kErrFrameClass for one of another class; either way the header was read
/// whole and Close steps over the body. Any other status means the header
/// itself could not be read: nothing is known and nothing should be skipped.
class ZRROOT_EXPORT InputFrame : public IChannel {
public:
    /// expected may be null: any class is accepted.
    InputFrame(IChannel& channel, const ClassInfo* expected);
    InputFrame(IChannel& channel, const ClassInfo& expected) : InputFrame(channel, &expected) {}

    int GetStatus() const { return mStatus; }
    const UniString& GetClassName() const { return mName; }
    const Guid& GetClassId() const { return mId; }
    std::uint16_t GetMajorVersion() const { return mMajor; }
    std::uint16_t GetMinorVersion() const { return mMinor; }
    std::uint32_t GetBodyLength() const { return mLength; }

    /// From the body only; kErrEndOfData past its end.
    int Read(void* buffer, std::size_t length) override;
    using IChannel::Read;
    std::uint64_t GetRemaining() const override { return mLeft; }
    /// Passes over what is left of the body; 0 or the channel's error.
    int Close();

private:
    IChannel& mChannel;
    int mStatus = 0;
    UniString mName;
    Guid mId;
    std::uint16_t mMajor = 0;
    std::uint16_t mMinor = 0;
    std::uint32_t mLength = 0;
    std::uint32_t mLeft = 0;
};

namespace HashTablePrivate {
/// The class of a stored hash table.
extern ZRROOT_EXPORT const ClassInfo classInfo;
}  // namespace HashTablePrivate

/// A table of texts in the stored form of a hash table: a frame of
/// HashTablePrivate::classInfo holding the number of entries (u32) and each
/// key and value as a text, in table order.
ZRROOT_EXPORT int WriteHashTable(OChannel& channel, const HashTable<UniString, UniString>& table);
/// Replaces table by the stored one, only on success. A key given twice keeps
/// its first value. -7003 for a frame of a later main version.
ZRROOT_EXPORT int ReadHashTable(IChannel& channel, HashTable<UniString, UniString>& table);

}  // namespace ZR
