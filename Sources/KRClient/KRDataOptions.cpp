#include "KRClient/Internal/KRDataOptions.h"

#include "IO/File.h"
#include "KRCB/Paths.h"
#include "KRClient/Internal/InfoXMLsChannel.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/RegisteredProjects.h"
#include "ZR/Time.h"

namespace KRC {
namespace {

// The default of LastRunTime is the time the library was loaded.
const std::int32_t loadTime = TIGetTime();

constexpr int kReadTries = 3;

template <typename E>
void Check(int status, const IO::Location& location) {
    if (status != 0) throw E(location);
}

// Runs body; file exceptions become events, anything else is dropped.
template <typename F>
bool Guarded(F&& body) {
    try {
        return ReportFileFailures(body);
    } catch (...) {
        return false;
    }
}

}  // namespace

KRDataOptions dataOptions;

KRDataOptions::KRDataOptions() {
    SetDefaults();
}

void KRDataOptions::SetDefaults() {
    optionsFile.Clear();
    dataFolder.Clear();
    optionsFileTime = 0;
    optionsFileStamp = 0;
    enableAutoClean = true;
    periodTime = kDefaultPeriodTime;
    lastUsedDays = kDefaultLastUsedDays;
    lastRunTime = loadTime;
    dirty = false;
    damaged = false;
    damagedTime = 0;
    damagedStamp = 0;
    upgradePending = false;
    libCacheFolderName.Clear();
    projectCacheFolderName.Clear();
}

void KRDataOptions::ResetForTesting() {
    SetDefaults();
}

void KRDataOptions::SetOptionsFolder(const IO::Location& folder) {
    IO::fileSystem.CreateFolderTree(folder);
    IO::Location location = folder + IO::Name(kFileName);
    if (location == optionsFile) return;
    optionsFile = location;
    if (HasContent()) {
        optionsFileTime = 0;
        Refresh();
    } else {
        // A new or empty file: the options folder is the first data folder.
        dataFolder = folder;
        Write();
        SendDataFolderChanged();
    }
}

void KRDataOptions::SetProjectCacheFolderName(const ZR::UniString& name) {
    projectCacheFolderName = name;
    IO::Location folder;
    GetDataFolder(&folder, true);
    if (folder.IsEmpty()) return;
    // GetMainProjectCacheFolder appends the name unencoded, so the two agree
    // only for names the encoding leaves alone.
    ZR::UniString encoded;
    KRCB::FileNameEncode(name, encoded, nullptr);
    IO::fileSystem.CreateFolderTree(folder + IO::Name(encoded));
}

void KRDataOptions::SetLibCacheFolderName(const ZR::UniString& name) {
    libCacheFolderName = name;
    IO::Location folder;
    GetDataFolder(&folder, true);
    if (folder.IsEmpty()) return;
    IO::fileSystem.CreateFolderTree(folder + IO::Name(name));
}

void KRDataOptions::GetDataFolder(IO::Location* folder, bool refresh) {
    if (refresh) Refresh();
    *folder = dataFolder;
}

void KRDataOptions::GetMainProjectCacheFolder(IO::Location* folder, bool refresh) {
    GetDataFolder(folder, refresh);
    if (!folder->IsEmpty()) folder->AppendName(IO::Name(projectCacheFolderName));
}

void KRDataOptions::GetMainLibCacheFolder(IO::Location* folder, bool refresh) {
    GetDataFolder(folder, refresh);
    if (!folder->IsEmpty()) folder->AppendName(IO::Name(libCacheFolderName));
}

void KRDataOptions::SetDataFolder(const IO::Location& folder) {
    if (folder == dataFolder) return;
    dataFolder = folder;
    Write();
    SendDataFolderChanged();
}

void KRDataOptions::SetEnableAutoClean(bool value) {
    if (value == enableAutoClean) return;
    enableAutoClean = value;
    dirty = true;
}

void KRDataOptions::SetPeriodTime(std::int32_t value) {
    if (value == periodTime) return;
    periodTime = value;
    dirty = true;
}

void KRDataOptions::SetLastUsedDays(std::int32_t value) {
    if (value == lastUsedDays) return;
    lastUsedDays = value;
    dirty = true;
}

void KRDataOptions::SetLastRunTime(std::int32_t value) {
    if (value == lastRunTime) return;
    lastRunTime = value;
    dirty = true;
}

void KRDataOptions::Refresh() {
    // Before the registry's start there is no file to follow.
    if (optionsFile.IsEmpty()) return;
    int time = 0;
    std::uint64_t stamp = 0;
    const bool stamped = GetOptionsFileTime(&time, &stamp);
    if (optionsFileTime != 0) {
        if (!stamped) {
            // There but unjudgeable: leave memory as it is.
            if (HasContent()) return;
            // Gone: put back what memory holds, which was read or written here.
            IO::Location parent = optionsFile;
            IO::Name name;
            parent.MoveLastLocalName(&name);
            IO::fileSystem.CreateFolderTree(parent);
            Write();
            return;
        }
        // Inequality, not "newer": a file put back from elsewhere counts too.
        if (time == optionsFileTime && stamp == optionsFileStamp) return;
    }
    // The damage was reported when it was found; until the file changes a
    // read would only find it again.
    if (damaged && stamped && time == damagedTime && stamp == damagedStamp) return;
    IO::Location before = dataFolder;
    ReadResult result = ReadResult::OpeningFailed;
    // Only a file that can't be opened is worth another try.
    for (int i = 0; i < kReadTries && result == ReadResult::OpeningFailed; ++i)
        result = ReadReporting();
    if (result != ReadResult::Done) return;
    if (dataFolder != before) SendDataFolderChanged();
}

bool KRDataOptions::Read() {
    return ReadReporting() == ReadResult::Done;
}

KRDataOptions::ReadResult KRDataOptions::ReadReporting() {
    // The stamp is taken before the read, so that a write landing after it
    // is read at the next Refresh instead of hiding behind its own stamp.
    int time = 0;
    std::uint64_t stamp = 0;
    GetOptionsFileTime(&time, &stamp);
    Values values;
    try {
        ReadFileAt(optionsFile, &values);
    } catch (const FileOpeningError& e) {
        krcFileErrorEventSource.SendFileOperationFailed(FileOpeningFailed, e.GetFileLocation());
        return ReadResult::OpeningFailed;
    } catch (const ErrorReadingFile& e) {
        damaged = true;
        damagedTime = time;
        damagedStamp = stamp;
        krcFileErrorEventSource.SendFileOperationFailed(FileReadingFailed, e.GetFileLocation());
        return ReadResult::ReadingFailed;
    } catch (...) {
        return ReadResult::ReadingFailed;
    }
    dataFolder = values.dataFolder;
    enableAutoClean = values.enableAutoClean;
    periodTime = values.periodTime;
    lastUsedDays = values.lastUsedDays;
    lastRunTime = values.lastRunTime;
    optionsFileTime = time;
    optionsFileStamp = stamp;
    damaged = false;
    dirty = false;
    upgradePending = values.olderForm;
    // A reading process leaves the file as it found it; the upgrade is
    // written by the holder of the lock (here, or when it lets go).
    if (upgradePending && RegisteredProjects::Synchronizer::IsLocked()) Write();
    return ReadResult::Done;
}

void KRDataOptions::ReadFileAt(const IO::Location& optionsFile, Values* values) {
    InfoXMLsIChannel holder(optionsFile, kRootName);
    ZR::XMLIChannel* in = holder.Open();
    if (!in) {
        if (holder.IsDamaged()) throw ErrorReadingFile(optionsFile);
        throw FileOpeningError(optionsFile);
    }
    auto check = [&](int status) { Check<ErrorReadingFile>(status, optionsFile); };

    std::uint16_t version = 0;
    check(in->Read("DataVersion", &version));  // read and not looked at
    ZR::UniString next;
    in->GetNextElementName(&next);
    ZR::UniString text;
    if (next == "LocalDataFolderPath") {
        check(in->Read("LocalDataFolderPath", &text));
        // A text that is no local path is damage, not a folder to work in.
        if (!values->dataFolder.Set(text) || !values->dataFolder.IsLocal())
            throw ErrorReadingFile(optionsFile);
    } else {
        check(in->Read("LocalDataFolder", &text));
        if (!values->dataFolder.SetObsolete(text)) throw ErrorReadingFile(optionsFile);
        values->olderForm = true;
    }
    in->EnterElement("CleanSchedule");
    check(in->Read("Enable", &values->enableAutoClean));
    check(in->Read("PeriodTime", &values->periodTime));
    check(in->Read("LastUsedDays", &values->lastUsedDays));
    check(in->Read("LastRunTime", &values->lastRunTime));
}

bool KRDataOptions::DamagedFileStillThere() {
    if (!damaged) return false;
    int time = 0;
    std::uint64_t stamp = 0;
    return GetOptionsFileTime(&time, &stamp) && time == damagedTime && stamp == damagedStamp;
}

bool KRDataOptions::Write() {
    if (optionsFile.IsEmpty()) return false;
    if (DamagedFileStillThere()) {
        krcFileErrorEventSource.SendFileOperationFailed(FileWritingFailed, optionsFile);
        return false;
    }
    return Guarded([&] { WriteFile(); });
}

void KRDataOptions::WriteFile() {
    {
        InfoXMLsOChannel holder(optionsFile, kRootName);
        ZR::XMLOChannel* out = holder.Open();
        if (!out) throw FileOpeningError(optionsFile);
        auto check = [&](int status) { Check<ErrorWritingFile>(status, optionsFile); };

        check(out->StartDocument());
        check(out->Write("DataVersion", static_cast<std::uint16_t>(1)));
        check(out->Write("LocalDataFolderPath", dataFolder.ToPath()));
        check(out->StartElement("CleanSchedule"));
        check(out->Write("Enable", enableAutoClean ? "true" : "false", 0));
        check(out->Write("PeriodTime", periodTime));
        check(out->Write("LastUsedDays", lastUsedDays));
        check(out->Write("LastRunTime", lastRunTime));
        check(out->EndElement());
        check(out->EndDocument());
        holder.Close();
    }
    GetOptionsFileTime(&optionsFileTime, &optionsFileStamp);
    dirty = false;
    upgradePending = false;
    damaged = false;
}

bool KRDataOptions::GetOptionsFileTime(int* time) {
    std::uint64_t stamp = 0;
    return GetOptionsFileTime(time, &stamp);
}

bool KRDataOptions::GetOptionsFileTime(int* time, std::uint64_t* stamp) {
    *time = 0;
    *stamp = 0;
    IO::File file(optionsFile, IO::kNotFoundFail);
    if (file.GetStatus() != IO::kOk) return false;
    std::int32_t modified = 0;
    if (file.GetModificationTime(&modified) != IO::kOk) return false;
    *time = modified;
    file.GetChangeStamp(stamp);
    return true;
}

bool KRDataOptions::HasContent() {
    IO::File file(optionsFile, IO::kNotFoundFail);
    if (file.GetStatus() != IO::kOk) return false;
    std::uint64_t length = 0;
    return file.GetDataLength(&length) == IO::kOk && length != 0;
}

void KRDataOptions::SendDataFolderChanged() {
    ForEachObserver([](ZR::EventObserver* observer) {
        static_cast<KRDataOptionsObserver*>(observer)->KRDataFolderChanged();
    });
}

}  // namespace KRC
