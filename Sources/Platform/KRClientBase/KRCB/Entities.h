#pragma once
/// @file
/// Entities of the management server as the client sees them, and the mapping
/// of permission texts to ids.

#include <cstdint>

#include "Gfx/Color.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB {

using PermissionID = std::int32_t;

namespace Management::Entities {

/// A folder, project or library. Types: 0 folder, 1 project, 2 library.
class KRCB_EXPORT Resource {
public:
    Resource() = default;
    Resource(std::int32_t type, const ZR::UniString& id, const ZR::UniString& path,
             const ZR::UniString& modelServerPath)
        : mType(type), mId(id), mPath(path), mModelServerPath(modelServerPath) {}
    virtual ~Resource() = default;

    std::int32_t GetType() const { return mType; }
    const ZR::UniString& GetId() const { return mId; }
    /// The full path on the server, "/Folder/Project".
    const ZR::UniString& GetPath() const { return mPath; }
    /// The path of the project server that holds a project; empty for others.
    const ZR::UniString& GetModelServerPath() const { return mModelServerPath; }

private:
    std::int32_t mType = 0;
    ZR::UniString mId;
    ZR::UniString mPath;
    ZR::UniString mModelServerPath;
};

class KRCB_EXPORT User {
public:
    User() = default;
    User(const ZR::UniString& id, const ZR::UniString& loginName, const ZR::UniString& fullName,
         const ZR::UniString& guid, const Gfx::Color& color, bool hasImage)
        : mId(id),
          mLoginName(loginName),
          mFullName(fullName),
          mGuid(guid),
          mColor(color),
          mHasImage(hasImage) {}
    virtual ~User() = default;

    const ZR::UniString& GetId() const { return mId; }
    const ZR::UniString& GetLoginName() const { return mLoginName; }
    const ZR::UniString& GetFullName() const { return mFullName; }
    /// The server's own guid field of the user. Project members are known by
    /// the guid of GetId's text, not by this.
    const ZR::UniString& GetGuid() const { return mGuid; }
    const Gfx::Color& GetColor() const { return mColor; }
    bool HasImage() const { return mHasImage; }

private:
    ZR::UniString mId;
    ZR::UniString mLoginName;
    ZR::UniString mFullName;
    ZR::UniString mGuid;
    Gfx::Color mColor;
    bool mHasImage = false;
};

/// A user's picture as the server sends it.
class KRCB_EXPORT UserImage {
public:
    UserImage() = default;
    UserImage(const ZR::UniString& type, std::vector<unsigned char> data)
        : mType(type), mData(std::move(data)) {}
    /// "image/jpeg", "image/png" or whatever the server stored.
    const ZR::UniString& GetType() const { return mType; }
    const unsigned char* GetData() const { return mData.empty() ? nullptr : mData.data(); }
    std::size_t GetSize() const { return mData.size(); }

private:
    ZR::UniString mType;
    std::vector<unsigned char> mData;
};

/// Permission texts and their ids. Ids below 2001 are the rights of a
/// project; 2001 and above are marks of the server that carry no right.
class KRCB_EXPORT PermissionIDMapper {
public:
    static PermissionIDMapper& GetInstance();

    /// Throws ZR::IllegalArgumentException for a text it doesn't know.
    PermissionID GetPermissionID(const ZR::UniString& text) const;
    /// Throws ZR::IllegalArgumentException for an id it doesn't know.
    ZR::UniString GetPermissionString(PermissionID id) const;
    /// Texts it doesn't know are left out.
    void GetPermissionIDs(const ZR::HashSet<ZR::UniString>& texts,
                          ZR::HashSet<PermissionID>& ids) const;
    /// Ids it doesn't know are left out.
    void GetPermissionIDsAsStrings(const ZR::HashSet<PermissionID>& ids,
                                   ZR::HashSet<ZR::UniString>& texts) const;
    /// Every text it knows, in id order.
    void GetAllPermissionStrings(ZR::Array<ZR::UniString>& texts) const;

private:
    PermissionIDMapper();
    ZR::HashTable<ZR::UniString, PermissionID> mIds;
    ZR::HashTable<PermissionID, ZR::UniString> mTexts;
};

}  // namespace Management::Entities
}  // namespace KRCB
