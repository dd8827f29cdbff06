#pragma once
/// @file
/// A locally cached project in the shape of a server project.

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"

namespace KRC::UI::LocalCache {

/// Answers from the server's project when it has one, else from the local
/// record. The local flags (changes, detached, travel package) always come
/// from the record. Immutable once built.
class KRCLIENT_EXPORT CacheProject : public KRCB::Management::Entities::Project {
public:
    using Project = KRCB::Management::Entities::Project;
    using Tag = KRCB::Management::Entities::Tag;

    /// A local project that may also live on the server. An existing
    /// CacheProject is unwrapped, so wrappers never nest.
    CacheProject(const ProjectInfo& info, const ZR::Ref<Project>& existing);
    /// A local project with no server side.
    CacheProject(const ProjectInfo& info, const ZR::UniString& parentFolderId);

    bool HasServerInfo() const { return static_cast<bool>(mServerProject); }
    bool HasChanges() const { return mProjectInfo.hasChanges; }
    bool IsDetached() const { return mProjectInfo.isDetached; }
    bool IsPackedIntoTravelPackage() const { return mProjectInfo.isPackedIntoTravelPackage; }
    bool IsUnpackedFromTravelPackage() const { return mProjectInfo.isUnpackedFromTravelPackage; }
    const ProjectInfo& GetProjectInfo() const { return mProjectInfo; }

    ZR::UniString GetId() const override;
    ZR::UniString GetName() const override;
    ZR::UniString GetPath() const override;
    ZR::UniString GetParentFolderId() const override;
    ZR::UniString GetModelServerId() const override;
    ResourceStatus::Status GetState() const override;
    SyncStatus::Status GetSyncState() const override;
    HostStatus::Status GetHostState() const override;
    VisibilityStatus::Status GetVisibilityState() const override;
    ZR::UniString GetModelServerPath() const override;
    int GetModifiedTimeUtc() const override;
    std::uint64_t GetSize() const override;
    /// Local projects carry no tags, whatever the server has.
    void GetTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>& tags) const override { tags.Clear(); }
    bool HasTags() const override { return false; }
    void GetJoinedUsers(ZR::HashSet<ZR::UniString>& users) const override;
    bool IsUserJoined(const ZR::UniString& userName) const override;
    ZR::UniString GetProjectVersion() const override;
    unsigned int GetProjectMajorVersion() const override;
    unsigned int GetProjectMinorVersion() const override;
    unsigned int GetProjectBuildNumber() const override;
    bool IsCompatible() const override;
    bool IsReadable() const override;
    bool IsSameVersion() const override;

private:
    void ParseVersion();

    ProjectInfo mProjectInfo;
    ZR::UniString mParentFolderId;
    ZR::Ref<Project> mServerProject;  ///< never a CacheProject
    unsigned int mMajorVersion = 0, mMinorVersion = 0, mThirdVersionNumber = 0, mBuildNumber = 0;
};

}  // namespace KRC::UI::LocalCache
