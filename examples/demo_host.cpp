// An example host program: starts the library on a fresh data folder, makes
// cached project records, changes them and reads them back.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClient.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "Kerrow/ServerInfo.h"

namespace {

// The host hears of every write and of every file failure.
class HostObserver : public KRC::CachedProjectInfoObserver, public KRC::KRCFileErrorObserver {
public:
    // Comes after every write attempt, also one that failed: the failure event
    // comes first.
    void ContentWrittenToDisc(const KRC::CachedProjectInfo* info) override {
        ++writes;
        std::printf("    [event] CacheInfo.xml %s %s\n",
                    failed ? "write attempted (it failed) in" : "written in",
                    info->GetLocalFolderName().GetUniString().ToCString());
        failed = false;
    }
    void FileOperationFailed(KRC::FileError error, const IO::Location& location) override {
        static const char* const kWhat[] = {"could not open", "could not read", "could not write"};
        std::printf("    [event] %s %s\n", kWhat[error], location.ToDisplayText().ToCString());
        failed = true;
    }
    int writes = 0;
    bool failed = false;
};

void Show(const char* title, const KRC::CachedProjectInfo& r) {
    std::printf("  %s\n", title);
    std::printf("    folder       %s\n", r.GetLocalFolderName().GetUniString().ToCString());
    std::printf("    server       %s (%s)\n", r.GetPortalServerUrl().ToCString(),
                r.GetServerName().ToCString());
    std::printf("    project      %s (name %s)\n", r.GetProjectPath().ToCString(),
                r.GetProjectName().ToCString());
    std::printf("    user         %s, display name \"%s\"\n", r.GetLoginName().ToCString(),
                r.GetUserName_().ToCString());
    std::printf("    visits       %u, version %s build %d, detached %s\n", r.GetVisitCount(),
                r.GetProjectVersion().IsEmpty() ? "(none)" : r.GetProjectVersion().ToCString(),
                r.GetProjectBuildNum(), r.IsProjectDetached() ? "yes" : "no");
    std::printf("    token stored %s\n",
                r.GetRefreshToken().IsEmpty() ? "no" : "yes (kept in the login data store)");
}

KRC::ProjectConnectionInfo Project(const char* server, const char* path, const char* user,
                                   const char* token) {
    KRC::ProjectConnectionInfo info;
    info.SetServerUrl(server);
    info.SetProjectPath(path);
    info.SetUserName(user);
    info.SetRefreshToken(token);
    return info;
}

}  // namespace

int RunSecondHost(int argc, char** argv);
void RunSharedFolderDemo(const std::string& self, const std::string& root);
void RunConnectionDemo(const std::string& root);

int main(int argc, char** argv) {
    if (argc > 1 && std::string(argv[1]) == "--second-host") return RunSecondHost(argc, argv);
    std::string root = (std::filesystem::temp_directory_path() / "krc-demo-XXXXXX").string();
    if (!mkdtemp(root.data())) {
        std::perror("mkdtemp");
        return 1;
    }
    std::printf("KRClient demo host\n==================\nData folder: %s\n\n", root.c_str());

    ZR::PagedArray<ZR::UniString, 8> args{ZR::UniString("BaseFolder=" + root + "/base")};
    KRC::InitKRClient(args);
    HostObserver observer;
    KRC::cachedProjectInfoObserver.Attach(observer);
    KRC::krcFileErrorEventSource.Attach(observer);

    std::printf("1. The user logs in to a server; the login data store remembers it.\n");
    {
        KRC::UI::Login::UILoginDataStore store(KRC::UI::Login::UILoginDataStore::ForWriting);
        auto info = ZR::Ref<Kerrow::PortalServer::Client::Management::ServerInfo>::Make(
            "https://design.example.com", "Design office", 26, 3);
        store.AddServer(info, "https://design.example.com");
        store.Write();
        // The store keeps major * 100 + minor.
        const int version = store.GetServerVersion("https://design.example.com");
        std::printf("   server %s, version %d.%d\n\n",
                    store.GetServerFriendlyName("https://design.example.com").ToCString(),
                    version / 100, version % 100);
    }

    IO::Location main(ZR::UniString(root + "/Projects"));
    std::printf("2. Three projects get cache folders named by the MD5 of server, path and user.\n");
    KRC::CachedProjectInfo tower(
        Project("https://design.example.com", "/Housing/Tower A", "anna", "token-1"), main);
    KRC::CachedProjectInfo school(
        Project("https://design.example.com", "/Public/School", "anna", "token-1"), main);
    KRC::CachedProjectInfo again(
        Project("https://design.example.com", "/Housing/Tower A", "anna", "token-1"), main);
    std::printf("   the same key twice: %s and %s\n\n",
                tower.GetLocalFolderName().GetUniString().ToCString(),
                again.GetLocalFolderName().GetUniString().ToCString());

    std::printf("3. Changes outside an update bracket: one write each.\n");
    observer.writes = 0;
    tower.SetUserName("Anna Ärger");
    tower.SetVisitCount(1);
    tower.SetUserName("ANNA ÄRGER");  // equal without regard to case: no write
    std::printf("   writes: %d\n\n", observer.writes);

    std::printf("4. Changes inside an update bracket: one write at its end.\n");
    observer.writes = 0;
    school.BeginUpdate();
    school.SetUserName("Anna");
    school.SetVisitCount(5);
    school.SetProjectVersion("26.3");
    school.SetProjectBuildNum(4711);
    school.ProjectDetached();
    std::printf("   writes before EndUpdate: %d\n", observer.writes);
    school.EndUpdate();
    std::printf("   writes after EndUpdate: %d\n\n", observer.writes);

    std::printf("5. Read back from disc.\n");
    Show("Tower A", KRC::CachedProjectInfo(tower.GetCacheFolderLocation()));
    Show("School", KRC::CachedProjectInfo(school.GetCacheFolderLocation()));

    std::printf("\n6. Another writer changes a record; Refresh notices.\n");
    {
        KRC::CachedProjectInfo other(tower.GetCacheFolderLocation());
        other.SetVisitCount(2);
    }
    tower.Refresh();
    std::printf("   visits now %u\n", tower.GetVisitCount());

    std::printf("\n7. A write into a folder that vanished becomes an event, not an exception.\n");
    std::filesystem::remove_all(again.GetCacheFolderLocation().ToPath().Std());
    again.SetVisitCount(3);

    KRC::cachedProjectInfoObserver.Detach(observer);
    KRC::krcFileErrorEventSource.Detach(observer);
    RunSharedFolderDemo(std::filesystem::read_symlink("/proc/self/exe").string(), root);
    RunConnectionDemo(root);
    KRC::CloseKRClient();
    // krctl is built beside the demo; School's folder stands (Tower A's went in step 7).
    const std::filesystem::path krctl =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "Tools" /
        "krctl" / "krctl";
    const char* tool = std::filesystem::exists(krctl) ? krctl.c_str() : "krctl";
    std::printf(
        "\nDone. Inspect the files with:\n  %s cache show %s\n  "
        "%s --data-folder %s/shared registry list\n  %s --data-folder %s/shared doctor\n",
        tool, school.GetCacheFolderLocation().ToPath().ToCString(), tool, root.c_str(), tool,
        root.c_str());
    return 0;
}
