// Two host processes on one data folder: the first registers and changes
// projects under the registry's lock, the second sees the changes at its next
// look-up, and its own change waits for the lock.

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <string>

#include "KRClient/KRClient.h"
#include "KRClient/RegisteredProjects.h"

extern char** environ;

namespace {

std::int64_t Millis() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

IO::Location Project(const std::string& path) {
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl("https://design.example.com");
    info.SetUserName("anna");
    info.SetProjectPath(ZR::UniString(path));
    IO::Location location;
    return info.ToKerrowLocation(&location);
}

// The second host: answers commands on standard input, one block of lines each, ended by ".".
int SecondHost(const std::string& base, const std::string& data) {
    ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString("BaseFolder=" + base)};
    KRC::InitKRClient(args);
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(data)), "Projects", "Libraries");
    std::string command;
    while (std::getline(std::cin, command)) {
        if (command == "list") {
            int n = 0;
            for (KRC::RegisteredProjects::ProjectConstIterator it; it != nullptr; ++it, ++n) {
                const KRC::CachedProjectInfo* info = it->GetCachedProjectInfo();
                std::printf("      %-22s visits %u, version \"%s\"\n",
                            it->GetProjectPath().ToCString(), info->GetVisitCount(),
                            info->GetProjectVersion().ToCString());
            }
            std::printf("      (%d project(s))\n", n);
        } else if (command.rfind("visit ", 0) == 0) {
            IO::Location project = Project(command.substr(6));
            std::int64_t start = Millis();
            KRC::registeredProjects.SetVisitCount(
                project, KRC::registeredProjects.GetVisitCount(project) + 100);
            std::printf("      set the visit count after waiting %lld ms for the lock\n",
                        static_cast<long long>(Millis() - start));
        } else if (command == "quit") {
            break;
        }
        std::printf(".\n");
        std::fflush(stdout);
    }
    KRC::CloseKRClient();
    return 0;
}

class SecondHostProcess {
public:
    SecondHostProcess(const std::string& self, const std::string& base, const std::string& data) {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        std::string mode = "--second-host";
        char* argv[] = {const_cast<char*>(self.c_str()), mode.data(),
                        const_cast<char*>(base.c_str()), const_cast<char*>(data.c_str()), nullptr};
        if (posix_spawn(&mPid, self.c_str(), &actions, nullptr, argv, environ) != 0) mPid = -1;
        posix_spawn_file_actions_destroy(&actions);
        close(in[0]);
        close(out[1]);
        mTo = fdopen(in[1], "w");
        mFrom = fdopen(out[0], "r");
    }
    ~SecondHostProcess() {
        Send("quit");
        if (mTo) fclose(mTo);
        if (mFrom) fclose(mFrom);
        if (mPid > 0) waitpid(mPid, nullptr, 0);
    }
    bool IsRunning() const { return mPid > 0 && mTo && mFrom; }
    // Sends a command without waiting for its answer.
    void Send(const std::string& command) {
        if (!mTo) return;
        std::fprintf(mTo, "%s\n", command.c_str());
        std::fflush(mTo);
    }
    // Prints the answer to the last command.
    void PrintAnswer() {
        char line[512];
        while (mFrom && std::fgets(line, sizeof line, mFrom)) {
            if (std::string(line) == ".\n") break;
            std::fputs(line, stdout);
        }
        std::fflush(stdout);
    }

private:
    pid_t mPid = -1;
    FILE* mTo = nullptr;
    FILE* mFrom = nullptr;
};

}  // namespace

int RunSecondHost(int argc, char** argv) {
    if (argc != 4) return 2;
    return SecondHost(argv[2], argv[3]);
}

void RunSharedFolderDemo(const std::string& self, const std::string& root) {
    std::string base = root + "/base", data = root + "/shared";
    std::printf("\n8. Two host processes share the data folder %s.\n", data.c_str());
    KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(data)), "Projects", "Libraries");
    SecondHostProcess second(self, base, data);
    if (!second.IsRunning()) {
        std::printf("   could not start the second host\n");
        return;
    }
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::printf("   second host, before anything is registered:\n");
    second.Send("list");
    second.PrintAnswer();

    {
        KRC::RegisteredProjects::Synchronizer lock;
        std::printf("   first host takes the lock (held: %s) and registers two projects.\n",
                    KRC::RegisteredProjects::Synchronizer::IsLocked() ? "yes" : "no");
        for (const char* path : {"/Housing/Tower A", "/Public/School"}) {
            bool created = false;
            delete KRC::registeredProjects.CreateCachedProjectInfo(Project(path), created);
            KRC::registeredProjects.ProjectOpened(Project(path));
            KRC::registeredProjects.SetVisitCount(Project(path), 1);
        }
        KRC::registeredProjects.SetProjectVersion(Project("/Public/School"), "26.3");
        std::printf("   second host looks while the lock is held (reading needs no lock):\n");
        second.Send("list");
        second.PrintAnswer();
        std::printf("   second host wants to change a project: it waits for the lock...\n");
        second.Send("visit /Housing/Tower A");
        timespec pause{0, 300 * 1000 * 1000};
        nanosleep(&pause, nullptr);  // keep the lock a little, so the wait shows
        std::printf("   first host releases the lock.\n");
    }
    second.PrintAnswer();
    std::printf("   first host sees the second host's change at its next look-up: visits %u\n",
                KRC::registeredProjects.GetVisitCount(Project("/Housing/Tower A")));
}
