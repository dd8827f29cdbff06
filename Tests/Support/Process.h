#pragma once
// Real processes for tests: run a program to its end, or start one and keep
// a handle on it.

#include <sys/types.h>

#include <string>
#include <vector>

namespace krtest {

struct ProcessResult {
    int exitCode = -1;  // -1 if it died by a signal
    std::string out;
    std::string err;
};

// Runs argv[0] with the arguments, standard input closed, and collects both outputs.
ProcessResult RunProcess(const std::vector<std::string>& argv);
// The same with input as its standard input.
ProcessResult RunProcess(const std::vector<std::string>& argv, const std::string& input);

// Runs argv as the user uid and group gid, switched to by setpriv, when this
// process runs as root; otherwise as this process's own, plain user.
ProcessResult RunProcessAs(const std::vector<std::string>& argv, uid_t uid, gid_t gid);

// A started process; its standard output is readable line by line.
class ChildProcess {
public:
    // Standard error goes to errFd if one is given, else where the test's goes;
    // standard input comes from inFd if one is given, else it is closed.
    explicit ChildProcess(const std::vector<std::string>& argv, int errFd = -1, int inFd = -1);
    ~ChildProcess();  // kills a process still running
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    pid_t Pid() const { return mPid; }
    // Blocks for the next line of standard output; false at its end.
    bool ReadLine(std::string* line);
    void Kill(int signal);
    // Waits for the end; the exit code, or -1 after a signal.
    int Wait();

private:
    friend ProcessResult RunProcess(const std::vector<std::string>& argv, const std::string* input);
    pid_t mPid = -1;
    int mOut = -1;
    std::string mBuffer;
    bool mWaited = false;
    int mExit = -1;
};

// A forked child that holds a file, as IO::kOpenHold does, until it ends.
class FileHolderProcess {
public:
    explicit FileHolderProcess(const std::string& path);  // returns once it holds or failed to
    ~FileHolderProcess() { End(); }
    FileHolderProcess(const FileHolderProcess&) = delete;
    FileHolderProcess& operator=(const FileHolderProcess&) = delete;

    bool Holds() const { return mHolds; }
    void End();  // kills and reaps it

private:
    pid_t mPid = -1;
    bool mHolds = false;
};

}  // namespace krtest
