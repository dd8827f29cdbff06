// The local cache view over a data folder's records: krctl registry tree,
// emulate SCENARIO browse tree --with-cache and emulate SCENARIO browse
// check-cache. The records are given to the library as a host gives them:
// a list of ProjectInfo, one per cache folder of the server and user.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "DataFolder.h"
#include "Emulate.h"
#include "KRCB/Paths.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "KRClient/UserInterface/DataQueryResultCache.h"
#include "KRClient/UserInterface/ISortableElement.h"
#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/LocalCache/ProjectFolderMerge.h"
#include "KRClient/UserInterface/ResourceComparer.h"
#include "Krctl.h"
#include "ZR/Logger.h"

namespace krctl {

namespace {

using KRC::UI::LocalCache::CacheProject;
using KRC::UI::LocalCache::ProjectInfo;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;
using Connection = ZR::Ref<KRCB::Management::AuthenticatedClientConnection>;

// A record of the data folder in the form of the local cache view.
ProjectInfo ToProjectInfo(const KRC::CachedProjectInfo& record) {
    ProjectInfo info;
    info.id = record.GetProjectId();
    info.path = record.GetProjectPath();
    info.modifiedTimeUtc = record.GetLastModificationTime();
    info.version = record.GetProjectVersion();
    if (record.GetProjectBuildNum() != 0)
        info.version =
            info.version + " / " + ZR::UniString(std::to_string(record.GetProjectBuildNum()));
    info.isPackedIntoTravelPackage = record.IsTravelPackageCreated();
    info.isUnpackedFromTravelPackage = record.ExtractedFromTravelPackage();
    info.hasChanges = record.IsChanges();
    info.isDetached = record.IsProjectDetached();
    info.modelServerPath = record.GetModelServerPath();
    return info;
}

struct RecordGroup {
    std::string server, user;
    ZR::Array<ProjectInfo> projects;
};

// The readable records of the data folder by server and user, in the order
// of their first record; empty server or user takes every one.
std::vector<RecordGroup> ReadGroups(const GlobalOptions& options, const std::string& server,
                                    const std::string& user) {
    if (!server.empty()) CheckServerUrl(server);
    RecordWalk walk = ReadRecords(options);
    std::vector<RecordGroup> groups;
    for (const auto& record : walk.records) {
        const ZR::UniString url = record->GetPortalServerUrl(), login = record->GetLoginName();
        if (!server.empty() && !KRCB::IsEqualServerUrls(ZR::UniString(server), url, false))
            continue;
        if (!user.empty() && !ZR::UniString(user).IsEqual(login, ZR::kIgnoreCase)) continue;
        auto group = std::find_if(groups.begin(), groups.end(), [&](const RecordGroup& g) {
            return KRCB::IsEqualServerUrls(ZR::UniString(g.server), url, false) &&
                   login.IsEqual(ZR::UniString(g.user), ZR::kIgnoreCase);
        });
        if (group == groups.end())
            group = groups.insert(groups.end(), {url.Std(), login.Std(), {}});
        group->projects.Add(ToProjectInfo(*record));
    }
    return groups;
}

ZR::Array<ProjectInfo> Records(const GlobalOptions& options, const std::string& server,
                               const std::string& user) {
    std::vector<RecordGroup> groups = ReadGroups(options, server, user);
    ZR::Array<ProjectInfo> all;
    for (const RecordGroup& g : groups)
        for (const ProjectInfo& p : g.projects.Std()) all.Add(p);
    return all;
}

struct Entry {
    std::string kind, path, id;
    int depth;
    std::string source;  // server, local or both; empty where it means nothing
};

Json ToJson(const std::vector<Entry>& entries) {
    Json list = Json::array();
    for (const Entry& e : entries) {
        Json item{{"kind", e.kind}, {"path", e.path}, {"id", e.id}, {"depth", e.depth}};
        if (!e.source.empty()) item["source"] = e.source;
        list.push_back(std::move(item));
    }
    return list;
}

void PrintEntries(const std::vector<Entry>& entries, int indent) {
    for (const Entry& e : entries)
        std::printf("%*s%s %s (%s)%s%s\n", 2 * (e.depth + indent), "", e.kind.c_str(),
                    e.path.empty() ? "/" : Printable(e.path, 80).c_str(), Printable(e.id).c_str(),
                    e.source.empty() || e.source == "server" ? "" : " ",
                    e.source.empty() || e.source == "server" ? "" : e.source.c_str());
}

// The projects of a folder by name, as a dialog lists them.
std::vector<ZR::Ref<Project>> SortedProjects(const ZR::Ref<ProjectFolder>& folder) {
    std::vector<ZR::Ref<Project>> projects;
    if (!folder) return projects;
    ZR::PagedArray<ZR::Ref<Project>, 8> held;
    folder->GetProjects(held);
    struct Keyed {
        KRC::UI::SortableResource key;
        ZR::Ref<Project> project;
    };
    std::vector<Keyed> keyed;
    for (const ZR::Ref<Project>& p : held)
        keyed.push_back({KRC::UI::SortableResource(ZR::Ref<KRCB::Management::Entities::Resource>(
                             std::shared_ptr<KRCB::Management::Entities::Resource>(p.Std()))),
                         p});
    const KRC::UI::ResourceComparer byName(KRC::UI::ResourceComparer::Name, true,
                                           KRC::UI::ResourceComparer::Path, true);
    std::sort(keyed.begin(), keyed.end(),
              [&byName](const Keyed& a, const Keyed& b) { return byName(a.key, b.key); });
    for (const Keyed& k : keyed) projects.push_back(k.project);
    return projects;
}

std::string SourceOf(const ZR::Ref<Project>& project) {
    const auto* cached = dynamic_cast<const CacheProject*>(project.Get());
    return !cached ? "server" : cached->HasServerInfo() ? "both" : "local";
}

// ProjectFolderMerge's tree, depth first, folders and projects by name.
std::vector<Entry> FolderTree(const ZR::Ref<ProjectFolder>& root) {
    std::vector<Entry> entries;
    std::vector<std::pair<ZR::Ref<ProjectFolder>, int>> pending{{root, 0}};
    while (!pending.empty()) {
        auto [folder, depth] = pending.back();
        pending.pop_back();
        entries.push_back(
            {"folder", folder->GetPath(false).Std(), folder->GetId().Std(), depth, ""});
        for (const ZR::Ref<Project>& p : SortedProjects(folder))
            entries.push_back({"project", p->GetPath().Std(), p->GetId().Std(), depth + 1, ""});
        ZR::PagedArray<ZR::Ref<ProjectFolder>, 8> children;
        folder->GetSubFolders(children);
        std::vector<ZR::Ref<ProjectFolder>> sorted(children.begin(), children.end());
        std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
            return a->GetName().FoldCase().Std() < b->GetName().FoldCase().Std();
        });
        for (auto it = sorted.rbegin(); it != sorted.rend(); ++it)
            pending.push_back({*it, depth + 1});
    }
    return entries;
}

int RegistryTree(const GlobalOptions& options, const std::string& server, const std::string& user) {
    Json list = Json::array();
    for (const RecordGroup& group : ReadGroups(options, server, user)) {
        ZR::Ref<ProjectFolder> root;
        KRC::UI::LocalCache::ProjectFolderMerge::Merge(
            group.projects, [](const ProjectInfo&) { return true; }, root);
        const std::vector<Entry> entries = FolderTree(root);
        if (options.json) {
            list.push_back(
                {{"server", group.server}, {"user", group.user}, {"tree", ToJson(entries)}});
        } else {
            std::printf("%s %s\n", Printable(group.server).c_str(), Printable(group.user).c_str());
            PrintEntries(entries, 1);
        }
    }
    if (options.json) PrintJson(list);
    return kExitDone;
}

// The check's callbacks, as the host hears them on the executor's thread.
struct Finding {
    std::string kind = "none";  // moved, duplicated or none
    std::string oldPath, newPath, projectId, serverProjectIdOnOldPath;
};

int CheckCache(const GlobalOptions& options, const std::string& scenario, const std::string& server,
               const std::string& user, const std::string& path) {
    CheckServerUrl(server);
    if (!KRC::UI::CachedProjectCheckTask::IsEnabled())
        throw Failure("the cached project check is disabled: the base client did not start");
    const KRC::UI::CachedProjectCheckTask::Projects projects(
        std::make_shared<ZR::Array<ProjectInfo>>(Records(options, server, user)));
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    Installed installed(*service);
    Connection connection = BrowseLogIn(*service, server, user);
    Finding finding;
    ZR::CaptureLogSink lines;
    {
        ZR::ScopedLogSink capture(lines);
        KRC::UI::CachedProjectCheckTask task(
            connection, ZR::UniString(path), projects,
            [&](const ZR::UniString& from, const ZR::UniString& to, const ZR::UniString& id) {
                finding = {"moved", from.Std(), to.Std(), id.Std(), ""};
            },
            [&](const ZR::UniString& from, const ZR::UniString& to, const ZR::UniString& onOld,
                const ZR::UniString& id) {
                finding = {"duplicated", from.Std(), to.Std(), id.Std(), onOld.Std()};
            });
        // The host's executor: the callbacks run on this worker.
        std::thread worker([&task] { task.Run(); });
        worker.join();
    }
    const char* levels[] = {"info", "warning", "error"};
    Json log = Json::array();
    bool failed = false;
    for (const ZR::LogRecord& r : lines.GetRecords()) {
        if (r.text.rfind("CachedProjectCheck:", 0) != 0) continue;
        failed = failed || r.level == ZR::LogLevel::Error;
        log.push_back({{"level", levels[static_cast<int>(r.level)]}, {"text", r.text}});
    }
    if (failed) throw Failure(OneLine(log.back()["text"].get<std::string>()));
    if (options.json) {
        Json out{{"path", path}, {"finding", finding.kind}, {"records", projects->GetSize()}};
        if (finding.kind != "none") {
            out["oldPath"] = finding.oldPath;
            out["newPath"] = finding.newPath;
            out["projectId"] = finding.projectId;
            if (finding.kind == "duplicated")
                out["serverProjectIdOnOldPath"] = finding.serverProjectIdOnOldPath;
        }
        out["log"] = std::move(log);
        PrintJson(out);
        return kExitDone;
    }
    if (finding.kind == "moved")
        std::printf("moved: %s -> %s (project %s)\n", Printable(finding.oldPath).c_str(),
                    Printable(finding.newPath).c_str(), Printable(finding.projectId).c_str());
    else if (finding.kind == "duplicated")
        std::printf("duplicated: %s now holds %s; the cached project %s is at %s\n",
                    Printable(finding.oldPath).c_str(),
                    Printable(finding.serverProjectIdOnOldPath).c_str(),
                    Printable(finding.projectId).c_str(), Printable(finding.newPath).c_str());
    else
        std::printf("neither moved nor duplicated\n");
    for (const auto& l : log)
        std::printf("  %s: %s\n", l["level"].get<std::string>().c_str(),
                    Printable(l["text"], 4096).c_str());
    return kExitDone;
}

}  // namespace

int BrowseTreeWithCache(const GlobalOptions& options, const Connection& connection,
                        const std::string& server, const std::string& user, const std::string& path,
                        int depth) {
    const ZR::Array<ProjectInfo> records = Records(options, server, user);
    // As the dialog asks: the path from the root, then folder by folder what
    // the cache does not hold yet.
    KRC::UI::DataQueryResultCache cache(false, false);
    auto ask = [&](const ZR::Ref<KRCB::DataQuery::DataQueryResult>& result) {
        BrowseQuery(connection, result);
        cache.AddDataQueryResult(result);
    };
    ask(ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
        ZR::UniString(path), true, false, false,
        KRC::UI::ConvertToPartialFolderTreeQueryType(KRC::UI::FolderPath), false, true, false, true,
        true));
    const ZR::Ref<ProjectFolder> top = cache.GetSubFolderWithChildResources(ZR::UniString(path));
    if (!top) throw Failure("the server has no folder " + Printable(path));
    struct At {
        ZR::Ref<ProjectFolder> folder;
        ZR::UniString path;
        int level;
    };
    auto subFoldersOf = [&cache](const ZR::UniString& at) {
        std::vector<ZR::Ref<ProjectFolder>> found;
        cache.EnumerateSubfoldersSorted(
            at, [&found](const ZR::Ref<ProjectFolder>& f, bool) { found.push_back(f); });
        return found;
    };
    // Every folder above the depth gets its projects and sub-folders asked
    // for, unless the cache holds them already.
    for (std::vector<At> pending{{top, ZR::UniString(path), 0}}; !pending.empty();) {
        const At at = pending.back();
        pending.pop_back();
        if (at.level >= depth) continue;
        for (const ZR::Ref<ProjectFolder>& f : subFoldersOf(at.path)) {
            if (at.level + 1 >= depth) continue;
            if (!cache.HasQueriedFolderWithChildResources(f->GetId()))
                ask(ZR::Ref<KRCB::DataQuery::FolderWithChildResourcesResult>::Make(f->GetId()));
            if (!cache.HasQueriedFolderWithChildFolders(f->GetId()))
                ask(ZR::Ref<KRCB::DataQuery::FolderWithChildFoldersResult>::Make(f->GetId()));
            pending.push_back({f, f->GetPath(false), at.level + 1});
        }
    }
    cache.Merge(records, [](const ProjectInfo&) { return true; });

    // Read back with the local projects and folders laid in.
    std::vector<Entry> entries;
    for (std::vector<At> walk{{top, ZR::UniString(path), 0}}; !walk.empty();) {
        const At at = walk.back();
        walk.pop_back();
        entries.push_back({"folder", at.path.Std(), at.folder->GetId().Std(), at.level,
                           cache.IsFolderFromLocalCache(at.folder->GetId()) ? "local" : "server"});
        if (at.level >= depth) continue;
        for (const ZR::Ref<Project>& p :
             SortedProjects(cache.GetSubFolderWithChildResources(at.path)))
            entries.push_back(
                {"project", p->GetPath().Std(), p->GetId().Std(), at.level + 1, SourceOf(p)});
        const std::vector<ZR::Ref<ProjectFolder>> subFolders = subFoldersOf(at.path);
        for (auto it = subFolders.rbegin(); it != subFolders.rend(); ++it)
            walk.push_back({*it, (*it)->GetPath(false), at.level + 1});
    }
    if (options.json)
        PrintJson(ToJson(entries));
    else
        PrintEntries(entries, 0);
    return kExitDone;
}

void AddEmulateCheckCacheCommand(CLI::App* browse, const GlobalOptions& options, Action* action,
                                 const std::string& scenario, const std::string& server,
                                 const std::string& user) {
    auto path = std::make_shared<std::string>();
    CLI::App* check = browse->add_subcommand(
        "check-cache",
        "run the cached project check for the project at --path over the records that "
        "--data-folder holds for this server and user, and say whether the project was moved "
        "or duplicated on the server (with --json the keys path, finding: moved, duplicated or "
        "none, oldPath, newPath, projectId, serverProjectIdOnOldPath, records, and log: the "
        "check's lines). Exit 0 when the check ran, 1 when it failed");
    check->add_option("--path", *path, "project path on the server, \"/Folder/Project\"")
        ->required();
    check->callback([&options, action, &scenario, &server, &user, path] {
        *action = [&options, &scenario, &server, &user, path] {
            return CheckCache(options, scenario, server, user, *path);
        };
    });
}

void AddRegistryTreeCommand(CLI::App* registry, const GlobalOptions& options, Action* action) {
    struct Filter {
        std::string server, user;
    };
    auto filter = std::make_shared<Filter>();
    CLI::App* tree = registry->add_subcommand(
        "tree",
        "the bare folder tree of the registered projects, one per server and user, as the "
        "library lays them over an empty tree (folders matched without regard to case); with "
        "--json a list of server, user and tree (kind, path, id, depth)");
    tree->add_option("--server", filter->server, "only this server")->type_name("URL");
    tree->add_option("--user", filter->user, "only this login name")->type_name("NAME");
    tree->callback([&options, action, filter] {
        options.readsOnly = true;
        *action = [&options, filter] {
            return RegistryTree(options, filter->server, filter->user);
        };
    });
}

}  // namespace krctl
