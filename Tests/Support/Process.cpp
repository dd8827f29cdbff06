#include "Support/Process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

#include "IO/File.h"

extern char** environ;

namespace krtest {
namespace {

pid_t Spawn(const std::vector<std::string>& argv, int outFd, int errFd, int inFd) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (inFd >= 0)
        posix_spawn_file_actions_adddup2(&actions, inFd, 0);
    else
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

ProcessResult RunProcess(const std::vector<std::string>& argv, const std::string* input) {
    // Standard error goes to a file, so that neither output can fill its pipe
    // while the other is read; so does the input, which is all there at once.
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> err(std::tmpfile(), &std::fclose);
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> in(input ? std::tmpfile() : nullptr,
                                                       &std::fclose);
    if (!err || (input && !in)) throw std::runtime_error("tmpfile failed");
    if (input) {
        std::fwrite(input->data(), 1, input->size(), in.get());
        std::fflush(in.get());
        std::rewind(in.get());
    }
    ChildProcess child(argv, fileno(err.get()), input ? fileno(in.get()) : -1);
    ProcessResult result;
    std::string line;
    while (child.ReadLine(&line)) result.out += line + "\n";
    result.out += child.mBuffer;  // a last line without its end
    result.exitCode = child.Wait();
    std::rewind(err.get());
    for (int c; (c = std::fgetc(err.get())) != EOF;) result.err += static_cast<char>(c);
    return result;
}

ProcessResult RunProcess(const std::vector<std::string>& argv) {
    return RunProcess(argv, static_cast<const std::string*>(nullptr));
}

ProcessResult RunProcess(const std::vector<std::string>& argv, const std::string& input) {
    return RunProcess(argv, &input);
}

ProcessResult RunProcessAs(const std::vector<std::string>& argv, uid_t uid, gid_t gid) {
    if (geteuid() != 0) return RunProcess(argv);
    std::vector<std::string> as{"/usr/bin/setpriv", "--reuid=" + std::to_string(uid),
                                "--regid=" + std::to_string(gid), "--clear-groups", "--"};
    as.insert(as.end(), argv.begin(), argv.end());
    return RunProcess(as);
}

ChildProcess::ChildProcess(const std::vector<std::string>& argv, int errFd, int inFd) {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");
    mPid = Spawn(argv, out[1], errFd, inFd);
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
