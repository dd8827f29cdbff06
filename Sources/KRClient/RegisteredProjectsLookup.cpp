// Finding a project's record by its project location, making new records,
// and the per-project operations built on the look-up.

#include <string>

#include "KRCB/Paths.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegisteredProjects.h"
#include "ZR/Time.h"

namespace KRC {
namespace {

// The server of a record as its project location would carry it: the URL,
// else the friendly name. Taken straight from the fields, because building
// the location would fetch the refresh token from the login data store for
// every record of every look-up.
ZR::UniString RecordServer(const CachedProjectInfo& info) {
    ZR::UniString server = info.GetPortalServerUrl();
    return server.IsEmpty() ? info.GetServerName() : server;
}

}  // namespace

void RegisteredProjects::GetIDs(const IO::Location& location, ZR::UniString& user,
                                ZR::UniString& server, ZR::UniString& path) {
    user = location.GetUserName();
    server = KRCB::GetPortalServerUrl(location);
    path = KRCB::GetProjectPath(location);
}

bool RegisteredProjects::GetCacheIndex(const IO::Location& location, std::size_t& index,
                                       bool refreshFound) {
    index = 0;
    if (location.IsEmpty()) return false;
    if (!registryLoaded) RefreshData(false, nullptr);
    if (mCacheInforegister.IsEmpty()) return false;

    ZR::UniString user, server, path, alternativePath;
    GetIDs(location, user, server, path);
    TemporaryModification::GetInstance().GetCacheRenameModification(server, user, path,
                                                                    alternativePath);

    // The query is folded and hashed once; the records carry the hashes of
    // their keys, so the walk compares texts only where the hashes agree,
    // and allocates nothing.
    const std::hash<ZR::UniString> hash;
    const std::size_t pathHash = hash(path.FoldCase());
    const std::size_t userHash = hash(user.FoldCase());
    const bool alternative = !alternativePath.IsEmpty();
    const std::size_t alternativeHash = alternative ? hash(alternativePath.FoldCase()) : 0;

    constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    std::size_t strict = kNone;
    std::size_t loose = kNone;
    std::size_t looseCount = 0;
    const std::size_t count = mCacheInforegister.GetSize();
    for (std::size_t i = 0; i < count; ++i) {
        const CacheInfoRecord& record = mCacheInforegister[i];
        if (record.userHash != userHash) continue;
        if (record.pathHash != pathHash && (!alternative || record.pathHash != alternativeHash))
            continue;
        const CachedProjectInfo* info = record.info.get();
        if (!info) continue;
        const ZR::UniString recordPath = info->GetProjectPath();
        if (!recordPath.IsEqual(path, ZR::kIgnoreCase) &&
            (!alternative || !recordPath.IsEqual(alternativePath, ZR::kIgnoreCase)))
            continue;
        if (!info->GetLoginName().IsEqual(user, ZR::kIgnoreCase)) continue;
        const ZR::UniString recordServer = RecordServer(*info);
        if (KRCB::IsEqualServerUrls(recordServer, server, true)) {
            strict = i;
            break;
        }
        if (KRCB::IsEqualServerUrls(recordServer, server, false)) {
            if (looseCount++ == 0) loose = i;
        }
    }
    // The first strict match wins; of loose ones, only a single one counts.
    std::size_t found = strict != kNone ? strict : (looseCount == 1 ? loose : kNone);
    if (found == kNone) return false;

    index = found;
    CacheInfoRecord& record = mCacheInforegister[found];
    if (!refreshFound || !record.info) return true;
    bool reread = false;
    if (!record.info->RefreshIfPresent(&reread)) return false;
    if (reread) record.UpdateKeys();
    return true;
}

CachedProjectInfo* RegisteredProjects::GetCacheInfo(const IO::Location& location,
                                                    bool refreshFound) {
    std::size_t index = 0;
    if (!GetCacheIndex(location, index, refreshFound)) return nullptr;
    return mCacheInforegister[index].info.get();
}

const CachedProjectInfo* RegisteredProjects::GetCachedProjectInfo(const IO::Location& location) {
    try {
        return GetCacheInfo(location, !Synchronizer::IsLocked());
    } catch (...) {
        // Look-ups report absence, not failure.
        return nullptr;
    }
}

CachedProjectInfo* RegisteredProjects::CreateCachedProjectInfo(const IO::Location& location,
                                                               bool& created) {
    created = false;
    try {
        Synchronizer sync;
        if (const CachedProjectInfo* found = GetCacheInfo(location, !Synchronizer::IsLocked()))
            return new CachedProjectInfo(*found);
        IO::Location folder;
        dataOptions.GetMainProjectCacheFolder(&folder, true);
        // Without a data folder the new folder would land in the working folder.
        if (folder.IsEmpty()) return nullptr;
        created = true;
        // The record's first write reaches ContentWrittenToDisc, which registers it.
        return new CachedProjectInfo(ProjectConnectionInfo(location), folder);
    } catch (...) {
        return nullptr;
    }
}

void RegisteredProjects::RemoveProject(const IO::Location& location) {
    std::size_t index = 0;
    if (!GetCacheIndex(location, index, false)) return;
    // Out of the array before it goes: a record's destructor may write, and
    // the registry hears of writes.
    CacheInfoRecord removed = std::move(mCacheInforegister[index]);
    mCacheInforegister.Remove(index);
}

template <typename R, typename F>
R RegisteredProjects::GetByLocation(const IO::Location& location, F&& get) {
    try {
        if (const CachedProjectInfo* info = GetCacheInfo(location, !Synchronizer::IsLocked()))
            return get(*info);
    } catch (...) {
    }
    return R();
}

template <typename F>
void RegisteredProjects::SetByLocation(const IO::Location& location, F&& set) {
    try {
        Synchronizer sync;
        // The guard's first reading made the registry fresh.
        std::size_t index = 0;
        if (!GetCacheIndex(location, index, false)) return;
        CachedProjectInfo* info = mCacheInforegister[index].info.get();
        if (!info) return;
        set(*info);
        // The write is heard by the registry, which may have moved records meanwhile.
        if (index < mCacheInforegister.GetSize() && mCacheInforegister[index].info.get() == info)
            mCacheInforegister[index].UpdateKeys();
    } catch (...) {
    }
}

IO::Location RegisteredProjects::GetCacheDataFolder(const IO::Location& location) {
    return GetByLocation<IO::Location>(
        location, [](const CachedProjectInfo& i) { return i.GetCacheFolderLocation(); });
}

int RegisteredProjects::GetLastOpenedTime(const IO::Location& location) {
    return GetByLocation<int>(
        location, [](const CachedProjectInfo& i) { return i.GetLastOpenProjectTime(); });
}

int RegisteredProjects::GetProjectBuildNum(const IO::Location& location) {
    return GetByLocation<int>(location,
                              [](const CachedProjectInfo& i) { return i.GetProjectBuildNum(); });
}

ZR::UniString RegisteredProjects::GetProjectVersion(const IO::Location& location) {
    return GetByLocation<ZR::UniString>(
        location, [](const CachedProjectInfo& i) { return i.GetProjectVersion(); });
}

int RegisteredProjects::GetTravelPackageCreationTime(const IO::Location& location) {
    return GetByLocation<int>(
        location, [](const CachedProjectInfo& i) { return i.GetTravelPackageCreationTime(); });
}

unsigned int RegisteredProjects::GetVisitCount(const IO::Location& location) {
    return GetByLocation<unsigned int>(
        location, [](const CachedProjectInfo& i) { return i.GetVisitCount(); });
}

bool RegisteredProjects::IsEnabledTravelPackageWarningAtClose(const IO::Location& location) {
    return GetByLocation<bool>(location, [](const CachedProjectInfo& i) {
        return i.IsEnabledTravelPackageWarningAtClose();
    });
}

bool RegisteredProjects::IsProjectDetached(const IO::Location& location) {
    return GetByLocation<bool>(location,
                               [](const CachedProjectInfo& i) { return i.IsProjectDetached(); });
}

bool RegisteredProjects::IsTravelPackageCreated(const IO::Location& location) {
    return GetByLocation<bool>(
        location, [](const CachedProjectInfo& i) { return i.IsTravelPackageCreated(); });
}

bool RegisteredProjects::ExtractedFromTravelPackage(const IO::Location& location) {
    return GetByLocation<bool>(
        location, [](const CachedProjectInfo& i) { return i.ExtractedFromTravelPackage(); });
}

void RegisteredProjects::ProjectOpened(const IO::Location& location) {
    SetByLocation(location, [](CachedProjectInfo& i) { i.SetLastOpenProjectTime(TIGetTime()); });
}

void RegisteredProjects::ProjectDetached(const IO::Location& location) {
    SetByLocation(location, [](CachedProjectInfo& i) { i.ProjectDetached(); });
}

void RegisteredProjects::ProjectReloaded(const IO::Location& location) {
    SetByLocation(location, [](CachedProjectInfo& i) { i.ProjectReloaded(); });
}

void RegisteredProjects::EnableTravelPackageWarningAtClose(const IO::Location& location,
                                                           bool enable) {
    SetByLocation(location,
                  [&](CachedProjectInfo& i) { i.EnableTravelPackageWarningAtClose(enable); });
}

void RegisteredProjects::SetExtractedFromTravelPackage(const IO::Location& location,
                                                       bool extracted) {
    SetByLocation(location,
                  [&](CachedProjectInfo& i) { i.SetExtractedFromTravelPackage(extracted); });
}

void RegisteredProjects::SetProjectBuildNum(const IO::Location& location, int buildNum) {
    SetByLocation(location, [&](CachedProjectInfo& i) { i.SetProjectBuildNum(buildNum); });
}

void RegisteredProjects::SetProjectVersion(const IO::Location& location,
                                           const ZR::UniString& version) {
    SetByLocation(location, [&](CachedProjectInfo& i) { i.SetProjectVersion(version); });
}

void RegisteredProjects::SetTravelPackageCreated(const IO::Location& location, bool created) {
    SetByLocation(location, [&](CachedProjectInfo& i) { i.SetTravelPackageCreated(created); });
}

void RegisteredProjects::SetTravelPackageCreationTime(const IO::Location& location, int time) {
    SetByLocation(location, [&](CachedProjectInfo& i) { i.SetTravelPackageCreationTime(time); });
}

void RegisteredProjects::SetVisitCount(const IO::Location& location, unsigned int count) {
    SetByLocation(location, [&](CachedProjectInfo& i) { i.SetVisitCount(count); });
}

}  // namespace KRC
