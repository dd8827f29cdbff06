#include "IO/Internal/Posix.h"

#include <dirent.h>

#include <cerrno>
#include <vector>

#include "IO/Errors.h"

namespace IO::Posix {

int Probe(const Location& location, bool wantFolder, std::string* path) {
    if (!LocalPath(location, path)) return kErrBadLocation;
    struct stat st;
    if (Sys::Stat(path->c_str(), &st) != 0)
        return errno == ENOENT ? kErrNotFound : StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode) == wantFolder) return kOk;
    return wantFolder ? kErrNotAFolder : kErrIsAFolder;
}

int ListNames(const std::string& path, std::vector<std::string>* names) {
    std::vector<FolderEntry> entries;
    if (Sys::ListFolder(path.c_str(), &entries) != 0) return StatusFromErrno(errno);
    for (FolderEntry& entry : entries) names->push_back(std::move(entry.name));
    return kOk;
}

namespace {

// A holder can replace the file between our open and our check; a few
// rounds are enough for anything but a deliberate race.
constexpr int kDeleteAttempts = 8;

int DeleteRegularFile(const std::string& path) {
    for (int attempt = 0; attempt < kDeleteAttempts; ++attempt) {
        short lockType = F_WRLCK;
        int fd = Sys::Open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0 && errno == EACCES) {
            // A read-only file: a read lock still collides with any holder's write lock.
            lockType = F_RDLCK;
            fd = Sys::Open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        }
        if (fd < 0) {
            int error = errno;
            if (error == ENOENT) return kErrNotFound;
            // Unreadable to us means unopened by us, and removal only needs the folder.
            if (error == EACCES || error == ELOOP)
                return Sys::Unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
            return StatusFromErrno(error);
        }
        int status = TryLock(fd, lockType);
        if (status != kOk) {
            CloseFd(fd);
            return status;
        }
        if (!SameFile(fd, path, false)) {
            CloseFd(fd);
            struct stat st;
            if (Sys::Lstat(path.c_str(), &st) != 0 && errno == ENOENT) return kErrNotFound;
            continue;
        }
        // Unlink while the lock is ours, so a holder opening meanwhile is refused.
        status = Sys::Unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
        CloseFd(fd);
        return status;
    }
    return kErrInUse;
}

int DeleteTree(const std::string& path) {
    std::vector<std::string> names;
    if (int status = Posix::ListNames(path, &names); status != kOk) return status;
    int first = kOk;
    for (const std::string& name : names) {
        int status = DeleteEntry(path + "/" + name);
        if (status != kOk && status != kErrNotFound && first == kOk) first = status;
    }
    if (first != kOk) return first;
    return Sys::Rmdir(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
}

}  // namespace

bool LocalPath(const Location& location, std::string* path) {
    if (!location.IsLocal()) return false;
    *path = location.ToPath().Std();
    return true;
}

int CheckEntryName(const Name& name) {
    const std::string& text = name.GetUniString().Std();
    if (text.empty()) return kErrNoName;
    if (text == "." || text == ".." || text.find('/') != std::string::npos) return kErrBadLocation;
    return kOk;
}

int TryLock(int fd, short type) {
    struct flock lock = {};
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;  // the whole file, however it grows
    lock.l_pid = 0;  // required for open-file-description locks
    if (Sys::Lock(fd, F_OFD_SETLK, &lock) == 0) return kOk;
    if (errno == EAGAIN || errno == EACCES) return kErrInUse;
    return StatusFromErrno(errno);
}

bool SameFile(int fd, const std::string& path, bool followLink) {
    struct stat atFd, named;
    if (Sys::Fstat(fd, &atFd) != 0) return false;
    if ((followLink ? Sys::Stat(path.c_str(), &named) : Sys::Lstat(path.c_str(), &named)) != 0)
        return false;
    return atFd.st_dev == named.st_dev && atFd.st_ino == named.st_ino;
}

int ReadAll(int fd, std::string* data, std::size_t maxBytes) {
    data->clear();
    char buffer[65536];
    while (true) {
        ssize_t n = Sys::Read(fd, buffer, sizeof buffer);
        if (n < 0) return StatusFromErrno(errno);
        if (n == 0) return kOk;
        if (static_cast<std::size_t>(n) > maxBytes - data->size()) {
            data->clear();
            return kErrTooLarge;
        }
        data->append(buffer, static_cast<std::size_t>(n));
    }
}

void CloseFd(int fd) {
    Sys::Close(fd);
}

int OpenOrCreate(const std::string& path, int flags, mode_t mode, int* fd) {
    flags &= ~(O_CREAT | O_EXCL);
    // The file may come and go between the two opens; a few rounds settle it.
    for (int attempt = 0; attempt < kDeleteAttempts; ++attempt) {
        *fd = Sys::Open(path.c_str(), flags | O_CLOEXEC);
        if (*fd >= 0) return kOk;
        if (errno != ENOENT) return StatusFromErrno(errno);
        *fd = Sys::Open(path.c_str(), flags | O_CREAT | O_EXCL | O_CLOEXEC, mode);
        if (*fd < 0) {
            if (errno == EEXIST) continue;
            return StatusFromErrno(errno);
        }
        if (Sys::Fchmod(*fd, mode) != 0) {
            int status = StatusFromErrno(errno);
            Sys::Unlink(path.c_str());
            CloseFd(*fd);
            *fd = -1;
            return status;
        }
        return kOk;
    }
    return kErrInUse;
}

int MakeFolder(const std::string& path, mode_t mode) {
    if (Sys::Mkdir(path.c_str(), mode) != 0) return -1;
    // The umask may have taken bits away; the owner's must be there.
    if (Sys::Chmod(path.c_str(), mode) != 0) {
        int error = errno;
        Sys::Rmdir(path.c_str());
        errno = error;
        return -1;
    }
    return 0;
}

int DeleteEntry(const std::string& path) {
    struct stat st;
    if (Sys::Lstat(path.c_str(), &st) != 0) return StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return DeleteTree(path);
    if (S_ISREG(st.st_mode)) return DeleteRegularFile(path);
    return Sys::Unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
}

int DeleteFileEntry(const std::string& path) {
    struct stat st;
    if (Sys::Lstat(path.c_str(), &st) != 0) return StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return kErrIsAFolder;
    if (S_ISREG(st.st_mode)) return DeleteRegularFile(path);
    return Sys::Unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
}

}  // namespace IO::Posix
