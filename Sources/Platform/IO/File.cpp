#include "IO/File.h"

#include <cerrno>

#include "IO/Internal/Posix.h"
#include "ZR/Time.h"

namespace IO {
namespace {

int StatFile(const File& file, int fd, struct stat* st) {
    if (fd >= 0) return Sys::Fstat(fd, st) == 0 ? kOk : StatusFromErrno(errno);
    std::string path;
    if (!Posix::LocalPath(file.GetLocation(), &path)) return kErrBadLocation;
    return Sys::Stat(path.c_str(), st) == 0 ? kOk : StatusFromErrno(errno);
}

}  // namespace

File::File(const Location& location, int onNotFound) : mLocation(location) {
    std::string path;
    mStatus = Posix::Probe(mLocation, false, &path);
    if (mStatus != kErrNotFound || onNotFound != kNotFoundCreate) return;
    int fd = -1;
    mStatus = Posix::OpenOrCreate(path, O_WRONLY, kNewFileMode, &fd);
    if (mStatus == kOk) Posix::CloseFd(fd);
}

File::~File() {
    if (IsOpen()) Close();
}

int File::New(File** file, const Location& location, int onNotFound) {
    *file = nullptr;
    auto* made = new File(location, onNotFound);
    int status = made->GetStatus();
    if (status != kOk) {
        delete made;
        return status;
    }
    *file = made;
    return kOk;
}

int File::GetModificationTime(std::int32_t* time) const {
    struct stat st;
    int status = StatFile(*this, mFd, &st);
    if (status == kOk) *time = ZR::UnixToTI(st.st_mtim.tv_sec);
    return status;
}

int File::GetModificationStamp(std::int64_t* stamp) const {
    struct stat st;
    int status = StatFile(*this, mFd, &st);
    if (status == kOk)
        *stamp = static_cast<std::int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    return status;
}

int File::GetDataLength(std::uint64_t* length) const {
    struct stat st;
    int status = StatFile(*this, mFd, &st);
    if (status == kOk) *length = static_cast<std::uint64_t>(st.st_size);
    return status;
}

int File::Open(int openMode, int /*accessDenied*/) {
    if (IsOpen()) return kErrInUse;
    std::string path;
    if (!Posix::LocalPath(mLocation, &path)) return kErrBadLocation;
    int fd = -1;
    switch (openMode) {
        case kOpenRead:
        case kOpenHold:
            fd = Sys::Open(path.c_str(), (openMode == kOpenRead ? O_RDONLY : O_RDWR) | O_CLOEXEC);
            if (fd < 0) return StatusFromErrno(errno);
            break;
        case kOpenWrite:
            if (int status = Posix::OpenOrCreate(path, O_WRONLY | O_TRUNC, kNewFileMode, &fd);
                status != kOk)
                return status;
            break;
        default:
            return kErrBadLocation;
    }
    struct stat st;
    if (Sys::Fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        Posix::CloseFd(fd);
        return kErrIsAFolder;
    }
    if (openMode == kOpenHold) {
        int status = Posix::TryLock(fd, F_WRLCK);
        // A deleter may have unlinked the file between our open and our lock;
        // a lock on an orphaned inode would hold nothing.
        if (status == kOk && !Posix::SameFile(fd, path, true)) status = kErrInUse;
        if (status != kOk) {
            Posix::CloseFd(fd);
            return status;
        }
    }
    mFd = fd;
    return kOk;
}

int File::Close() {
    if (!IsOpen()) return kErrNotOpen;
    // Closing the only descriptor of the description releases its lock.
    int status = Sys::Close(mFd) == 0 || errno == EINTR ? kOk : StatusFromErrno(errno);
    mFd = -1;
    return status;
}

int File::Read(void* buffer, std::size_t length, std::size_t* got) {
    *got = 0;
    if (!IsOpen()) return kErrNotOpen;
    char* p = static_cast<char*>(buffer);
    while (*got < length) {
        ssize_t n = Sys::Read(mFd, p + *got, length - *got);
        if (n < 0) return StatusFromErrno(errno);
        if (n == 0) break;
        *got += static_cast<std::size_t>(n);
    }
    return kOk;
}

int File::Write(const void* data, std::size_t length) {
    if (!IsOpen()) return kErrNotOpen;
    return Sys::WriteAll(mFd, data, length) == 0 ? kOk : StatusFromErrno(errno);
}

}  // namespace IO
