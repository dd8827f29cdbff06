#include "IO/Internal/Posix.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "IO/Errors.h"

namespace IO::Posix {

int Probe(const Location& location, bool wantFolder, std::string* path) {
    if (!LocalPath(location, path)) return kErrBadLocation;
    struct stat st;
    if (stat(path->c_str(), &st) != 0)
        return errno == ENOENT ? kErrNotFound : StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode) == wantFolder) return kOk;
    return wantFolder ? kErrNotAFolder : kErrIsAFolder;
}

int ListNames(const std::string& path, std::vector<std::string>* names) {
    DIR* dir = opendir(path.c_str());
    if (!dir) return StatusFromErrno(errno);
    while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") names->push_back(std::move(name));
    }
    closedir(dir);
    return kOk;
}

namespace {

// A holder can replace the file between our open and our check; a few
// rounds are enough for anything but a deliberate race.
constexpr int kDeleteAttempts = 8;

int DeleteRegularFile(const std::string& path) {
    for (int attempt = 0; attempt < kDeleteAttempts; ++attempt) {
        short lockType = F_WRLCK;
        int fd = open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd < 0 && errno == EACCES) {
            // A read-only file: a read lock still collides with any holder's write lock.
            lockType = F_RDLCK;
            fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        }
        if (fd < 0) {
            int error = errno;
            if (error == ENOENT) return kErrNotFound;
            // Unreadable to us means unopened by us, and removal only needs the folder.
            if (error == EACCES || error == ELOOP)
                return unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
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
            if (lstat(path.c_str(), &st) != 0 && errno == ENOENT) return kErrNotFound;
            continue;
        }
        // Unlink while the lock is ours, so a holder opening meanwhile is refused.
        status = unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
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
    return rmdir(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
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
    if (fcntl(fd, F_OFD_SETLK, &lock) == 0) return kOk;
    if (errno == EAGAIN || errno == EACCES) return kErrInUse;
    return StatusFromErrno(errno);
}

bool SameFile(int fd, const std::string& path, bool followLink) {
    struct stat atFd, named;
    if (fstat(fd, &atFd) != 0) return false;
    if ((followLink ? stat(path.c_str(), &named) : lstat(path.c_str(), &named)) != 0) return false;
    return atFd.st_dev == named.st_dev && atFd.st_ino == named.st_ino;
}

int ReadAll(int fd, std::string* data) {
    data->clear();
    char buffer[65536];
    while (true) {
        ssize_t n = read(fd, buffer, sizeof buffer);
        if (n < 0) {
            if (errno == EINTR) continue;
            return StatusFromErrno(errno);
        }
        if (n == 0) return kOk;
        data->append(buffer, static_cast<std::size_t>(n));
    }
}

int WriteAll(int fd, const void* data, std::size_t length) {
    const char* p = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = write(fd, p, length);
        if (n < 0) {
            if (errno == EINTR) continue;
            return StatusFromErrno(errno);
        }
        p += n;
        length -= static_cast<std::size_t>(n);
    }
    return kOk;
}

void CloseFd(int fd) {
    // Linux releases the descriptor even when close reports EINTR: never retry.
    close(fd);
}

int DeleteEntry(const std::string& path) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return StatusFromErrno(errno);
    if (S_ISDIR(st.st_mode)) return DeleteTree(path);
    if (S_ISREG(st.st_mode)) return DeleteRegularFile(path);
    return unlink(path.c_str()) == 0 ? kOk : StatusFromErrno(errno);
}

}  // namespace IO::Posix
