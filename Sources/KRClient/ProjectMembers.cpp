#include "KRClient/ProjectMembers.h"

#include <array>
#include <memory>

#include "KRCB/Clients.h"
#include "KRClient/Internal/ProjectMembersWork.h"

namespace KRC {

namespace {

// Smallest stored sizes of a table entry, for checking a count before reading.
constexpr std::uint64_t kGuidEntrySize = 16 + 2;
constexpr std::uint64_t kLoginNameEntrySize = 4 + 2;
constexpr std::uint64_t kAttributesEntrySize = 2 + 2 + 4;
constexpr std::uint64_t kUserDataEntrySize = 2 + 4 + 4 + 16 + 4 + 1;

int ReadShort(ZR::IChannel& channel, short& value) {
    std::uint16_t raw = 0;
    if (int status = channel.ReadUInt16(raw)) return status;
    value = static_cast<short>(raw);
    return 0;
}

int WriteShort(ZR::OChannel& channel, short value) {
    return channel.WriteUInt16(static_cast<std::uint16_t>(value));
}

int ReadGuid(ZR::IChannel& channel, ZR::Guid& guid) {
    std::array<std::uint8_t, 16> bytes;
    if (int status = channel.Read(bytes.data(), bytes.size())) return status;
    guid = ZR::Guid(bytes);
    return 0;
}

int WriteGuid(ZR::OChannel& channel, const ZR::Guid& guid) {
    return channel.Write(guid.GetBytes().data(), guid.GetBytes().size());
}

// The count of a table, refused if the channel can't hold that many entries.
int ReadCount(ZR::IChannel& channel, std::uint64_t entrySize, std::uint32_t& count) {
    if (int status = channel.ReadUInt32(count)) return status;
    const std::uint64_t remaining = channel.GetRemaining();
    if (remaining != ZR::IChannel::kUnknownRemaining && count * entrySize > remaining)
        return ZR::kErrTooLarge;
    return 0;
}

}  // namespace

int UserData::Write(ZR::OChannel& channel) const {
    if (int status = channel.Write(mLoginName)) return status;
    if (int status = channel.Write(mFullName)) return status;
    if (int status = WriteGuid(channel, mUserGuid)) return status;
    const std::uint8_t color[4] = {mUserColor.GetR(), mUserColor.GetG(), mUserColor.GetB(),
                                   mUserColor.GetA()};
    if (int status = channel.Write(color, sizeof color)) return status;
    return channel.WriteUInt8(mNormalSession ? 1 : 0);
}

int UserData::Read(ZR::IChannel& channel) {
    UserData read;
    std::uint8_t color[4] = {};
    std::uint8_t normalSession = 0;
    if (int status = channel.Read(read.mLoginName)) return status;
    if (int status = channel.Read(read.mFullName)) return status;
    if (int status = ReadGuid(channel, read.mUserGuid)) return status;
    if (int status = channel.Read(color, sizeof color)) return status;
    if (int status = channel.ReadUInt8(normalSession)) return status;
    if (normalSession > 1) return ZR::kErrBadData;
    read.mUserColor = Gfx::Color(color[0], color[1], color[2], color[3]);
    read.mNormalSession = normalSession != 0;
    *this = read;
    return 0;
}

UserData::UserData(const ZR::UniString& loginName, const ZR::UniString& fullName, ZR::Guid guid,
                   const Gfx::Color& color)
    : mLoginName(loginName), mFullName(fullName), mUserGuid(guid), mUserColor(color) {}

ProjectMembersObserver::~ProjectMembersObserver() {
    DetachFromSources();
}

ProjectMembers::ProjectMembers(KRCB::SignalClient& signalClient,
                               KRCB::ProjectConnectionManagerInterface* connectionManager,
                               ProjectConnectionProvider* connectionProvider)
    : mWork(new Work(signalClient, connectionManager, connectionProvider)) {
    mWork->owner = this;
    mWork->SetSelf(&mWork);
}

ProjectMembers::~ProjectMembers() {
    Stop();
    ClearTables();
    mWork->SetSelf(nullptr);
    mWork.Reset();
    DetachObservers();
}

void ProjectMembers::Init() {
    mWork->ScheduleRefresh();
}

void ProjectMembers::Stop() {
    mWork->owner = nullptr;
    mWork->stopFlag = true;
    mWork->StopListening();
    mWork->ShutDown();
}

void ProjectMembers::NotifyObservers() const {
    // The walk is the source's; it changes nothing of the tables.
    const_cast<ProjectMembers*>(this)->ForEachObserver([](ZR::TS::EventObserver* observer) {
        static_cast<ProjectMembersObserver*>(observer)->ProjectMembersChanged();
    });
}

void ProjectMembers::ClearTables() {
    for (const auto& entry : mUserData) delete entry.second;
    for (const auto& entry : mAttributes) delete entry.second;
    mUserData.Clear();
    mAttributes.Clear();
    mLoginNames.Clear();
    mGuids.Clear();
}

void ProjectMembers::RefreshProjectMembers(
    const ZR::CountedPtr<ZR::PagedArray<UserInfo>, ZR::AtomicCounter>& list) {
    ClearTables();
    for (const UserInfo& info : *list) {
        const Gfx::Color& color = info.user->GetColor();
        const Gfx::Color userColor(color.GetR(), color.GetG(), color.GetB(), color.GetA());
        // The guid a host looks a member up by is that of the user's id text,
        // whatever the user object's own guid field says; an id that is no
        // GUID text gives the null guid.
        ZR::Guid guid;
        ZR::Guid::Parse(info.user->GetId(), &guid);
        auto data =
            std::make_unique<UserData>(info.loginName, info.user->GetFullName(), guid, userColor);
        UserData* added = data.get();
        if (mUserData.Add(info.userId, added)) data.release();
        auto attributes = std::make_unique<KRCB::UserAttributes>(info.userId, info.permissions);
        if (mAttributes.Add(info.userId, attributes.get())) attributes.release();
        mLoginNames.Add(added->GetLoginName(), info.userId);
        mGuids.Add(added->GetUserGuid(), info.userId);
    }
}

int ProjectMembers::Write(ZR::OChannel& channel) const {
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mGuids.GetSize())))
        return status;
    for (const auto& [guid, id] : mGuids) {
        if (int status = WriteGuid(channel, guid)) return status;
        if (int status = WriteShort(channel, id)) return status;
    }
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mLoginNames.GetSize())))
        return status;
    for (const auto& [name, id] : mLoginNames) {
        if (int status = channel.Write(name)) return status;
        if (int status = WriteShort(channel, id)) return status;
    }
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mAttributes.GetSize())))
        return status;
    for (const auto& [id, attributes] : mAttributes) {
        if (int status = WriteShort(channel, id)) return status;
        if (int status = attributes->Write(channel)) return status;
    }
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mUserData.GetSize())))
        return status;
    for (const auto& [id, data] : mUserData) {
        if (int status = WriteShort(channel, id)) return status;
        if (int status = data->Write(channel)) return status;
    }
    return 0;
}

int ProjectMembers::Read(ZR::IChannel& channel) {
    std::uint32_t count = 0;
    int first = ReadCount(channel, kGuidEntrySize, count);
    ClearTables();
    if (first) return first;
    for (std::uint32_t i = 0; i < count; ++i) {
        ZR::Guid guid;
        short id = 0;
        if (int status = ReadGuid(channel, guid)) return status;
        if (int status = ReadShort(channel, id)) return status;
        mGuids.Add(guid, id);
    }
    if (int status = ReadCount(channel, kLoginNameEntrySize, count)) return status;
    for (std::uint32_t i = 0; i < count; ++i) {
        ZR::UniString name;
        short id = 0;
        if (int status = channel.Read(name)) return status;
        if (int status = ReadShort(channel, id)) return status;
        mLoginNames.Add(name, id);
    }
    if (int status = ReadCount(channel, kAttributesEntrySize, count)) return status;
    for (std::uint32_t i = 0; i < count; ++i) {
        short id = 0;
        auto attributes = std::make_unique<KRCB::UserAttributes>();
        if (int status = ReadShort(channel, id)) return status;
        if (int status = attributes->Read(channel)) return status;
        if (mAttributes.Add(id, attributes.get())) attributes.release();
    }
    if (int status = ReadCount(channel, kUserDataEntrySize, count)) return status;
    for (std::uint32_t i = 0; i < count; ++i) {
        short id = 0;
        auto data = std::make_unique<UserData>();
        if (int status = ReadShort(channel, id)) return status;
        if (int status = data->Read(channel)) return status;
        if (mUserData.Add(id, data.get())) data.release();
    }
    return 0;
}

bool ProjectMembers::GetFullNameFromId(short userId, ZR::UniString& fullName) const {
    if (UserData* const* data = mUserData.Find(userId)) {
        fullName = (*data)->GetFullName();
        return true;
    }
    fullName.Clear();
    return false;
}

bool ProjectMembers::GetLoginNameFromId(short userId, ZR::UniString& loginName) const {
    if (UserData* const* data = mUserData.Find(userId)) {
        loginName = (*data)->GetLoginName();
        return true;
    }
    loginName.Clear();
    return false;
}

bool ProjectMembers::GetUserGuidFromId(short userId, ZR::Guid& guid) const {
    if (UserData* const* data = mUserData.Find(userId)) {
        guid = (*data)->GetUserGuid();
        return true;
    }
    guid = ZR::Guid();
    return false;
}

bool ProjectMembers::GetUserAttributesFromId(short userId,
                                             const KRCB::UserAttributes** attributes) const {
    if (KRCB::UserAttributes* const* found = mAttributes.Find(userId)) {
        *attributes = *found;
        return true;
    }
    *attributes = nullptr;
    return false;
}

bool ProjectMembers::GetUserIdFromGuid(const ZR::Guid& guid, short& userId) const {
    const short* found = mGuids.Find(guid);
    userId = found ? *found : 0;
    return found != nullptr;
}

bool ProjectMembers::GetUserIdFromLoginName(const ZR::UniString& loginName, short& userId) const {
    const short* found = mLoginNames.Find(loginName);
    userId = found ? *found : 0;
    return found != nullptr;
}

bool ProjectMembers::IsMember(const ZR::UniString& loginName) const {
    return mLoginNames.Contains(loginName);
}

bool ProjectMembers::UserIdExists(short userId) const {
    return mUserData.Contains(userId);
}

}  // namespace KRC
