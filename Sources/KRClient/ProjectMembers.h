#pragma once
/// @file
/// Who the members of an open project are: their short user ids, login
/// names, full names, colours, guids and permissions.
///
/// The host builds a ProjectMembers for an open project and reads its tables
/// on its main thread (the thread that drains the message loop). Fetching
/// the members from the management server is slow, so it runs on a thread of
/// the object's own; a finished list comes back through the message loop,
/// where the tables are replaced in one step and the observers hear
/// ProjectMembersChanged. A fetch starts at Init and at each "members
/// changed" signal (id 1) while a read connection to the project can be
/// opened. Presence is not kept here: ask the signal client.

#include <cstdint>

#include "Gfx/Color.h"
#include "KRCB/Entities.h"
#include "KRCB/ProjectConnection.h"
#include "KRCB/SignalClient.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Channel.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/Guid.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC {

class ProjectConnectionProvider;

/// One member as the host sees it.
class KRCLIENT_EXPORT UserData {
public:
    /// Empty names, a null guid, the colour 0, 0, 0, 255.
    UserData() = default;
    UserData(const ZR::UniString& loginName, const ZR::UniString& fullName, ZR::Guid guid,
             const Gfx::Color& color);

    const ZR::UniString& GetLoginName() const { return mLoginName; }
    const ZR::UniString& GetFullName() const { return mFullName; }
    const ZR::Guid& GetUserGuid() const { return mUserGuid; }
    const Gfx::Color& GetUserColor() const { return mUserColor; }
    /// False from every constructor; set by SetNormalSession and Read.
    bool HasNormalSession() const { return mNormalSession; }
    void SetNormalSession(bool normalSession) { mNormalSession = normalSession; }

    /// Login name, full name, guid (16 bytes), colour (red, green, blue,
    /// alpha bytes) and normal session (one byte). 0 or the channel's error.
    int Write(ZR::OChannel& channel) const;
    /// Mirrors Write; the object is changed only when all of it was read.
    int Read(ZR::IChannel& channel);

private:
    ZR::UniString mLoginName;
    ZR::UniString mFullName;
    ZR::Guid mUserGuid;
    Gfx::Color mUserColor;
    bool mNormalSession = false;
};

/// One member as a fetch found it.
class KRCLIENT_EXPORT UserInfo {
public:
    UserInfo() = default;
    UserInfo(const ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter>& serverUser,
             short id, const ZR::UniString& login, const ZR::HashSet<KRCB::PermissionID>& rights)
        : user(serverUser), userId(id), loginName(login), permissions(rights) {}

    /// The server's user object.
    ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter> user;
    /// The member's short id in this project.
    short userId = 0;
    /// As the project server lists it.
    ZR::UniString loginName;
    /// The user's permissions on this project.
    ZR::HashSet<KRCB::PermissionID> permissions;
};

/// What is kept of a user between fetches.
class KRCLIENT_EXPORT CachedUserInfo {
public:
    explicit CachedUserInfo(
        const ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter>& serverUser)
        : user(serverUser) {}

    ZR::Ref<KRCB::Management::Entities::User, ZR::AtomicCounter> user;
    ZR::HashSet<KRCB::PermissionID> permissions;
};

/// Hears that the member tables were replaced. Called on the message loop.
class KRCLIENT_EXPORT ProjectMembersObserver : public ZR::TS::EventObserver {
public:
    ~ProjectMembersObserver() override;
    /// Calls ProjectMembersContentChanged.
    void ProjectMembersChanged() { ProjectMembersContentChanged(); }

protected:
    /// Read the tables again.
    virtual void ProjectMembersContentChanged() = 0;
};

/// The members of one open project. Not safe to use from any thread but the
/// one that drains the message loop.
class KRCLIENT_EXPORT ProjectMembers : public ZR::TS::EventSource {
public:
    /// Builds the worker half, which starts its thread and attaches to the
    /// signal client. The tables stay empty until Init or a "members
    /// changed" signal starts a fetch. The three must outlive the object
    /// (the signal client at least until Stop).
    ProjectMembers(KRCB::SignalClient& signalClient,
                   KRCB::ProjectConnectionManagerInterface* connectionManager,
                   ProjectConnectionProvider* connectionProvider);
    /// Stops as Stop does, then clears the tables.
    ~ProjectMembers() override;
    ProjectMembers(const ProjectMembers&) = delete;
    ProjectMembers& operator=(const ProjectMembers&) = delete;

    /// Asks for a refresh. Does nothing while the signal client is forced
    /// offline, for a secondary connection, or after Stop.
    void Init();
    /// No signal or pending fetch reaches the tables afterwards; waits up to
    /// 5 seconds for a fetch under way. The tables stay. Call once, before
    /// the signal client goes.
    void Stop();

    void Attach(ProjectMembersObserver& observer) { ZR::TS::EventSource::Attach(observer); }
    void Detach(ProjectMembersObserver& observer) { ZR::TS::EventSource::Detach(observer); }
    /// Calls ProjectMembersChanged on each observer.
    void NotifyObservers() const;

    /// Replaces the four tables with those of the list, in its order (an
    /// entry already standing under a key is kept).
    void RefreshProjectMembers(
        const ZR::CountedPtr<ZR::PagedArray<UserInfo>, ZR::AtomicCounter>& list);

    const ZR::HashTable<ZR::UniString, short>& GetLoginNameTable() const { return mLoginNames; }
    const ZR::HashTable<short, UserData*>& GetUserDataTable() const { return mUserData; }

    /// The four tables for the host to keep: guids, login names, attributes
    /// and user data, each as a 32-bit count and its entries. 0 or the first
    /// error of the channel.
    int Write(ZR::OChannel& channel) const;
    /// Mirrors Write. The tables are cleared after the first count is read,
    /// even if that read failed; entries read before an error stay. Every
    /// count is checked against what the channel has left.
    int Read(ZR::IChannel& channel);

    /// Lookups; false for an unknown key.
    bool GetFullNameFromId(short userId, ZR::UniString& fullName) const;
    bool GetLoginNameFromId(short userId, ZR::UniString& loginName) const;
    bool GetUserGuidFromId(short userId, ZR::Guid& guid) const;
    /// A hit gives the table's object, which stays the table's.
    bool GetUserAttributesFromId(short userId, const KRCB::UserAttributes** attributes) const;
    bool GetUserIdFromGuid(const ZR::Guid& guid, short& userId) const;
    bool GetUserIdFromLoginName(const ZR::UniString& loginName, short& userId) const;
    bool IsMember(const ZR::UniString& loginName) const;
    bool UserIdExists(short userId) const;

private:
    class Work;
    void ClearTables();

    ZR::HashTable<short, KRCB::UserAttributes*> mAttributes;
    ZR::HashTable<short, UserData*> mUserData;
    ZR::HashTable<ZR::UniString, short> mLoginNames;
    ZR::HashTable<ZR::Guid, short> mGuids;
    ZR::Ref<Work, ZR::AtomicCounter> mWork;
};

}  // namespace KRC
