#pragma once
/// @file
/// Messages of the project server: sessions, members, attribute bytes.

#include <cstdint>
#include <vector>

#include "KRCB/KRClientBaseExport.h"
#include "ZR/UniString.h"

namespace Kerrow::Commons {

/// A growable run of bytes, as sent to and from a server.
template <typename T>
class DataBuffer {
public:
    DataBuffer() = default;
    DataBuffer(const T* data, std::size_t size) : mData(data, data + size) {}

    const T* GetData() const { return mData.data(); }
    std::size_t GetSize() const { return mData.size(); }
    bool IsEmpty() const { return mData.empty(); }
    void Clear() { mData.clear(); }
    void Set(const T* data, std::size_t size) { mData.assign(data, data + size); }
    std::vector<T>& Std() { return mData; }
    const std::vector<T>& Std() const { return mData; }
    bool operator==(const DataBuffer&) const = default;

private:
    std::vector<T> mData;
};

}  // namespace Kerrow::Commons

namespace Kerrow::Server::Project {

/// One member of a project: the short id of the user in the project, the
/// user's id on the management server and login name.
class KRCB_EXPORT ProjectMember {
public:
    ProjectMember() = default;
    ProjectMember(std::int16_t userId, const ZR::UniString& serverUserId,
                  const ZR::UniString& loginName)
        : mUserId(userId), mServerUserId(serverUserId), mLoginName(loginName) {}

    std::int16_t GetUserId() const { return mUserId; }
    const ZR::UniString& GetServerUserId() const { return mServerUserId; }
    const ZR::UniString& GetLoginName() const { return mLoginName; }

private:
    std::int16_t mUserId = 0;
    ZR::UniString mServerUserId;
    ZR::UniString mLoginName;
};

namespace Messages {

/// A session of a user in a project.
class KRCB_EXPORT SessionInfo {
public:
    SessionInfo() = default;
    SessionInfo(const ZR::UniString& sessionId, const ZR::UniString& projectId,
                std::int16_t userShortId)
        : mSessionId(sessionId), mProjectId(projectId), mUserShortId(userShortId) {}

    const ZR::UniString& GetSessionId() const { return mSessionId; }
    const ZR::UniString& GetProjectId() const { return mProjectId; }
    /// The user's short id in the project.
    std::int16_t GetUserShortId() const { return mUserShortId; }

    void SetSessionId(const ZR::UniString& id) { mSessionId = id; }
    void SetProjectId(const ZR::UniString& id) { mProjectId = id; }
    void SetUserShortId(std::int16_t id) { mUserShortId = id; }

private:
    ZR::UniString mSessionId;
    ZR::UniString mProjectId;
    std::int16_t mUserShortId = 0;
};

}  // namespace Messages
}  // namespace Kerrow::Server::Project
