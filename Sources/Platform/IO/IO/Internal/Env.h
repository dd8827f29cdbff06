#pragma once
// The one door between the library and the operating system's file calls.
// The file layer and the base client call the functions of IO::Sys, never the
// system directly; IO::Sys hands each call to the current Env. Tests install
// an Env of their own to fail chosen calls.
//
// Env methods answer exactly as the system call of the same name: -1 with
// errno set on failure, and a write may be short. IO::Sys adds what every
// caller needs: a call interrupted by a signal (EINTR) is made again, and
// WriteAll continues a short write.

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <string>
#include <vector>

namespace IO {

struct FolderEntry {
    std::string name;
    unsigned char type;  // d_type; DT_UNKNOWN if the file system does not tell
};

class Env {
public:
    virtual ~Env() = default;

    virtual int Open(const char* path, int flags, mode_t mode);
    virtual ssize_t Read(int fd, void* buffer, std::size_t length);
    virtual ssize_t Write(int fd, const void* data, std::size_t length);
    virtual ssize_t PWrite(int fd, const void* data, std::size_t length, off_t offset);
    virtual int Fsync(int fd);
    virtual int Ftruncate(int fd, off_t length);
    virtual int Close(int fd);
    virtual int Rename(const char* from, const char* to);
    virtual int Unlink(const char* path);
    virtual int Mkdir(const char* path, mode_t mode);
    virtual int Rmdir(const char* path);
    virtual int Stat(const char* path, struct stat* st);
    virtual int Lstat(const char* path, struct stat* st);
    virtual int Fstat(int fd, struct stat* st);
    virtual int Chmod(const char* path, mode_t mode);
    virtual int Fchmod(int fd, mode_t mode);
    // fcntl with a lock command (F_OFD_SETLK, F_OFD_SETLKW, F_OFD_GETLK, ...).
    virtual int Lock(int fd, int command, struct flock* lock);
    // posix_fadvise: 0 or the error number itself (errno is not used).
    virtual int Advise(int fd, off_t offset, off_t length, int advice);
    // opendir, readdir, closedir: the entries without "." and "..".
    virtual int ListFolder(const char* path, std::vector<FolderEntry>* entries);
    virtual pid_t GetPid();
    // getcwd; empty text (and errno) on failure.
    virtual std::string GetCurrentFolder();
    // getenv; null if unset.
    virtual const char* GetVariable(const char* name);
    // The home folder of the user database for this process's user; empty if none.
    virtual std::string GetUserHome();
};

// The Env all calls go to; the operating system's unless a test set another.
Env& CurrentEnv();
// The operating system's Env.
Env& SystemEnv();
// Makes env current (null: the operating system's) and answers the one before.
// Swap it only while no other thread is inside the file layer.
Env* SetEnv(Env* env);

class ScopedEnv {
public:
    explicit ScopedEnv(Env& env) : mPrevious(SetEnv(&env)) {}
    ~ScopedEnv() { SetEnv(mPrevious); }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    Env* mPrevious;
};

// The calls of the current Env, made again while they fail with EINTR.
namespace Sys {

int Open(const char* path, int flags, mode_t mode = 0);
ssize_t Read(int fd, void* buffer, std::size_t length);
ssize_t Write(int fd, const void* data, std::size_t length);
// All of data, continuing after short writes: 0, or -1 with errno.
int WriteAll(int fd, const void* data, std::size_t length);
int PWriteAll(int fd, const void* data, std::size_t length, off_t offset);
int Fsync(int fd);
int Ftruncate(int fd, off_t length);
// Never made again: Linux releases the descriptor even when close reports EINTR.
int Close(int fd);
int Rename(const char* from, const char* to);
int Unlink(const char* path);
int Mkdir(const char* path, mode_t mode);
int Rmdir(const char* path);
int Stat(const char* path, struct stat* st);
int Lstat(const char* path, struct stat* st);
int Fstat(int fd, struct stat* st);
int Chmod(const char* path, mode_t mode);
int Fchmod(int fd, mode_t mode);
int Lock(int fd, int command, struct flock* lock);
// 0, or -1 with errno: a hint only, so callers may ignore the answer.
int Advise(int fd, off_t offset, off_t length, int advice);
int ListFolder(const char* path, std::vector<FolderEntry>* entries);
pid_t GetPid();
std::string GetCurrentFolder();
const char* GetVariable(const char* name);
std::string GetUserHome();

}  // namespace Sys

}  // namespace IO
