#pragma once
/// @file
/// One set of sort keys for server resources and local projects, so that a
/// list can hold both.

#include <cstdint>

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC::UI {

class KRCLIENT_EXPORT ISortableElement {
public:
    virtual ~ISortableElement() = default;
    virtual ZR::UniString GetSortName() const = 0;
    virtual int GetSortModifiedTimeUtc() const = 0;
    virtual std::uint64_t GetSortSize() const = 0;
    virtual const ZR::UniString GetSortModelServerPath() const = 0;
    /// 1 project, 2 library, 3 anything else.
    virtual int GetSortResourceType() const = 0;
    virtual ZR::UniString GetSortPath() const = 0;
};

/// A local project. The host derives from it and gives GetSortPath, whose
/// form is the host's.
class KRCLIENT_EXPORT SortableProjectInfo : public ISortableElement {
public:
    explicit SortableProjectInfo(LocalCache::ProjectInfo& info) : mInfo(info) {}
    const LocalCache::ProjectInfo& GetProjectInfo() const { return mInfo; }

    ZR::UniString GetSortName() const override;
    int GetSortModifiedTimeUtc() const override { return mInfo.modifiedTimeUtc; }
    std::uint64_t GetSortSize() const override { return mInfo.size; }
    const ZR::UniString GetSortModelServerPath() const override { return mInfo.modelServerPath; }
    int GetSortResourceType() const override { return 1; }

private:
    LocalCache::ProjectInfo mInfo;
};

class KRCLIENT_EXPORT SortableResource : public ISortableElement {
public:
    explicit SortableResource(const ZR::Ref<KRCB::Management::Entities::Resource>& resource)
        : mResource(resource) {}
    const ZR::Ref<KRCB::Management::Entities::Resource>& GetResource() const { return mResource; }

    ZR::UniString GetSortName() const override { return mResource->GetName(); }
    int GetSortModifiedTimeUtc() const override { return mResource->GetModifiedTimeUtc(); }
    std::uint64_t GetSortSize() const override { return mResource->GetSize(); }
    const ZR::UniString GetSortModelServerPath() const override {
        return mResource->GetModelServerPath();
    }
    int GetSortResourceType() const override;
    ZR::UniString GetSortPath() const override { return mResource->GetPath(); }

private:
    ZR::Ref<KRCB::Management::Entities::Resource> mResource;
};

}  // namespace KRC::UI
