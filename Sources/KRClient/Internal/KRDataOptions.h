#pragma once
// The per-user settings of the local project store, kept in "KRDataOptions.xml":
// where the local data folder is, the names of the project and library cache
// folders in it, and the host's cache clean schedule (data only; nothing here
// cleans). Internal: the host reaches it through RegisteredProjects.
//
// No lock within the process; between processes the registry's lock file
// guards the setters. Several processes share the file, so memory follows it
// by its modification time and change stamp.

#include <cstdint>

#include "IO/Location.h"
#include "KRClient/KRDataOptionsObserver.h"
#include "ZR/EventSource.h"
#include "ZR/UniString.h"

namespace KRC {

class KRDataOptions : public ZR::EventSource {
public:
    static constexpr const char* kFileName = "KRDataOptions.xml";
    static constexpr const char* kRootName = "KRDataOptions";
    static constexpr std::int32_t kDefaultPeriodTime = 30;
    static constexpr std::int32_t kDefaultLastUsedDays = 30;

    KRDataOptions();

    void Attach(KRDataOptionsObserver& observer) { ZR::EventSource::Attach(observer); }
    void Detach(KRDataOptionsObserver& observer) { ZR::EventSource::Detach(observer); }

    // Called by RegisteredProjects::Init in this order.
    void SetOptionsFolder(const IO::Location& folder);
    void SetProjectCacheFolderName(const ZR::UniString& name);
    void SetLibCacheFolderName(const ZR::UniString& name);

    void GetDataFolder(IO::Location* folder, bool refresh);
    void GetMainProjectCacheFolder(IO::Location* folder, bool refresh);
    void GetMainLibCacheFolder(IO::Location* folder, bool refresh);
    // Writes and tells the observers if the folder differs.
    void SetDataFolder(const IO::Location& folder);

    // Plain field access; the caller decides about Refresh. Setters only mark
    // the options dirty: the registry's lock release writes them.
    bool GetEnableAutoClean() const { return enableAutoClean; }
    std::int32_t GetPeriodTime() const { return periodTime; }
    std::int32_t GetLastUsedDays() const { return lastUsedDays; }
    std::int32_t GetLastRunTime() const { return lastRunTime; }
    void SetEnableAutoClean(bool value);
    void SetPeriodTime(std::int32_t value);
    void SetLastUsedDays(std::int32_t value);
    void SetLastRunTime(std::int32_t value);
    bool IsDirty() const { return dirty; }
    // Something waits to be written at the release of the lock: a changed
    // value, or the upgrade of a file read in the older form.
    bool NeedsWrite() const { return dirty || upgradePending; }

    const IO::Location& GetOptionsFile() const { return optionsFile; }
    std::int32_t GetOptionsFileTimeField() const { return optionsFileTime; }

    // Re-reads the file if it changed since it was last read or written here.
    // A file that opens but can't be read is damaged: reported once, not
    // tried again until it changes, and memory keeps what it had.
    void Refresh();
    // Both report file failures as events and answer false. Read takes all
    // values or none. Write refuses to replace a damaged file that is still
    // there: what it holds may be the only copy of someone's settings.
    bool Read();
    bool Write();

    // *time is 0 unless both the file and its time could be had. A missing
    // file is not made here: an empty file would read as a damaged one.
    bool GetOptionsFileTime(int* time);
    bool HasContent();
    void SendDataFolderChanged();

    // What one options file holds, read as the library reads it.
    struct Values {
        IO::Location dataFolder;
        bool enableAutoClean = true;
        std::int32_t periodTime = 0;
        std::int32_t lastUsedDays = 0;
        std::int32_t lastRunTime = 0;
        bool olderForm = false;
    };
    // Reads file without touching this object, the events or the file (a
    // damaged file stays as it is). Throws FileOpeningError or ErrorReadingFile.
    static void ReadFileAt(const IO::Location& file, Values* values);

    // For tests only: back to the state at load, with no file and no observers
    // touched. The load time stays the default of LastRunTime.
    void ResetForTesting();

private:
    enum class ReadResult { Done, OpeningFailed, ReadingFailed };

    bool GetOptionsFileTime(int* time, std::uint64_t* stamp);
    ReadResult ReadReporting();
    void WriteFile();
    void SetDefaults();
    bool DamagedFileStillThere();

    IO::Location optionsFile;
    IO::Location dataFolder;
    std::int32_t optionsFileTime = 0;
    bool enableAutoClean = true;
    std::int32_t periodTime = kDefaultPeriodTime;
    std::int32_t lastUsedDays = kDefaultLastUsedDays;
    std::int32_t lastRunTime = 0;
    bool dirty = false;
    ZR::UniString libCacheFolderName;
    ZR::UniString projectCacheFolderName;
    // optionsFileTime has a resolution of seconds; the stamp tells apart two
    // writes by different processes within one second.
    std::uint64_t optionsFileStamp = 0;
    // The last read found the file damaged; its time and stamp then.
    bool damaged = false;
    std::int32_t damagedTime = 0;
    std::uint64_t damagedStamp = 0;
    // The file was read in the older form; it is upgraded under the lock only,
    // so that a reading process never replaces what a lock holder writes.
    bool upgradePending = false;
};

extern KRDataOptions dataOptions;

}  // namespace KRC
