#include "IO/Internal/Env.h"

#include <dirent.h>
#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace IO {

int Env::Open(const char* path, int flags, mode_t mode) {
    return ::open(path, flags, mode);
}
ssize_t Env::Read(int fd, void* buffer, std::size_t length) {
    return ::read(fd, buffer, length);
}
ssize_t Env::Write(int fd, const void* data, std::size_t length) {
    return ::write(fd, data, length);
}
ssize_t Env::PWrite(int fd, const void* data, std::size_t length, off_t offset) {
    return ::pwrite(fd, data, length, offset);
}
int Env::Fsync(int fd) {
    return ::fsync(fd);
}
int Env::Ftruncate(int fd, off_t length) {
    return ::ftruncate(fd, length);
}
int Env::Close(int fd) {
    return ::close(fd);
}
int Env::Rename(const char* from, const char* to) {
    return ::rename(from, to);
}
int Env::Unlink(const char* path) {
    return ::unlink(path);
}
int Env::Mkdir(const char* path, mode_t mode) {
    return ::mkdir(path, mode);
}
int Env::Rmdir(const char* path) {
    return ::rmdir(path);
}
int Env::Stat(const char* path, struct stat* st) {
    return ::stat(path, st);
}
int Env::Lstat(const char* path, struct stat* st) {
    return ::lstat(path, st);
}
int Env::Fstat(int fd, struct stat* st) {
    return ::fstat(fd, st);
}
int Env::Chmod(const char* path, mode_t mode) {
    return ::chmod(path, mode);
}
int Env::Fchmod(int fd, mode_t mode) {
    return ::fchmod(fd, mode);
}
int Env::Lock(int fd, int command, struct flock* lock) {
    return ::fcntl(fd, command, lock);
}
int Env::Advise(int fd, off_t offset, off_t length, int advice) {
    return ::posix_fadvise(fd, offset, length, advice);
}

int Env::ListFolder(const char* path, std::vector<FolderEntry>* entries) {
    DIR* dir = ::opendir(path);
    if (!dir) return -1;
    errno = 0;
    while (dirent* entry = ::readdir(dir)) {
        std::string name = entry->d_name;
        if (name != "." && name != "..") entries->push_back({std::move(name), entry->d_type});
    }
    int error = errno;
    ::closedir(dir);
    if (error == 0) return 0;
    errno = error;
    return -1;
}

pid_t Env::GetPid() {
    return ::getpid();
}

std::string Env::GetCurrentFolder() {
    std::string buffer(4096, '\0');
    if (!::getcwd(buffer.data(), buffer.size())) return std::string();
    buffer.resize(buffer.find('\0'));
    return buffer;
}

const char* Env::GetVariable(const char* name) {
    return std::getenv(name);
}

std::string Env::GetUserHome() {
    std::vector<char> buffer(16384);
    struct passwd entry, *found = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir)
        return found->pw_dir;
    return std::string();
}

namespace {

std::atomic<Env*> current{nullptr};

template <typename Call>
auto Again(Call&& call) {
    while (true) {
        auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

}  // namespace

Env& SystemEnv() {
    static Env system;
    return system;
}

Env& CurrentEnv() {
    Env* env = current.load(std::memory_order_acquire);
    return env ? *env : SystemEnv();
}

Env* SetEnv(Env* env) {
    return current.exchange(env, std::memory_order_acq_rel);
}

namespace Sys {

int Open(const char* path, int flags, mode_t mode) {
    return Again([&] { return CurrentEnv().Open(path, flags, mode); });
}
ssize_t Read(int fd, void* buffer, std::size_t length) {
    return Again([&] { return CurrentEnv().Read(fd, buffer, length); });
}
ssize_t Write(int fd, const void* data, std::size_t length) {
    return Again([&] { return CurrentEnv().Write(fd, data, length); });
}

int WriteAll(int fd, const void* data, std::size_t length) {
    const char* p = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = Write(fd, p, length);
        if (n < 0) return -1;
        p += n;
        length -= static_cast<std::size_t>(n);
    }
    return 0;
}

int PWriteAll(int fd, const void* data, std::size_t length, off_t offset) {
    const char* p = static_cast<const char*>(data);
    while (length > 0) {
        ssize_t n = Again([&] { return CurrentEnv().PWrite(fd, p, length, offset); });
        if (n < 0) return -1;
        p += n;
        offset += n;
        length -= static_cast<std::size_t>(n);
    }
    return 0;
}

int Fsync(int fd) {
    return Again([&] { return CurrentEnv().Fsync(fd); });
}
int Ftruncate(int fd, off_t length) {
    return Again([&] { return CurrentEnv().Ftruncate(fd, length); });
}
int Close(int fd) {
    return CurrentEnv().Close(fd);
}
int Rename(const char* from, const char* to) {
    return Again([&] { return CurrentEnv().Rename(from, to); });
}
int Unlink(const char* path) {
    return Again([&] { return CurrentEnv().Unlink(path); });
}
int Mkdir(const char* path, mode_t mode) {
    return Again([&] { return CurrentEnv().Mkdir(path, mode); });
}
int Rmdir(const char* path) {
    return Again([&] { return CurrentEnv().Rmdir(path); });
}
int Stat(const char* path, struct stat* st) {
    return Again([&] { return CurrentEnv().Stat(path, st); });
}
int Lstat(const char* path, struct stat* st) {
    return Again([&] { return CurrentEnv().Lstat(path, st); });
}
int Fstat(int fd, struct stat* st) {
    return Again([&] { return CurrentEnv().Fstat(fd, st); });
}
int Chmod(const char* path, mode_t mode) {
    return Again([&] { return CurrentEnv().Chmod(path, mode); });
}
int Fchmod(int fd, mode_t mode) {
    return Again([&] { return CurrentEnv().Fchmod(fd, mode); });
}
int Lock(int fd, int command, struct flock* lock) {
    return Again([&] { return CurrentEnv().Lock(fd, command, lock); });
}
int Advise(int fd, off_t offset, off_t length, int advice) {
    return Again([&] {
        int error = CurrentEnv().Advise(fd, offset, length, advice);
        if (error == 0) return 0;
        errno = error;
        return -1;
    });
}

int ListFolder(const char* path, std::vector<FolderEntry>* entries) {
    return Again([&] {
        entries->clear();
        return CurrentEnv().ListFolder(path, entries);
    });
}

pid_t GetPid() {
    return CurrentEnv().GetPid();
}
std::string GetCurrentFolder() {
    return CurrentEnv().GetCurrentFolder();
}
const char* GetVariable(const char* name) {
    return CurrentEnv().GetVariable(name);
}
std::string GetUserHome() {
    return CurrentEnv().GetUserHome();
}

}  // namespace Sys

}  // namespace IO
