// Stored files: a temporary file beside the target, written, flushed and
// renamed over it. The temporary file is named after its target and held by
// an open-file-description lock while it is written, so that the next writer
// of the same file can tell what a dead writer left (nobody holds it) from
// what a living one is still writing (held).

#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/Posix.h"

namespace IO {
namespace {

constexpr std::size_t kMaxNameInTemp = 200;  // so that the suffix never overflows a name
constexpr std::string_view kTempTag = ".tmp-";
constexpr std::size_t kSuffixLength = 6;
constexpr int kTempAttempts = 16;
constexpr char kSuffixCharacters[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";

// ".NAME.tmp-": every temporary file of NAME begins so.
std::string TempPrefix(const Name& name) {
    std::string prefix(".");
    prefix += name.ToString().Std().substr(0, kMaxNameInTemp);
    prefix += kTempTag;
    return prefix;
}

bool IsTempOf(const std::string& entry, const std::string& prefix) {
    if (entry.size() != prefix.size() + kSuffixLength || !entry.starts_with(prefix)) return false;
    for (std::size_t i = prefix.size(); i < entry.size(); ++i) {
        char c = entry[i];
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')))
            return false;
    }
    return true;
}

}  // namespace

bool FileSystem::IsTemporaryFileOf(const Name& entry, const Name& target) {
    return IsTempOf(entry.ToString().Std(), TempPrefix(target));
}

namespace {

// Unique enough: O_EXCL settles any collision, and nothing depends on the
// name being hard to guess.
std::string Suffix() {
    static std::atomic<std::uint64_t> counter{0};
    std::uint64_t x =
        counter.fetch_add(1, std::memory_order_relaxed) ^
        (static_cast<std::uint64_t>(Sys::GetPid()) << 40) ^
        static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
    // splitmix64 finaliser
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    x ^= x >> 31;
    std::string suffix;
    for (std::size_t i = 0; i < kSuffixLength; ++i) {
        suffix += kSuffixCharacters[x % (sizeof kSuffixCharacters - 1)];
        x /= sizeof kSuffixCharacters - 1;
    }
    return suffix;
}

// Makes and holds a new temporary file; *fd and *path get it.
int CreateTemp(const std::string& folder, const std::string& prefix, mode_t mode, int* fd,
               std::string* path) {
    for (int attempt = 0; attempt < kTempAttempts; ++attempt) {
        *path = folder + "/" + prefix + Suffix();
        *fd = Sys::Open(path->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode);
        if (*fd < 0) {
            if (errno == EEXIST) continue;
            return StatusFromErrno(errno);
        }
        // A cleaner that found the new file before our lock holds it now, or
        // has removed it already: leave it to the cleaner and take another.
        int status = Posix::TryLock(*fd, F_WRLCK);
        if (status == kErrInUse || (status == kOk && !Posix::SameFile(*fd, *path, false))) {
            Posix::CloseFd(*fd);
            continue;
        }
        // Where no lock can be taken at all (some network file systems) no
        // cleaner can take one either, so the file is safe as it is.
        if (Sys::Fchmod(*fd, mode) != 0) {
            status = StatusFromErrno(errno);
            Sys::Unlink(path->c_str());
            Posix::CloseFd(*fd);
            return status;
        }
        return kOk;
    }
    return kErrInUse;
}

// Makes a rename in the folder durable.
void SyncFolder(const std::string& folder) {
    int fd = Sys::Open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    Sys::Fsync(fd);
    Posix::CloseFd(fd);
}

// Removes the temporary files of one target that nobody holds.
void RemoveLeftovers(const std::string& folder, const std::string& prefix) {
    std::vector<std::string> names;
    if (Posix::ListNames(folder, &names) != kOk) return;
    for (const std::string& name : names) {
        if (!IsTempOf(name, prefix)) continue;
        std::string path = folder + "/" + name;
        struct stat st;
        // A folder or link of that name is not ours to remove.
        if (Sys::Lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        Posix::DeleteFileEntry(path);  // a held one answers kErrInUse and stays
    }
}

}  // namespace

AtomicFileWriter::AtomicFileWriter(const Location& location, unsigned int mode) {
    Name name;
    if (!Posix::LocalPath(location, &mPath) || !location.GetLastLocalName(&name)) {
        mStatus = kErrBadLocation;
        return;
    }
    Location parent = location.GetParent();
    mFolder = parent.IsEmpty() ? std::string(".") : parent.ToPath().Std();

    struct stat st;
    if (Sys::Stat(mPath.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) mStatus = kErrIsAFolder;
    } else if (errno != ENOENT) {
        mStatus = StatusFromErrno(errno);
    }
    if (mStatus != kOk) return;
    mPrefix = TempPrefix(name);
    // What dead writers left goes first, so that a run of writers killed
    // before they finished leaves one temporary file, not one each.
    RemoveLeftovers(mFolder, mPrefix);
    mStatus = CreateTemp(mFolder, mPrefix, static_cast<mode_t>(mode), &mFd, &mTemp);
}

AtomicFileWriter::~AtomicFileWriter() {
    if (mFd < 0) return;
    // Still held: no cleaner can have taken it meanwhile.
    Sys::Unlink(mTemp.c_str());
    Posix::CloseFd(mFd);
}

int AtomicFileWriter::Write(const void* data, std::size_t length) {
    if (mStatus != kOk) return mStatus;
    if (mFd < 0) return mStatus = kErrNotOpen;
    if (Sys::WriteAll(mFd, data, length) != 0) mStatus = StatusFromErrno(errno);
    return mStatus;
}

int AtomicFileWriter::Commit() {
    if (mStatus != kOk) return mStatus;
    if (mFd < 0) return mStatus = kErrNotOpen;
    if (Sys::Fsync(mFd) != 0 || Sys::Rename(mTemp.c_str(), mPath.c_str()) != 0) {
        mStatus = StatusFromErrno(errno);
        return mStatus;  // the destructor removes the temporary file
    }
    // The lock goes with the descriptor; after the rename it was on the new file.
    Posix::CloseFd(mFd);
    mFd = -1;
    SyncFolder(mFolder);
    RemoveLeftovers(mFolder, mPrefix);
    return kOk;
}

int FileSystem::WriteFileAtomically(const Location& location, const std::string& data,
                                    unsigned int mode) const {
    AtomicFileWriter writer(location, mode);
    if (int status = writer.Write(data.data(), data.size())) return status;
    return writer.Commit();
}

}  // namespace IO
