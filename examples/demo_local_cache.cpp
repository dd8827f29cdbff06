// The demo's browse dialog with the local caches: the server's tree asked
// folder by folder into a result cache, the registry's projects laid in and
// marked as local, all sorted by name; then the cached project check, which
// finds that a project the cache remembers was moved on the server.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRClient/RegisteredProjects.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "KRClient/UserInterface/DataQueryResultCache.h"
#include "KRClient/UserInterface/DataQueryTask.h"
#include "KRClient/UserInterface/ISortableElement.h"
#include "KRClient/UserInterface/LocalCache/CacheProject.h"
#include "KRClient/UserInterface/ResourceComparer.h"
#include "ZR/MessageLoop.h"

namespace {

using namespace KRC::UI;
using KRC::UI::LocalCache::ProjectInfo;
using KRCB::Management::Entities::Project;
using KRCB::Management::Entities::ProjectFolder;

// Hands every answer to the cache as it arrives on the message loop.
class CachingDialog : public DataQuery::IDataQueryEventObserver {
public:
    ~CachingDialog() override { ReleaseDependents(); }
    void OnDataQuerySucceeded(ZR::Ref<KRCB::DataQuery::DataQueryResult>& result) override {
        cache.AddDataQueryResult(result);
    }
    void OnDataQueryFailed() override {}
    void OnDataQueryInterrupted() override {}
    unsigned int GetTaskId() override { return task; }

    void Ask(ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
             const ZR::Ref<KRCB::DataQuery::DataQueryResult>& result) {
        DataQuery::DataQueryTask query(connection, ++task, this, result);
        std::thread worker([&query] { query.Run(); });
        worker.join();
        ZR::MessageLoop::RunPending();
    }

    DataQueryResultCache cache{true, false};
    unsigned int task = 0;
};

// What the host knows of its caches: the registry's records of this server
// and user, and a project it unpacked from a travel package.
ZR::Array<ProjectInfo> LocalProjects(const char* server, const char* user) {
    ZR::Array<ProjectInfo> projects;
    for (KRC::RegisteredProjects::ProjectConstIterator it(user, server); it != nullptr; ++it) {
        const KRC::CachedProjectInfo* record = it->GetCachedProjectInfo();
        if (!record) continue;
        ProjectInfo info;
        info.id = record->GetProjectId();
        info.path = it->GetProjectPath();
        info.modelServerPath = it->GetModelServerPath();
        info.isDetached = record->IsProjectDetached();
        projects.Add(info);
    }
    ProjectInfo survey;
    survey.id = "p-survey-local";
    survey.path = "/Site visits/Survey 2026";
    survey.version = "1.2.0 / 31";
    survey.isUnpackedFromTravelPackage = true;
    projects.Add(survey);
    return projects;
}

std::vector<ZR::Ref<Project>> ByName(const ZR::Ref<ProjectFolder>& folder) {
    std::vector<std::pair<SortableResource, ZR::Ref<Project>>> keyed;
    ZR::PagedArray<ZR::Ref<Project>, 8> held;
    if (folder) folder->GetProjects(held);
    for (const ZR::Ref<Project>& p : held)
        keyed.emplace_back(SortableResource(ZR::Ref<KRCB::Management::Entities::Resource>(
                               std::shared_ptr<KRCB::Management::Entities::Resource>(p.Std()))),
                           p);
    const ResourceComparer byName(ResourceComparer::Name, true, ResourceComparer::Path, true);
    std::sort(keyed.begin(), keyed.end(),
              [&byName](const auto& a, const auto& b) { return byName(a.first, b.first); });
    std::vector<ZR::Ref<Project>> sorted;
    for (const auto& k : keyed) sorted.push_back(k.second);
    return sorted;
}

}  // namespace

void RunLocalCacheDemo(const char* server, const char* user, const char* password) {
    ZR::MessageLoop::Scope loop;
    auto connection = KRCB::Management::AuthenticatedClientConnectionFactory::Create(
        server, user, Kerrow::PortalServer::Client::PasswordEncrypter::Encrypt(password), true,
        false, 0);
    CachingDialog dialog;
    dialog.Ask(connection,
               ZR::Ref<KRCB::DataQuery::PartialFolderTreeResult>::Make(
                   "", true, false, true, ConvertToPartialFolderTreeQueryType(FolderPath), false,
                   true, false, true, true));
    // Each folder the user opens, asked only if the cache lacks it.
    std::vector<ZR::UniString> open{""};
    while (!open.empty()) {
        const ZR::UniString path = open.back();
        open.pop_back();
        std::vector<ZR::Ref<ProjectFolder>> sub;
        dialog.cache.EnumerateSubfoldersSorted(
            path, [&sub](const ZR::Ref<ProjectFolder>& f, bool) { sub.push_back(f); });
        for (const ZR::Ref<ProjectFolder>& f : sub) {
            if (!dialog.cache.HasQueriedFolderWithChildResources(f->GetId()))
                dialog.Ask(
                    connection,
                    ZR::Ref<KRCB::DataQuery::FolderWithChildResourcesResult>::Make(f->GetId()));
            if (!dialog.cache.HasQueriedFolderWithChildFolders(f->GetId()))
                dialog.Ask(connection, ZR::Ref<KRCB::DataQuery::FolderWithChildFoldersResult>::Make(
                                           f->GetId()));
            open.push_back(f->GetPath(false));
        }
    }
    const ZR::Array<ProjectInfo> local = LocalProjects(server, user);
    std::printf("   %u queries; %zu local project(s) laid in:\n", dialog.task, local.GetSize());
    dialog.cache.Merge(local, [](const ProjectInfo&) { return true; });

    std::vector<std::pair<ZR::UniString, int>> walk{{"", 0}};
    while (!walk.empty()) {
        const auto [path, depth] = walk.back();
        walk.pop_back();
        const ZR::Ref<ProjectFolder> folder = dialog.cache.GetSubFolderWithChildResources(path);
        const bool local = folder && dialog.cache.IsFolderFromLocalCache(folder->GetId());
        std::printf("     %*s%s%s\n", 2 * depth, "",
                    path.IsEmpty() ? "Project Root"
                    : folder       ? folder->GetName().ToCString()
                                   : "?",
                    local ? "  [local]" : "");
        for (const ZR::Ref<Project>& p : ByName(folder)) {
            const auto* cached = dynamic_cast<const LocalCache::CacheProject*>(p.Get());
            std::printf("     %*s- %s%s\n", 2 * depth + 2, "", p->GetName().ToCString(),
                        !cached                   ? ""
                        : cached->HasServerInfo() ? "  [cached]"
                                                  : "  [local]");
        }
        std::vector<ZR::UniString> sub;
        dialog.cache.EnumerateSubfoldersSorted(path, [&sub](const ZR::Ref<ProjectFolder>& f, bool) {
            sub.push_back(f->GetPath(false));
        });
        for (auto it = sub.rbegin(); it != sub.rend(); ++it) walk.push_back({*it, depth + 1});
    }

    std::printf(
        "   The host opens /Housing/Tower B from its list of recent projects; the cached\n"
        "   project check runs on a worker and compares the cache with the server:\n");
    const CachedProjectCheckTask::Projects projects(
        std::make_shared<ZR::Array<ProjectInfo>>(local));
    std::string finding = "nothing to bring into line";
    CachedProjectCheckTask check(
        connection, "/Housing/Tower B", projects,
        [&finding](const ZR::UniString& from, const ZR::UniString& to, const ZR::UniString& id) {
            finding = "moved: " + from.Std() + " -> " + to.Std() + " (project " + id.Std() + ")";
        },
        [&finding](const ZR::UniString& from, const ZR::UniString& to, const ZR::UniString& onOld,
                   const ZR::UniString&) {
            finding = "duplicated: " + from.Std() + " holds " + onOld.Std() +
                      ", the cached one is at " + to.Std();
        });
    std::thread worker([&check] { check.Run(); });
    worker.join();
    std::printf("     %s\n", finding.c_str());
}
