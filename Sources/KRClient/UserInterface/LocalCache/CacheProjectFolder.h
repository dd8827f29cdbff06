#pragma once
/// @file
/// A project folder that exists only on this machine.

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"

namespace KRC::UI::LocalCache {

/// Holds local projects and folders; never libraries, files or tags. Each
/// instance has an id of its own, so a path made twice gives two ids. It
/// inherits its defaults from the parent it is added to.
class KRCLIENT_EXPORT CacheProjectFolder : public KRCB::Management::Entities::ProjectFolder {
public:
    using ProjectFolder = KRCB::Management::Entities::ProjectFolder;
    using Library = KRCB::Management::Entities::Library;
    using File = KRCB::Management::Entities::File;
    using Tag = KRCB::Management::Entities::Tag;

    /// Throws KRClientException -7003 when no id can be made.
    CacheProjectFolder(const ZR::UniString& path, const ZR::UniString& parentFolderId,
                       bool containsProjects, bool containsLibraries, bool containsFiles);
    ~CacheProjectFolder() override;

    unsigned int GetLibraryCount() const override { return 0; }
    unsigned int GetLibraries(ZR::PagedArray<ZR::Ref<Library>, 8>&) const override { return 0; }
    unsigned int GetAllChildLibraryCount() const override { return 0; }
    unsigned int GetAllChildLibraries(ZR::PagedArray<ZR::Ref<Library>, 8>&) const override {
        return 0;
    }
    unsigned int GetFileCount() const override { return 0; }
    unsigned int GetFiles(ZR::PagedArray<ZR::Ref<File>, 8>&) const override { return 0; }
    unsigned int GetAllChildFileCount() const override { return 0; }
    unsigned int GetAllChildFiles(ZR::PagedArray<ZR::Ref<File>, 8>&) const override { return 0; }
    unsigned int GetTagCount() const override { return 0; }
    unsigned int GetTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>&) const override { return 0; }
    unsigned int GetAllChildTagCount() const override { return 0; }
    unsigned int GetAllChildTags(ZR::PagedArray<ZR::Ref<const Tag>, 8>&) const override {
        return 0;
    }

    /// "Project Root", then "/" and the path unless this is the root.
    ZR::UniString GetPath(bool withRoot) const override;
    /// Takes the parent's id and all its defaults; null clears the ids and
    /// keeps the library upload folder. Sub-folders are not told.
    void OnParentSet(const ProjectFolder* parent) override;
    /// A local folder never stands in the way of a name on the server.
    bool HasProject(const ZR::UniString&) const override { return false; }
    bool HasLibrary(const ZR::UniString&) const override { return false; }
    bool HasFile(const ZR::UniString&) const override { return false; }
    bool HasFolder(const ZR::UniString&) const override { return false; }
    bool HasResourceOrFolder(const ZR::UniString&) const override { return false; }

protected:
    void BeforeTearDown() override;
};

}  // namespace KRC::UI::LocalCache
