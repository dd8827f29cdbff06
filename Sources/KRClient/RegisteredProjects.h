#pragma once
/// @file
/// The process-wide registry of the cached projects of the local data folder.
/// There is no index file: the registry is what the folders on disc say, read
/// into memory and kept in step by the files' times. Several processes of one
/// user share the folder and take turns through the lock file of Synchronizer.
///
/// No lock within the process: one thread at a time uses the registry.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "IO/File.h"
#include "IO/Location.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/KRDataOptionsObserver.h"
#include "ZR/Containers.h"
#include "ZR/Thread.h"
#include "ZR/UniString.h"

namespace KRC {

/// What an iterator hands out: a non-owning view of one record, possibly null.
/// A null record answers empty text, 0, false or an empty location.
class KRCLIENT_EXPORT RegisteredProject {
public:
    RegisteredProject() = default;
    explicit RegisteredProject(const CachedProjectInfo* record) : info(record) {}

    ZR::UniString GetServerUrl() const;
    ZR::UniString GetUserName() const;
    ZR::UniString GetProjectPath() const;
    ZR::UniString GetModelServerPath() const;
    IO::Location GetCacheDataFolderLocation() const;
    /// Carries the refresh token, so it opens the login data store.
    IO::Location GetKerrowLocation() const;
    int GetLastOpenedTime() const;
    int GetTravelPackageCreationTime() const;
    bool IsTravelPackageCreated() const;
    bool ExtractedFromTravelPackage() const;
    int GetLocalDataVersion() const;
    const CachedProjectInfo* GetCachedProjectInfo() const { return info; }

private:
    const CachedProjectInfo* info = nullptr;
};

class KRCLIENT_EXPORT RegisteredProjects : public KRDataOptionsObserver,
                                           public CachedProjectInfoObserver {
public:
    /// One entry of the registry; owns its record, and a copy copies it.
    struct CacheInfoRecord {
        CacheInfoRecord() = default;
        explicit CacheInfoRecord(CachedProjectInfo* owned) : info(owned) { UpdateKeys(); }
        CacheInfoRecord(const CacheInfoRecord& other);
        CacheInfoRecord& operator=(const CacheInfoRecord& other);
        CacheInfoRecord(CacheInfoRecord&&) noexcept = default;
        CacheInfoRecord& operator=(CacheInfoRecord&&) noexcept = default;

        /// Takes the hashes of the info's keys again; due after anything
        /// that may have changed them.
        void UpdateKeys();

        bool notSeen = false;
        std::unique_ptr<CachedProjectInfo> info;
        /// Hashes of the info's project path and login name, case-folded
        /// once here: a look-up sorts out the records of other keys without
        /// leaving the array, and compares texts only where these agree.
        std::size_t pathHash = 0;
        std::size_t userHash = 0;
    };

    /// Scoped guard of the lock file "@DataOptions.Lock" in the local data
    /// folder. The first living guard of the process takes the file, the last
    /// one lets it go; guards are counted by object, so a nested guard on the
    /// same thread neither waits nor takes the file again. Taking the lock is
    /// best effort: a guard always comes into being, with or without it.
    class Synchronizer {
    public:
        /// The lock file's name, in the local data folder.
        static constexpr const char* kLockFileName = "@DataOptions.Lock";

        Synchronizer();
        ~Synchronizer();
        Synchronizer(const Synchronizer&) = delete;
        Synchronizer& operator=(const Synchronizer&) = delete;

        /// This process holds the lock file.
        static bool IsLocked();

    private:
        friend class RegisteredProjects;
        static IO::Location GetLockFileLoc();
        static bool IsLockedByOthers();
        static void WaitForLock();
        static void RemoveLock();
        static void Reset();

        static IO::File* mLockFile;
        static ZR::Array<const Synchronizer*> mOwnLockCounter;
    };

    /// While a project is renamed on the server, look-ups find its cache under
    /// a second path too. Entries live while any TemporaryModifyGuard does.
    class TemporaryModification {
    public:
        static TemporaryModification& GetInstance();

        void Enter();
        void Leave();
        /// Dropped unless a guard is in force.
        void AddCacheRenameModification(const ZR::UniString& server, const ZR::UniString& user,
                                        const ZR::UniString& path,
                                        const ZR::UniString& replacement);
        /// The first entry for server, user and path gives replacement; false
        /// and replacement untouched if there is none. Free while no guard is
        /// in force: the login data store is opened only with entries possible.
        bool GetCacheRenameModification(const ZR::UniString& server, const ZR::UniString& user,
                                        const ZR::UniString& path, ZR::UniString& replacement);

    private:
        struct CacheRenameModification {
            ZR::UniString server;
            ZR::UniString user;
            ZR::UniString path;
            ZR::UniString replacement;
        };

        TemporaryModification() = default;
        TemporaryModification(const TemporaryModification&) = delete;
        TemporaryModification& operator=(const TemporaryModification&) = delete;

        ZR::Lock lock;
        int counter = 0;
        ZR::PagedArray<CacheRenameModification, 8> modifications;
    };

    class TemporaryModifyGuard {
    public:
        TemporaryModifyGuard() { TemporaryModification::GetInstance().Enter(); }
        ~TemporaryModifyGuard() { TemporaryModification::GetInstance().Leave(); }
        TemporaryModifyGuard(const TemporaryModifyGuard&) = delete;
        TemporaryModifyGuard& operator=(const TemporaryModifyGuard&) = delete;
    };

    /// Common part of the two iterators. Over the registry, the projects are
    /// valid until the registry changes; over searched folders, as long as
    /// the iterator lives.
    class ProjectIteratorBase {
    public:
        bool operator==(std::nullptr_t) const { return position >= projects.GetSize(); }
        bool operator!=(std::nullptr_t) const { return position < projects.GetSize(); }

    protected:
        /// Empty texts don't filter; with folders, those are searched instead
        /// of the registry, which is then left alone.
        ProjectIteratorBase(const ZR::UniString& loginName, const ZR::UniString& serverUrl,
                            const ZR::Array<IO::Location>* folders);
        ProjectIteratorBase(const ProjectIteratorBase& other);
        ProjectIteratorBase& operator=(const ProjectIteratorBase& other);
        ProjectIteratorBase(ProjectIteratorBase&&) noexcept = default;
        ProjectIteratorBase& operator=(ProjectIteratorBase&&) noexcept = default;
        ~ProjectIteratorBase() = default;

        RegisteredProject& Current();
        void Advance() {
            if (position < projects.GetSize()) ++position;
        }

    private:
        void FillProjects(const ZR::UniString& loginName, const ZR::UniString& serverUrl,
                          const ZR::Array<IO::Location>* folders);
        /// Points the projects at this iterator's own records after a copy.
        void Repoint(const ProjectIteratorBase& other);

        ZR::Array<CacheInfoRecord> records;
        ZR::Array<RegisteredProject> projects;
        std::size_t position = 0;
        RegisteredProject none;  ///< what the end hands out
    };

    class ProjectIterator : public ProjectIteratorBase {
    public:
        ProjectIterator(const ZR::UniString& loginName = ZR::UniString(),
                        const ZR::UniString& serverUrl = ZR::UniString(),
                        const ZR::Array<IO::Location>* folders = nullptr)
            : ProjectIteratorBase(loginName, serverUrl, folders) {}

        RegisteredProject& operator*() { return Current(); }
        RegisteredProject* operator->() { return &Current(); }
        ProjectIterator& operator++() {
            Advance();
            return *this;
        }
        ProjectIterator operator++(int) {
            ProjectIterator before(*this);
            Advance();
            return before;
        }
    };

    class ProjectConstIterator : public ProjectIteratorBase {
    public:
        ProjectConstIterator(const ZR::UniString& loginName = ZR::UniString(),
                             const ZR::UniString& serverUrl = ZR::UniString(),
                             const ZR::Array<IO::Location>* folders = nullptr)
            : ProjectIteratorBase(loginName, serverUrl, folders) {}

        const RegisteredProject& operator*() { return Current(); }
        const RegisteredProject* operator->() { return &Current(); }
        ProjectConstIterator& operator++() {
            Advance();
            return *this;
        }
        ProjectConstIterator operator++(int) {
            ProjectConstIterator before(*this);
            Advance();
            return before;
        }
    };

    ~RegisteredProjects() override;

    /// Start: options folder and cache folder names, then the first reading.
    static void Init(const IO::Location& folder, const ZR::UniString& projectCacheName,
                     const ZR::UniString& libCacheName);

    /// Brings the registry up to date with the folders; a record of
    /// excludedFolder (one being deleted, say) goes even if the folder is intact.
    void RefreshData(bool force, const IO::Location* excludedFolder);
    /// Lets the lock go and empties the registry; the next look-up reads again.
    void Reset();
    std::size_t GetCacheDataFolderNum();
    /// From memory only; the folder stays, so the next refresh brings it back.
    void RemoveProject(const IO::Location& location);
    /// Into the registry; valid until the registry next changes.
    const CachedProjectInfo* GetCachedProjectInfo(const IO::Location& location);
    /// A heap record the caller owns: a copy of the registered one, or a new
    /// cache folder (created true). Null if anything failed.
    CachedProjectInfo* CreateCachedProjectInfo(const IO::Location& location, bool& created);

    /// One project by location. Getters answer 0, false, empty text or an
    /// empty location for an unknown project; setters then do nothing.
    IO::Location GetCacheDataFolder(const IO::Location& location);
    int GetLastOpenedTime(const IO::Location& location);
    int GetProjectBuildNum(const IO::Location& location);
    ZR::UniString GetProjectVersion(const IO::Location& location);
    int GetTravelPackageCreationTime(const IO::Location& location);
    unsigned int GetVisitCount(const IO::Location& location);
    bool IsEnabledTravelPackageWarningAtClose(const IO::Location& location);
    bool IsProjectDetached(const IO::Location& location);
    bool IsTravelPackageCreated(const IO::Location& location);
    bool ExtractedFromTravelPackage(const IO::Location& location);

    void ProjectOpened(const IO::Location& location);
    void ProjectDetached(const IO::Location& location);
    void ProjectReloaded(const IO::Location& location);
    void EnableTravelPackageWarningAtClose(const IO::Location& location, bool enable);
    void SetExtractedFromTravelPackage(const IO::Location& location, bool extracted);
    void SetProjectBuildNum(const IO::Location& location, int buildNum);
    void SetProjectVersion(const IO::Location& location, const ZR::UniString& version);
    void SetTravelPackageCreated(const IO::Location& location, bool created);
    void SetTravelPackageCreationTime(const IO::Location& location, int time);
    void SetVisitCount(const IO::Location& location, unsigned int count);

    /// Options. Getters follow the file unless this process holds the lock;
    /// setters change memory and the lock's release writes the file.
    bool GetEnableAutoClean();
    int GetPeriodTime();
    int GetLastUsedDays();
    int GetLastRunTime();
    void SetEnableAutoClean(bool enable);
    void SetPeriodTime(int periodTime);
    void SetLastUsedDays(int days);
    void SetLastRunTime(int time);
    IO::Location GetKRDataFolder();
    void SetKRDataFolder(const IO::Location& folder, bool reset);
    IO::Location GetMainProjectCacheFolderLocation();
    IO::Location GetMainLibCacheFolderLocation();

    /// For tests only: Reset, detach from the options and the record writes,
    /// and bring the options back to their state at load, so that the next
    /// Init starts as the first one of a process did.
    static void ResetForTesting();

    static RegisteredProjects mSingleton;

protected:
    void KRDataFolderChanged() override;
    void ContentWrittenToDisc(const CachedProjectInfo* written) override;

private:
    RegisteredProjects() = default;
    RegisteredProjects(const RegisteredProjects&) = delete;
    RegisteredProjects& operator=(const RegisteredProjects&) = delete;

    void RegisterCaches(const IO::Location* excludedFolder);
    void RefreshCaches(const IO::Location* excludedFolder);
    static void SearchCaches(const IO::Location& folder, ZR::Array<CacheInfoRecord>& records);

    bool GetCacheIndex(const IO::Location& location, std::size_t& index, bool refreshFound);
    CachedProjectInfo* GetCacheInfo(const IO::Location& location, bool refreshFound);
    static void GetIDs(const IO::Location& location, ZR::UniString& user, ZR::UniString& server,
                       ZR::UniString& path);

    template <typename R, typename F>
    R GetByLocation(const IO::Location& location, F&& get);
    template <typename F>
    void SetByLocation(const IO::Location& location, F&& set);

    static ZR::Array<CacheInfoRecord> mCacheInforegister;
    bool registryLoaded = false;
    /// A folder walk is under way; a write heard meanwhile must not start another.
    bool walking = false;
};

extern KRCLIENT_EXPORT RegisteredProjects& registeredProjects;

}  // namespace KRC
