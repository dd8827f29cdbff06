#include <dirent.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/Posix.h"

namespace IO {
namespace {

using Entry = FolderEntry;

int ReadEntries(const std::string& path, std::vector<Entry>* entries) {
    return Sys::ListFolder(path.c_str(), entries) == 0 ? kOk : StatusFromErrno(errno);
}

bool IsFolderEntry(const std::string& folder, const Entry& entry, bool followLink) {
    if (entry.type == DT_DIR) return true;
    if (entry.type != DT_UNKNOWN && !(followLink && entry.type == DT_LNK)) return false;
    struct stat st;
    std::string path = folder + "/" + entry.name;
    if ((followLink ? Sys::Stat(path.c_str(), &st) : Sys::Lstat(path.c_str(), &st)) != 0)
        return false;
    return S_ISDIR(st.st_mode);
}

std::string Child(const std::string& folder, const std::string& name) {
    return folder == "/" ? folder + name : folder + "/" + name;
}

}  // namespace

Folder::Folder(const Location& location, int onNotFound) : mLocation(location) {
    std::string path;
    mStatus = Posix::Probe(mLocation, true, &path);
    if (mStatus == kErrNotFound && onNotFound == kNotFoundCreate)
        mStatus = fileSystem.CreateFolderTree(mLocation);
}

int Folder::Contains(const Name& name, bool* contains) const {
    *contains = false;
    if (mStatus != kOk) return mStatus;
    if (int status = Posix::CheckEntryName(name); status != kOk) return status;
    struct stat st;
    if (Sys::Lstat(Child(mLocation.ToPath().Std(), name.ToString().Std()).c_str(), &st) == 0) {
        *contains = true;
        return kOk;
    }
    return errno == ENOENT ? kOk : StatusFromErrno(errno);
}

bool Folder::IsEmpty() const {
    std::vector<Entry> entries;
    if (mStatus != kOk || ReadEntries(mLocation.ToPath().Std(), &entries) != kOk) return true;
    return entries.empty();
}

std::size_t Folder::CountFolders() const {
    std::vector<Entry> entries;
    if (mStatus != kOk) return 0;
    const std::string path = mLocation.ToPath().Std();
    if (ReadEntries(path, &entries) != kOk) return 0;
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(),
                      [&](const Entry& e) { return IsFolderEntry(path, e, false); }));
}

int Folder::Enumerate(EnumCallback callback, int linkProcessing, int /*flags*/,
                      void* argument) const {
    std::vector<Item> items;
    if (int status = List(&items, linkProcessing); status != kOk) return status;
    for (const Item& item : items)
        if (!callback(*this, Name(ZR::UniString(item.name)), item.isFolder, argument)) break;
    return kOk;
}

int Folder::List(std::vector<Item>* items, int linkProcessing) const {
    items->clear();
    if (mStatus != kOk) return mStatus;
    const std::string path = mLocation.ToPath().Std();
    std::vector<Entry> entries;
    if (int status = ReadEntries(path, &entries); status != kOk) return status;
    std::sort(entries.begin(), entries.end(),
              [](const Entry& a, const Entry& b) { return a.name < b.name; });
    items->reserve(entries.size());
    for (Entry& entry : entries) {
        bool isFolder = IsFolderEntry(path, entry, linkProcessing == 1);
        items->push_back({std::move(entry.name), isFolder});
    }
    return kOk;
}

int Folder::Delete(const Name& name, int /*dataSafety*/, int /*accessDenied*/) const {
    if (mStatus != kOk) return mStatus;
    if (int status = Posix::CheckEntryName(name); status != kOk) return status;
    return Posix::DeleteEntry(Child(mLocation.ToPath().Std(), name.ToString().Std()));
}

int Folder::DeleteFile(const Name& name) const {
    if (mStatus != kOk) return mStatus;
    if (int status = Posix::CheckEntryName(name); status != kOk) return status;
    return Posix::DeleteFileEntry(Child(mLocation.ToPath().Std(), name.ToString().Std()));
}

int Folder::GenerateUnusedName(Name* name, const ZR::UniString& base,
                               const ZR::UniString& extension) const {
    if (mStatus != kOk) return mStatus;
    for (unsigned long n = 0;; ++n) {
        ZR::UniString candidate = base;
        if (n > 0) candidate += ZR::UniString("-" + std::to_string(n));
        candidate += extension;
        bool present = false;
        if (int status = Contains(Name(candidate), &present); status != kOk) return status;
        if (!present) {
            *name = Name(candidate);
            return kOk;
        }
    }
}

}  // namespace IO
