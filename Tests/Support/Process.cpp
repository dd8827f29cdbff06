#include "Support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "IO/File.h"

extern char** environ;

namespace krtest {
namespace {

pid_t Spawn(const std::vector<std::string>& argv, int outFd, int errFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (outFd >= 0) posix_spawn_file_actions_adddup2(&actions, outFd, 1);
    if (errFd >= 0) posix_spawn_file_actions_adddup2(&actions, errFd, 2);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = -1;
    int rc = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (rc != 0) throw std::runtime_error("cannot start " + argv[0]);
    return pid;
}

int DecodeStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

ProcessResult RunProcess(const std::vector<std::string>& argv) {
    int out[2], err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe failed");
    pid_t pid = Spawn(argv, out[1], err[1]);
    close(out[1]);
    close(err[1]);
    ProcessResult result;
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    int open = 2;
    char buf[4096];
    while (open > 0) {
        if (poll(fds, 2, -1) < 0) continue;
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP))) continue;
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n > 0)
                (i == 0 ? result.out : result.err).append(buf, static_cast<std::size_t>(n));
            else {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    result.exitCode = DecodeStatus(status);
    return result;
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    mPid = Spawn(argv, out[1], -1);
    close(out[1]);
    mOut = out[0];
}

ChildProcess::~ChildProcess() {
    if (!mWaited) {
        kill(mPid, SIGKILL);
        Wait();
    }
    if (mOut >= 0) close(mOut);
}

bool ChildProcess::ReadLine(std::string* line) {
    while (true) {
        std::size_t nl = mBuffer.find('\n');
        if (nl != std::string::npos) {
            *line = mBuffer.substr(0, nl);
            mBuffer.erase(0, nl + 1);
            return true;
        }
        char buf[1024];
        ssize_t n = read(mOut, buf, sizeof buf);
        if (n <= 0) return false;
        mBuffer.append(buf, static_cast<std::size_t>(n));
    }
}

void ChildProcess::Kill(int signal) {
    kill(mPid, signal);
}

int ChildProcess::Wait() {
    if (!mWaited) {
        int status = 0;
        waitpid(mPid, &status, 0);
        mExit = DecodeStatus(status);
        mWaited = true;
    }
    return mExit;
}

FileHolderProcess::FileHolderProcess(const std::string& path) {
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    mPid = fork();
    if (mPid == 0) {
        IO::File file{IO::Location(ZR::UniString(path))};
        char status = file.Open(IO::kOpenHold) == IO::kOk ? 'h' : 'f';
        if (write(ready[1], &status, 1) != 1) _exit(2);
        while (true) pause();
    }
    close(ready[1]);
    char status = 0;
    mHolds = mPid > 0 && read(ready[0], &status, 1) == 1 && status == 'h';
    close(ready[0]);
}

void FileHolderProcess::End() {
    if (mPid <= 0) return;
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    mPid = -1;
}

}  // namespace krtest
