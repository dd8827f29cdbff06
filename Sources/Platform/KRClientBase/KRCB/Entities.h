#pragma once
/// @file
/// Entities of the management server as the client sees them, and the mapping
/// of permission texts to ids.

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "Gfx/Color.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB {

using PermissionID = std::int32_t;

namespace Management::Entities {

class ProjectFolder;

/// A label the server puts on resources.
class KRCB_EXPORT Tag {
public:
    Tag(const ZR::UniString& id, const ZR::UniString& name) : mId(id), mName(name) {}
    virtual ~Tag() = default;
    const ZR::UniString& GetId() const { return mId; }
    const ZR::UniString& GetName() const { return mName; }

private:
    ZR::UniString mId;
    ZR::UniString mName;
};

/// What the server tells of any resource: a project, a library, a file. The
/// server's own objects hold these fields; classes that stand in for a
/// resource (a project known only from a local cache) override the getters.
/// Tested at run time by their class: a project is a Project.
class KRCB_EXPORT Resource {
public:
    struct ResourceStatus {
        enum Status { Unknown = 0, Available = 1, Locked = 2, Deleted = 3 };
    };
    struct SyncStatus {
        enum Status { Unknown = 0, InSync = 1, Syncing = 2, Failed = 3 };
    };
    struct HostStatus {
        enum Status { Unknown = 0, Hosted = 1, Moving = 2 };
    };
    struct VisibilityStatus {
        enum Status { Unknown = 0, Visible = 1, Hidden = 2 };
    };

    /// The fields as the server sends them.
    struct Fields {
        ZR::UniString id;
        ZR::UniString path;  ///< "/Folder/Name"; the name is its last element
        ZR::UniString parentFolderId;
        ZR::UniString modelServerId;
        ZR::UniString modelServerPath;
        int state = ResourceStatus::Available;
        int syncState = SyncStatus::InSync;
        int hostState = HostStatus::Hosted;
        int visibilityState = VisibilityStatus::Visible;
        int modifiedTimeUtc = 0;
        std::uint64_t size = 0;
        ZR::PagedArray<ZR::Ref<const Tag>, 8> tags;
    };

    Resource() = default;
    explicit Resource(Fields fields) : mFields(std::move(fields)) {}
    virtual ~Resource() = default;

    virtual ZR::UniString GetId() const { return mFields.id; }
    /// The last element of GetPath.
    virtual ZR::UniString GetName() const;
    virtual ZR::UniString GetPath() const { return mFields.path; }
    virtual ZR::UniString GetParentFolderId() const { return mFields.parentFolderId; }
    virtual ZR::UniString GetModelServerId() const { return mFields.modelServerId; }
    virtual ResourceStatus::Status GetState() const {
        return static_cast<ResourceStatus::Status>(mFields.state);
    }
    virtual SyncStatus::Status GetSyncState() const {
        return static_cast<SyncStatus::Status>(mFields.syncState);
    }
    virtual HostStatus::Status GetHostState() const {
        return static_cast<HostStatus::Status>(mFields.hostState);
    }
    virtual VisibilityStatus::Status GetVisibilityState() const {
        return static_cast<VisibilityStatus::Status>(mFields.visibilityState);
    }
    /// The path of the project server that holds a project; empty for others.
    virtual ZR::UniString GetModelServerPath() const { return mFields.modelServerPath; }
    virtual int GetModifiedTimeUtc() const { return mFields.modifiedTimeUtc; }
    virtual std::uint64_t GetSize() const { return mFields.size; }
    /// Replaces the content of tags.
    virtual void GetTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>& tags) const { tags = mFields.tags; }
    virtual bool HasTags() const { return !mFields.tags.IsEmpty(); }

protected:
    Fields mFields;
};

/// A project of the server.
class KRCB_EXPORT Project : public Resource {
public:
    Project() = default;
    Project(Fields fields, const ZR::UniString& version, ZR::HashSet<ZR::UniString> joinedUsers);

    /// Login names of the users with a session in the project.
    virtual void GetJoinedUsers(ZR::HashSet<ZR::UniString>& users) const;
    /// Exact comparison of the login name.
    virtual bool IsUserJoined(const ZR::UniString& userName) const;
    /// "major.minor.third / build", as the project was last written.
    virtual ZR::UniString GetProjectVersion() const { return mVersion; }
    virtual unsigned int GetProjectMajorVersion() const { return mMajor; }
    virtual unsigned int GetProjectMinorVersion() const { return mMinor; }
    virtual unsigned int GetProjectBuildNumber() const { return mBuild; }
    virtual bool IsCompatible() const { return IsCompatible(mMajor, mMinor, mBuild); }
    virtual bool IsReadable() const { return IsReadable(mMajor, mMinor, mBuild); }
    virtual bool IsSameVersion() const { return IsSameVersion(mMajor); }

    /// The project format this client writes: major version 1.
    static constexpr unsigned int kMajorVersion = 1;
    /// This client opens and writes projects of its own major version.
    static bool IsCompatible(unsigned int major, unsigned int minor, unsigned int build);
    /// It reads those and older ones, but none of version 0, which no
    /// released client wrote.
    static bool IsReadable(unsigned int major, unsigned int minor, unsigned int build);
    static bool IsSameVersion(unsigned int major) { return major == kMajorVersion; }

private:
    ZR::UniString mVersion;
    unsigned int mMajor = 0, mMinor = 0, mBuild = 0;
    ZR::HashSet<ZR::UniString> mJoinedUsers;
};

/// A library of parts, stored in a folder.
class KRCB_EXPORT Library : public Resource {
public:
    using Resource::Resource;
};

/// A plain file stored in a folder.
class KRCB_EXPORT File : public Resource {
public:
    using Resource::Resource;
};

/// A project server: the management server names it for projects and for
/// the folders that default to it.
class KRCB_EXPORT ModelServer {
public:
    ModelServer(const ZR::UniString& id, const ZR::UniString& name, const ZR::UniString& path,
                int major, int minor)
        : mId(id), mName(name), mPath(path), mMajor(major), mMinor(minor) {}
    virtual ~ModelServer() = default;
    const ZR::UniString& GetId() const { return mId; }
    const ZR::UniString& GetName() const { return mName; }
    const ZR::UniString& GetPath() const { return mPath; }
    int GetMajorVersion() const { return mMajor; }
    int GetMinorVersion() const { return mMinor; }
    /// A client of protocol clientMajor.clientMinor can work with it: the
    /// same major version, and a minor version at least the client's (a
    /// server adds to a protocol within a major version, never takes away).
    bool MeetsRequirements(int clientMajor, int clientMinor) const {
        return mMajor == clientMajor && mMinor >= clientMinor;
    }
    /// Throws IncompatibleModelServerVersionException, with both versions,
    /// unless MeetsRequirements for this client's protocol.
    void CheckVersion() const;

private:
    ZR::UniString mId, mName, mPath;
    int mMajor, mMinor;
};

/// A folder of the server's tree. The root folder has the empty path and no
/// parent id. A folder holds what the answer that made it brought: its
/// projects, libraries and sub-folders may be known or not (an answer that
/// asked only for sub-folders leaves the projects out). Folders are linked
/// downwards by ZR::Ref and upwards by id only, so a tree has no cycle of
/// references; its walks and its destruction take no stack per level.
class KRCB_EXPORT ProjectFolder {
public:
    /// Type of the folder into which libraries are uploaded by default.
    enum DefaultLibraryUploadFolderType {
        UploadToOwnFolder = 0,
        UploadToFolder = 1,
        UploadNone = 2
    };

    struct Fields {
        ZR::UniString id;
        ZR::UniString path;  ///< "/a/b"; empty for the root
        ZR::UniString parentFolderId;
        ZR::UniString defaultModelServerId;
        DefaultLibraryUploadFolderType uploadType = UploadNone;
        ZR::UniString uploadFirst, uploadSecond;
        ZR::UniString defaultBlobStoreId;
        ZR::UniString vantlerProjectId;
        bool containsProjects = true;
        bool containsLibraries = true;
        bool containsFiles = false;
    };

    ProjectFolder() = default;
    explicit ProjectFolder(Fields fields);
    virtual ~ProjectFolder();
    ProjectFolder(const ProjectFolder&) = delete;
    ProjectFolder& operator=(const ProjectFolder&) = delete;

    virtual const ZR::UniString& GetId() const { return mFields.id; }
    virtual const ZR::UniString& GetName() const { return mName; }
    virtual bool ContainsProjects() const { return mFields.containsProjects; }
    virtual bool ContainsLibraries() const { return mFields.containsLibraries; }
    virtual bool ContainsFiles() const { return mFields.containsFiles; }

    // Operations that append to an array and return how many they appended;
    // the array is not emptied first. "All" ones take this folder's items
    // first, then each sub-folder's, depth first, in order.
    virtual unsigned int GetResourceCount() const;
    virtual unsigned int GetResources(ZR::PagedArray<ZR::Ref<Resource>, 8>& resources) const;
    virtual unsigned int GetAllChildResourceCount() const;
    virtual unsigned int GetAllChildResources(
        ZR::PagedArray<ZR::Ref<Resource>, 8>& resources) const;
    virtual unsigned int GetProjectCount() const;
    virtual unsigned int GetProjects(ZR::PagedArray<ZR::Ref<Project>, 8>& projects) const;
    virtual unsigned int GetAllChildProjectCount() const;
    virtual unsigned int GetAllChildProjects(ZR::PagedArray<ZR::Ref<Project>, 8>& projects) const;
    /// Case-insensitive; the first hit in order. Through an index of the
    /// names, so that laying many projects into one folder stays linear.
    virtual bool GetProjectByName(const ZR::UniString& name, ZR::Ref<Project>& project) const;
    virtual void AddProject(ZR::Ref<Project>& project);
    /// The first project of that name gives its slot to project, which may
    /// bear another name; no hit does nothing.
    virtual void ReplaceProjectByName(const ZR::UniString& name, ZR::Ref<Project>& project);
    virtual unsigned int GetLibraryCount() const;
    virtual unsigned int GetLibraries(ZR::PagedArray<ZR::Ref<Library>, 8>& libraries) const;
    virtual unsigned int GetAllChildLibraryCount() const;
    virtual unsigned int GetAllChildLibraries(ZR::PagedArray<ZR::Ref<Library>, 8>& libraries) const;
    virtual unsigned int GetFileCount() const;
    virtual unsigned int GetFiles(ZR::PagedArray<ZR::Ref<File>, 8>& files) const;
    virtual unsigned int GetAllChildFileCount() const;
    virtual unsigned int GetAllChildFiles(ZR::PagedArray<ZR::Ref<File>, 8>& files) const;
    virtual unsigned int GetTagCount() const;
    virtual unsigned int GetTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>& tags) const;
    virtual unsigned int GetAllChildTagCount() const;
    virtual unsigned int GetAllChildTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>& tags) const;
    virtual unsigned int GetSubFolderCount() const;
    virtual unsigned int GetSubFolders(ZR::PagedArray<ZR::Ref<ProjectFolder>, 8>& folders) const;
    /// Each sub-folder followed by all of its own, depth first.
    virtual unsigned int GetAllSubFolders(ZR::PagedArray<ZR::Ref<ProjectFolder>, 8>& folders) const;
    /// Case-insensitive; the first hit in order.
    virtual bool GetProjectFolderByName(const ZR::UniString& name,
                                        ZR::Ref<ProjectFolder>& folder) const;
    virtual const ZR::UniString& GetParentFolderId() const { return mFields.parentFolderId; }
    /// Appends, then tells the folder of its new parent.
    virtual void AddProjectFolder(ZR::Ref<ProjectFolder>& folder);
    virtual ZR::UniString GetDefaultModelServerId() const { return mFields.defaultModelServerId; }
    virtual void GetDefaultLibraryUploadFolder(DefaultLibraryUploadFolderType& type,
                                               ZR::UniString& first, ZR::UniString& second) const;
    virtual ZR::UniString GetDefaultBlobStoreId() const { return mFields.defaultBlobStoreId; }
    virtual bool IsVantlerProject() const { return !mFields.vantlerProjectId.IsEmpty(); }
    virtual const ZR::UniString& GetVantlerProjectId() const { return mFields.vantlerProjectId; }
    /// withRoot false: "/a/b", the empty path for the root. true: "Project
    /// Root" in front ("Project Root/a/b", "Project Root" for the root).
    virtual ZR::UniString GetPath(bool withRoot) const;
    /// The folder now stands under parent: it takes the parent's id, and the
    /// defaults it has none of its own for. Null: it keeps what it has.
    virtual void OnParentSet(const ProjectFolder* parent);
    /// Whether the folder holds an item of that kind and name (any case),
    /// among what the answer that made it brought.
    virtual bool HasProject(const ZR::UniString& name) const;
    virtual bool HasLibrary(const ZR::UniString& name) const;
    virtual bool HasFile(const ZR::UniString& name) const;
    virtual bool HasFolder(const ZR::UniString& name) const;
    virtual bool HasResourceOrFolder(const ZR::UniString& name) const;

    /// For the readers of answers: items as they come, no parent is told.
    void AddLibrary(const ZR::Ref<Library>& library) { mLibraries.Add(library); }
    void AddFile(const ZR::Ref<File>& file) { mFiles.Add(file); }
    void AppendSubFolder(const ZR::Ref<ProjectFolder>& folder) { mSubFolders.Add(folder); }

protected:
    /// Called on a folder that is about to go while its sub-folders are
    /// still in place; the destructor tears deep trees down without
    /// recursion, so a derived destructor would find them gone.
    virtual void BeforeTearDown() {}

    Fields mFields;
    ZR::UniString mName;
    ZR::PagedArray<ZR::Ref<Project>, 8> mProjects;
    ZR::PagedArray<ZR::Ref<Library>, 8> mLibraries;
    ZR::PagedArray<ZR::Ref<File>, 8> mFiles;
    ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> mSubFolders;

private:
    static constexpr std::size_t kNoSlot = static_cast<std::size_t>(-1);
    /// The slot of the first project of that name, or kNoSlot.
    std::size_t FindProjectSlot(const ZR::UniString& name) const;
    void IndexProjectSlot(std::size_t slot);

    /// Folded name to the slots of mProjects that bear it, ascending. Empty
    /// entries are not indexed; while there are any, a search goes through
    /// the list, to fail on them as it always did.
    std::unordered_map<std::string, std::vector<std::size_t>> mProjectSlotsByName;
    std::size_t mEmptyProjectSlots = 0;
};

/// Throws IncompatibleModelServerVersionException unless the server's
/// version meets the client's requirements (ModelServer::MeetsRequirements).
KRCB_EXPORT void CheckModelServerVersion(const ModelServer& modelServer);

}  // namespace Management::Entities

namespace Management {

/// The protocol version a kind of service of this client needs of a model
/// server: the same major version, and at least the minor one.
class KRCB_EXPORT ModelServerRequirement {
public:
    ModelServerRequirement(int major, int minor) : mMajor(major), mMinor(minor) {}
    int GetMajorVersion() const { return mMajor; }
    int GetMinorVersion() const { return mMinor; }
    bool IsMetBy(const Entities::ModelServer& server) const {
        return server.MeetsRequirements(mMajor, mMinor);
    }

private:
    int mMajor, mMinor;
};

/// This client's requirements of model servers, one per kind of service.
class KRCB_EXPORT ModelServerServiceRequirements {
public:
    static const ModelServerServiceRequirements& GetInstance();
    /// What working on a project needs.
    const ModelServerRequirement& GetProjectRequirement() const { return mProject; }

private:
    ModelServerServiceRequirements();
    ModelServerRequirement mProject;
};

}  // namespace Management

namespace Management::Entities {

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
