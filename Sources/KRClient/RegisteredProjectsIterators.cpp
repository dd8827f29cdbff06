// Enumeration of registered projects, and the view of one project.

#include "KRCB/Paths.h"
#include "KRClient/RegisteredProjects.h"

namespace KRC {

ZR::UniString RegisteredProject::GetServerUrl() const {
    return info ? info->GetPortalServerUrl() : ZR::UniString();
}
ZR::UniString RegisteredProject::GetUserName() const {
    return info ? info->GetLoginName() : ZR::UniString();
}
ZR::UniString RegisteredProject::GetProjectPath() const {
    return info ? info->GetProjectPath() : ZR::UniString();
}
ZR::UniString RegisteredProject::GetModelServerPath() const {
    return info ? info->GetModelServerPath() : ZR::UniString();
}

IO::Location RegisteredProject::GetCacheDataFolderLocation() const {
    return info ? info->GetCacheFolderLocation() : IO::Location();
}

IO::Location RegisteredProject::GetKerrowLocation() const {
    IO::Location location;
    if (!info) return location;
    ProjectConnectionInfo connectionInfo;
    info->GetProjectConnectionInfo(&connectionInfo);
    return connectionInfo.ToKerrowLocation(&location);
}

int RegisteredProject::GetLastOpenedTime() const {
    return info ? info->GetLastOpenProjectTime() : 0;
}
int RegisteredProject::GetTravelPackageCreationTime() const {
    return info ? info->GetTravelPackageCreationTime() : 0;
}
bool RegisteredProject::IsTravelPackageCreated() const {
    return info && info->IsTravelPackageCreated();
}
bool RegisteredProject::ExtractedFromTravelPackage() const {
    return info && info->ExtractedFromTravelPackage();
}
int RegisteredProject::GetLocalDataVersion() const {
    return info ? info->GetXMLVersion() : 0;
}

RegisteredProjects::ProjectIteratorBase::ProjectIteratorBase(
    const ZR::UniString& loginName, const ZR::UniString& serverUrl,
    const ZR::Array<IO::Location>* folders) {
    FillProjects(loginName, serverUrl, folders);
}

RegisteredProjects::ProjectIteratorBase::ProjectIteratorBase(const ProjectIteratorBase& other)
    : records(other.records), projects(other.projects), position(other.position) {
    Repoint(other);
}

RegisteredProjects::ProjectIteratorBase& RegisteredProjects::ProjectIteratorBase::operator=(
    const ProjectIteratorBase& other) {
    if (this == &other) return *this;
    records = other.records;
    projects = other.projects;
    position = other.position;
    Repoint(other);
    return *this;
}

void RegisteredProjects::ProjectIteratorBase::Repoint(const ProjectIteratorBase& other) {
    // Projects of a search point into the iterator's own records, which the
    // copy has copied; projects over the registry stay as they are. The
    // projects are a subsequence of the records, so one pass pairs them.
    std::size_t r = 0;
    for (RegisteredProject& project : projects) {
        while (r < other.records.GetSize() &&
               other.records[r].info.get() != project.GetCachedProjectInfo())
            ++r;
        if (r == other.records.GetSize()) return;
        project = RegisteredProject(records[r].info.get());
    }
}

void RegisteredProjects::ProjectIteratorBase::FillProjects(const ZR::UniString& loginName,
                                                           const ZR::UniString& serverUrl,
                                                           const ZR::Array<IO::Location>* folders) {
    const ZR::Array<CacheInfoRecord>* source = &records;
    if (folders) {
        for (const IO::Location& folder : *folders) SearchCaches(folder, records);
    } else {
        registeredProjects.RefreshData(false, nullptr);
        source = &mCacheInforegister;
    }
    projects.EnsureCapacity(source->GetSize());
    for (const CacheInfoRecord& record : *source) {
        const CachedProjectInfo* info = record.info.get();
        if (!info) continue;
        if (!loginName.IsEmpty() && !loginName.IsEqual(info->GetLoginName(), ZR::kIgnoreCase))
            continue;
        if (!serverUrl.IsEmpty() &&
            !KRCB::IsEqualServerUrls(serverUrl, info->GetPortalServerUrl(), false))
            continue;
        projects.Add(RegisteredProject(info));
    }
}

RegisteredProject& RegisteredProjects::ProjectIteratorBase::Current() {
    if (position >= projects.GetSize()) {
        none = RegisteredProject();
        return none;
    }
    return projects[position];
}

}  // namespace KRC
