#include "KRClient/UserInterface/LocalCache/CacheProjectFolder.h"

#include "KRClient/KRClientExceptions.h"
#include "ZR/Guid.h"

namespace KRC::UI::LocalCache {

namespace {

ZR::UniString NewFolderId() {
    try {
        return ZR::Guid::Generate().ToString();
    } catch (const ZR::ZRException& e) {
        throw KRClientException(
            ZR::UniString::Format(
                "Failed to generate id. Id guid generation failed. Error code: %d.",
                e.GetErrorCode()),
            ZR_HERE, -7003);
    }
}

CacheProjectFolder::Fields MakeFields(const ZR::UniString& path,
                                      const ZR::UniString& parentFolderId, bool containsProjects,
                                      bool containsLibraries, bool containsFiles) {
    CacheProjectFolder::Fields fields;
    fields.id = NewFolderId();
    fields.path = path;
    fields.parentFolderId = parentFolderId;
    fields.uploadType = CacheProjectFolder::UploadNone;
    fields.containsProjects = containsProjects;
    fields.containsLibraries = containsLibraries;
    fields.containsFiles = containsFiles;
    return fields;
}

}  // namespace

CacheProjectFolder::CacheProjectFolder(const ZR::UniString& path,
                                       const ZR::UniString& parentFolderId, bool containsProjects,
                                       bool containsLibraries, bool containsFiles)
    : ProjectFolder(
          MakeFields(path, parentFolderId, containsProjects, containsLibraries, containsFiles)) {}

CacheProjectFolder::~CacheProjectFolder() {
    BeforeTearDown();
}

void CacheProjectFolder::BeforeTearDown() {
    // A sub-folder that outlives this one must not name it as its parent.
    for (ZR::Ref<ProjectFolder>& folder : mSubFolders)
        if (folder) folder->OnParentSet(nullptr);
}

ZR::UniString CacheProjectFolder::GetPath(bool withRoot) const {
    if (!withRoot) return mFields.path;
    if (mFields.path.IsEmpty()) return "Project Root";
    return ZR::UniString("Project Root/") + mFields.path;
}

void CacheProjectFolder::OnParentSet(const ProjectFolder* parent) {
    mFields.parentFolderId.Clear();
    mFields.defaultModelServerId.Clear();
    mFields.defaultBlobStoreId.Clear();
    if (!parent) return;
    mFields.parentFolderId = parent->GetId();
    mFields.defaultModelServerId = parent->GetDefaultModelServerId();
    parent->GetDefaultLibraryUploadFolder(mFields.uploadType, mFields.uploadFirst,
                                          mFields.uploadSecond);
    mFields.defaultBlobStoreId = parent->GetDefaultBlobStoreId();
}

}  // namespace KRC::UI::LocalCache
