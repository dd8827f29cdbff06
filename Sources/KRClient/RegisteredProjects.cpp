// The registry's start, its reading of the folders and the options that it
// passes through to the host.

#include "KRClient/RegisteredProjects.h"

#include <algorithm>

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"

namespace KRC {

RegisteredProjects RegisteredProjects::mSingleton;
RegisteredProjects& registeredProjects = RegisteredProjects::mSingleton;
ZR::Array<RegisteredProjects::CacheInfoRecord> RegisteredProjects::mCacheInforegister;

namespace {

// What RefreshCacheFolderEnumCallback works on: the records and an index of
// their folders, so that a walk over many folders stays linear.
struct RefreshWalk {
    ZR::Array<RegisteredProjects::CacheInfoRecord>* records;
    ZR::HashTable<ZR::UniString, std::size_t> byFolder;
};

// Removes, keeping the order of the rest, the records not seen by the walk
// and the record of excludedFolder.
void RemoveUnseen(ZR::Array<RegisteredProjects::CacheInfoRecord>& records,
                  const IO::Location* excludedFolder) {
    bool exclude = excludedFolder && !excludedFolder->IsEmpty();
    auto& items = records.Std();
    items.erase(
        std::remove_if(items.begin(), items.end(),
                       [&](const RegisteredProjects::CacheInfoRecord& record) {
                           return record.notSeen ||
                                  (exclude && record.info &&
                                   record.info->GetCacheFolderLocation() == *excludedFolder);
                       }),
        items.end());
}

}  // namespace

RegisteredProjects::CacheInfoRecord::CacheInfoRecord(const CacheInfoRecord& other)
    : notSeen(other.notSeen), info(other.info ? new CachedProjectInfo(*other.info) : nullptr) {}

RegisteredProjects::CacheInfoRecord& RegisteredProjects::CacheInfoRecord::operator=(
    const CacheInfoRecord& other) {
    if (this == &other) return *this;
    notSeen = other.notSeen;
    info.reset(other.info ? new CachedProjectInfo(*other.info) : nullptr);
    return *this;
}

// The observer bases detach from every source they know; an explicit Detach
// here could reach a source already gone at the end of the process.
RegisteredProjects::~RegisteredProjects() = default;

void RegisteredProjects::Init(const IO::Location& folder, const ZR::UniString& projectCacheName,
                              const ZR::UniString& libCacheName) {
    dataOptions.SetOptionsFolder(folder);
    dataOptions.SetProjectCacheFolderName(projectCacheName);
    dataOptions.SetLibCacheFolderName(libCacheName);
    // Attached only now, so the three calls above reach no one here.
    dataOptions.Attach(static_cast<KRDataOptionsObserver&>(mSingleton));
    cachedProjectInfoObserver.Attach(static_cast<CachedProjectInfoObserver&>(mSingleton));
    mSingleton.RefreshData(true, nullptr);
}

void RegisteredProjects::ResetForTesting() {
    mSingleton.Reset();
    dataOptions.Detach(static_cast<KRDataOptionsObserver&>(mSingleton));
    cachedProjectInfoObserver.Detach(static_cast<CachedProjectInfoObserver&>(mSingleton));
    dataOptions.ResetForTesting();
}

void RegisteredProjects::RefreshData(bool force, const IO::Location* excludedFolder) {
    // The holder of the lock read the state when it took it; nobody else can change it.
    if (Synchronizer::IsLocked() && !force && registryLoaded) return;
    registryLoaded = true;
    dataOptions.Refresh();
    if (walking) return;
    walking = true;
    try {
        if (mCacheInforegister.IsEmpty())
            RegisterCaches(excludedFolder);
        else
            RefreshCaches(excludedFolder);
    } catch (...) {
        walking = false;
        throw;
    }
    walking = false;
}

void RegisteredProjects::Reset() {
    Synchronizer::Reset();
    mCacheInforegister.Clear();
    registryLoaded = false;
}

std::size_t RegisteredProjects::GetCacheDataFolderNum() {
    RefreshData(false, nullptr);
    return mCacheInforegister.GetSize();
}

void RegisteredProjects::RegisterCaches(const IO::Location* excludedFolder) {
    mCacheInforegister.Clear();
    IO::Location location;
    dataOptions.GetMainProjectCacheFolder(&location, false);
    IO::Folder folder(location, IO::kNotFoundCreate);
    if (folder.GetStatus() != IO::kOk || folder.IsEmpty()) return;
    std::size_t folders = folder.CountFolders();
    if (folders == 0) return;
    mCacheInforegister.EnsureCapacity(folders);
    folder.Enumerate(CacheFolderEnumCallback, 1, 2, &mCacheInforegister);
    RemoveUnseen(mCacheInforegister, excludedFolder);
}

void RegisteredProjects::RefreshCaches(const IO::Location* excludedFolder) {
    IO::Location location;
    dataOptions.GetMainProjectCacheFolder(&location, false);
    IO::Folder folder(location, IO::kNotFoundCreate);
    if (folder.GetStatus() != IO::kOk) return;
    if (folder.IsEmpty()) {
        mCacheInforegister.Clear();
        return;
    }
    std::size_t folders = folder.CountFolders();
    RefreshWalk walk{&mCacheInforegister, {}};
    mCacheInforegister.EnsureCapacity(std::max(folders, mCacheInforegister.GetSize()));
    for (std::size_t i = 0; i < mCacheInforegister.GetSize(); ++i) {
        CacheInfoRecord& record = mCacheInforegister[i];
        record.notSeen = true;
        // Add keeps the first: the walk meets the earliest record of a folder.
        if (record.info) walk.byFolder.Add(record.info->GetCacheFolderLocation().ToText(), i);
    }
    if (folders > 0) folder.Enumerate(RefreshCacheFolderEnumCallback, 1, 2, &walk);
    RemoveUnseen(mCacheInforegister, excludedFolder);
}

bool RegisteredProjects::CacheFolderEnumCallback(const IO::Folder& folder, const IO::Name& name,
                                                 bool isFolder, void* argument) {
    if (!isFolder) return true;
    IO::Location location = folder.GetLocation() + name;
    if (!CachedProjectInfo::CachedProjectInfoExist(location)) return true;
    try {
        auto* records = static_cast<ZR::Array<CacheInfoRecord>*>(argument);
        records->Emplace(new CachedProjectInfo(location));
    } catch (const FileOpeningError&) {
        // Left out until it can be read; nothing is reported.
    } catch (const ErrorReadingFile&) {
    }
    return true;
}

bool RegisteredProjects::RefreshCacheFolderEnumCallback(const IO::Folder& folder,
                                                        const IO::Name& name, bool isFolder,
                                                        void* argument) {
    if (!isFolder) return true;
    IO::Location location = folder.GetLocation() + name;
    if (!CachedProjectInfo::CachedProjectInfoExist(location)) return true;
    auto* walk = static_cast<RefreshWalk*>(argument);
    if (const std::size_t* index = walk->byFolder.Find(location.ToText())) {
        CacheInfoRecord& record = (*walk->records)[*index];
        if (record.info && record.info->GetCacheFolderLocation() == location) {
            record.info->Refresh();
            record.notSeen = false;
            return true;
        }
    }
    try {
        walk->records->Emplace(new CachedProjectInfo(location));
    } catch (...) {
        // A folder that can't be read now comes in at a later walk.
    }
    return true;
}

void RegisteredProjects::SearchCaches(const IO::Location& location,
                                      ZR::Array<CacheInfoRecord>& records) {
    IO::Folder folder(location, IO::kNotFoundFail);
    if (folder.GetStatus() != IO::kOk || folder.IsEmpty() || folder.CountFolders() == 0) return;
    folder.Enumerate(CacheFolderEnumCallback, 1, 2, &records);
}

void RegisteredProjects::KRDataFolderChanged() {
    RefreshData(true, nullptr);
}

void RegisteredProjects::ContentWrittenToDisc(const CachedProjectInfo* written) {
    if (mCacheInforegister.IsEmpty()) {
        RefreshData(true, nullptr);
        return;
    }
    const IO::Location& folder = written->GetCacheFolderLocation();
    for (CacheInfoRecord& record : mCacheInforegister) {
        if (record.info.get() == written) return;
        if (!folder.IsEmpty() && record.info && record.info->GetCacheFolderLocation() == folder) {
            // Assigning writes nothing, so this doesn't come back here.
            record.info->AssignContent(*written);
            return;
        }
    }
    // A folder new to the registry.
    RefreshData(true, nullptr);
}

bool RegisteredProjects::GetEnableAutoClean() {
    if (!Synchronizer::IsLocked()) dataOptions.Refresh();
    return dataOptions.GetEnableAutoClean();
}

int RegisteredProjects::GetPeriodTime() {
    if (!Synchronizer::IsLocked()) dataOptions.Refresh();
    return dataOptions.GetPeriodTime();
}

int RegisteredProjects::GetLastUsedDays() {
    if (!Synchronizer::IsLocked()) dataOptions.Refresh();
    return dataOptions.GetLastUsedDays();
}

int RegisteredProjects::GetLastRunTime() {
    if (!Synchronizer::IsLocked()) dataOptions.Refresh();
    return dataOptions.GetLastRunTime();
}

void RegisteredProjects::SetEnableAutoClean(bool enable) {
    Synchronizer sync;
    dataOptions.SetEnableAutoClean(enable);
}

void RegisteredProjects::SetPeriodTime(int periodTime) {
    Synchronizer sync;
    dataOptions.SetPeriodTime(periodTime);
}

void RegisteredProjects::SetLastUsedDays(int days) {
    Synchronizer sync;
    dataOptions.SetLastUsedDays(days);
}

void RegisteredProjects::SetLastRunTime(int time) {
    Synchronizer sync;
    dataOptions.SetLastRunTime(time);
}

IO::Location RegisteredProjects::GetKRDataFolder() {
    IO::Location folder;
    dataOptions.GetDataFolder(&folder, !Synchronizer::IsLocked());
    return folder;
}

void RegisteredProjects::SetKRDataFolder(const IO::Location& folder, bool reset) {
    if (reset) Reset();
    Synchronizer sync;
    dataOptions.SetDataFolder(folder);
}

IO::Location RegisteredProjects::GetMainProjectCacheFolderLocation() {
    IO::Location folder;
    dataOptions.GetMainProjectCacheFolder(&folder, !Synchronizer::IsLocked());
    return folder;
}

IO::Location RegisteredProjects::GetMainLibCacheFolderLocation() {
    IO::Location folder;
    dataOptions.GetMainLibCacheFolder(&folder, !Synchronizer::IsLocked());
    return folder;
}

}  // namespace KRC
