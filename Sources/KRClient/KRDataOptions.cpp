#include "KRClient/Internal/KRDataOptions.h"

#include "IO/File.h"
#include "KRCB/Paths.h"
#include "KRClient/Internal/InfoXMLsChannel.h"
#include "KRClient/KRClientExceptions.h"
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
    if (optionsFileTime != 0) {
        int time = 0;
        std::uint64_t stamp = 0;
        if (!GetOptionsFileTime(&time, &stamp)) {
            // There but unjudgeable: leave memory as it is.
            if (HasContent()) return;
            IO::Location parent = optionsFile;
            IO::Name name;
            parent.MoveLastLocalName(&name);
            IO::fileSystem.CreateFolderTree(parent);
            IO::File created(optionsFile, IO::kNotFoundCreate);
            Write();
            return;
        }
        // Inequality, not "newer": a file put back from elsewhere counts too.
        if (time == optionsFileTime && stamp == optionsFileStamp) return;
    }
    IO::Location before = dataFolder;
    bool read = false;
    for (int i = 0; i < kReadTries && !read; ++i) {
        try {
            read = Read();
        } catch (...) {
            read = false;
        }
    }
    if (!read) return;
    if (dataFolder != before) SendDataFolderChanged();
}

bool KRDataOptions::Read() {
    bool olderForm = false;
    if (!Guarded([&] { ReadFile(&olderForm); })) return false;
    // The older form is upgraded at once; Write reports its own failure.
    if (olderForm) Write();
    return true;
}

void KRDataOptions::ReadFile(bool* olderForm) {
    {
        InfoXMLsIChannel holder(optionsFile, kRootName);
        ZR::XMLIChannel* in = holder.Open();
        if (!in) throw FileOpeningError(optionsFile);
        auto check = [&](int status) { Check<ErrorReadingFile>(status, optionsFile); };

        std::uint16_t version = 0;
        check(in->Read("DataVersion", &version));  // read and not looked at
        ZR::UniString next;
        in->GetNextElementName(&next);
        ZR::UniString text;
        if (next == "LocalDataFolderPath") {
            check(in->Read("LocalDataFolderPath", &text));
            dataFolder.Set(text);
        } else {
            check(in->Read("LocalDataFolder", &text));
            dataFolder.SetObsolete(text);
            *olderForm = true;
        }
        in->EnterElement("CleanSchedule");
        check(in->Read("Enable", &enableAutoClean));
        check(in->Read("PeriodTime", &periodTime));
        check(in->Read("LastUsedDays", &lastUsedDays));
        check(in->Read("LastRunTime", &lastRunTime));
        holder.Close();
    }
    GetOptionsFileTime(&optionsFileTime, &optionsFileStamp);
    dirty = false;
}

bool KRDataOptions::Write() {
    if (optionsFile.IsEmpty()) return false;
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
}

bool KRDataOptions::GetOptionsFileTime(int* time) {
    std::uint64_t stamp = 0;
    return GetOptionsFileTime(time, &stamp);
}

bool KRDataOptions::GetOptionsFileTime(int* time, std::uint64_t* stamp) {
    *time = 0;
    *stamp = 0;
    IO::File file(optionsFile, IO::kNotFoundCreate);
    if (file.GetStatus() != IO::kOk) return false;
    std::int32_t modified = 0;
    if (file.GetModificationTime(&modified) != IO::kOk) return false;
    *time = modified;
    file.GetChangeStamp(stamp);
    return true;
}

bool KRDataOptions::HasContent() {
    IO::File file(optionsFile, IO::kNotFoundCreate);
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
