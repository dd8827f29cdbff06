// The registry's start, its reading of the folders and the options that it
// passes through to the host.

#include "KRClient/RegisteredProjects.h"

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "KRClient/Internal/CacheInfoReader.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"

namespace KRC {

RegisteredProjects RegisteredProjects::mSingleton;
RegisteredProjects& registeredProjects = RegisteredProjects::mSingleton;
ZR::Array<RegisteredProjects::CacheInfoRecord> RegisteredProjects::mCacheInforegister;

namespace {

using Records = ZR::Array<RegisteredProjects::CacheInfoRecord>;

// Appends a record for every readable cache folder of the listing; folders
// without an info file, or with one that can't be read, are left out silently.
void AddRecords(const IO::Location& mainFolder, const std::vector<IO::Folder::Item>& items,
                Records& records) {
    CacheInfoReader reader(mainFolder, items);
    records.EnsureCapacity(records.GetSize() + reader.GetCount());
    for (std::size_t i = 0; i < reader.GetCount(); ++i) {
        try {
            if (std::unique_ptr<CachedProjectInfo> info = reader.Read(i))
                records.Emplace(info.release());
        } catch (const FileOpeningError&) {
            // Left out until it can be read; nothing is reported.
        } catch (const ErrorReadingFile&) {
        }
    }
}

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
    : notSeen(other.notSeen),
      info(other.info ? new CachedProjectInfo(*other.info) : nullptr),
      pathHash(other.pathHash),
      userHash(other.userHash) {}

RegisteredProjects::CacheInfoRecord& RegisteredProjects::CacheInfoRecord::operator=(
    const CacheInfoRecord& other) {
    if (this == &other) return *this;
    notSeen = other.notSeen;
    info.reset(other.info ? new CachedProjectInfo(*other.info) : nullptr);
    pathHash = other.pathHash;
    userHash = other.userHash;
    return *this;
}

void RegisteredProjects::CacheInfoRecord::UpdateKeys() {
    const std::hash<ZR::UniString> hash;
    pathHash = info ? hash(info->GetProjectPath().FoldCase()) : 0;
    userHash = info ? hash(info->GetLoginName().FoldCase()) : 0;
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
    if (folder.GetStatus() != IO::kOk) return;
    // One listing serves the emptiness test, the count and the walk.
    std::vector<IO::Folder::Item> items;
    if (folder.List(&items, 1) != IO::kOk) return;
    AddRecords(location, items, mCacheInforegister);
    RemoveUnseen(mCacheInforegister, excludedFolder);
}

void RegisteredProjects::RefreshCaches(const IO::Location* excludedFolder) {
    IO::Location location;
    dataOptions.GetMainProjectCacheFolder(&location, false);
    IO::Folder folder(location, IO::kNotFoundCreate);
    if (folder.GetStatus() != IO::kOk) return;
    std::vector<IO::Folder::Item> items;
    if (folder.List(&items, 1) != IO::kOk || items.empty()) {
        mCacheInforegister.Clear();
        return;
    }
    // The records by folder path, so that a walk over many folders stays
    // linear; emplace keeps the first, the one the walk must meet.
    std::unordered_map<std::string, std::size_t> byFolder;
    byFolder.reserve(mCacheInforegister.GetSize());
    for (std::size_t i = 0; i < mCacheInforegister.GetSize(); ++i) {
        CacheInfoRecord& record = mCacheInforegister[i];
        record.notSeen = true;
        if (record.info)
            byFolder.emplace(record.info->GetCacheFolderLocation().GetLocalPath().Std(), i);
    }
    CacheInfoReader reader(location, items);
    mCacheInforegister.EnsureCapacity(std::max(reader.GetCount(), mCacheInforegister.GetSize()));
    for (std::size_t i = 0; i < reader.GetCount(); ++i) {
        auto known = byFolder.find(std::string(reader.GetFolderPath(i)));
        if (known != byFolder.end()) {
            // A known folder costs one look at its file; a missing file
            // leaves the record unseen, and so it goes.
            CacheInfoRecord& record = mCacheInforegister[known->second];
            bool reread = false;
            if (record.info->RefreshIfPresent(&reread)) record.notSeen = false;
            if (reread) record.UpdateKeys();
            continue;
        }
        try {
            if (std::unique_ptr<CachedProjectInfo> info = reader.Read(i))
                mCacheInforegister.Emplace(info.release());
        } catch (...) {
            // A folder that can't be read now comes in at a later walk.
        }
    }
    RemoveUnseen(mCacheInforegister, excludedFolder);
}

void RegisteredProjects::SearchCaches(const IO::Location& location,
                                      ZR::Array<CacheInfoRecord>& records) {
    IO::Folder folder(location, IO::kNotFoundFail);
    std::vector<IO::Folder::Item> items;
    if (folder.GetStatus() != IO::kOk || folder.List(&items, 1) != IO::kOk) return;
    AddRecords(location, items, records);
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
            record.UpdateKeys();
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
