#include "KRClient/UserInterface/CachedProjectCheckTask.h"

#include <atomic>
#include <memory>

#include "KRCB/Clients.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/KRClient.h"
#include "Kerrow/Exceptions.h"

namespace KRC::UI {

using LocalCache::ProjectInfo;

namespace {

std::atomic<bool> gEnabled{true};

constexpr const char* kCategory = "KRClient";
const ZR::InfoLogLine kServerOnly("CachedProjectCheck: Server only project");
const ZR::InfoLogLine kCacheOnly("CachedProjectCheck: Cache only project");
const ZR::InfoLogLine kBoth("CachedProjectCheck: Cache and server project");
const ZR::InfoLogLine kDifferentId(
    "CachedProjectCheck: Cache and server project with different project id");
const ZR::InfoLogLine kProjectByPath("CachedProjectCheck: project by path: path: % id: %");
const ZR::InfoLogLine kProjectByPathNull("CachedProjectCheck: project by path is null");
const ZR::InfoLogLine kProjectByCacheId("CachedProjectCheck: project by cache id: path: % id: %");
const ZR::InfoLogLine kProjectByCacheIdNull("CachedProjectCheck: project by cache id is null");
const ZR::InfoLogLine kCacheByPath("CachedProjectCheck: cache by path: path: % id: %");
const ZR::InfoLogLine kCacheByPathNull("CachedProjectCheck: cache by path is null");
const ZR::InfoLogLine kCacheById("CachedProjectCheck: cache by id: path: % id: %");
const ZR::InfoLogLine kCacheByIdNull("CachedProjectCheck: cache by id is null");
const ZR::InfoLogLine kMovedOld(
    "CachedProjectCheck: Project moved to new path, opened with old path. Old path: %, new "
    "path: %, project id: %",
    kCategory);
const ZR::InfoLogLine kMovedNew(
    "CachedProjectCheck: Project moved to new path, opened with new path. Old path: %, new "
    "path: %, project id: %",
    kCategory);
const ZR::InfoLogLine kDuplicatedOld(
    "CachedProjectCheck: Project duplicated, opened with old path. Old path: %, new path: %, "
    "server project id on old path: %, cache and server project id on new path: %",
    kCategory);
const ZR::InfoLogLine kDuplicatedNew(
    "CachedProjectCheck: Project duplicated, opened with new path. Old path: %, new path: %, "
    "server project id on old path: %, cache and server project id on new path: %",
    kCategory);
const ZR::WarningLogLine kMovedOldBlocked(
    "CachedProjectCheck: Project moved to new path, opened with old path. Move handle failed, "
    "new path is occupied. Cache project id on new path: %",
    kCategory);
const ZR::WarningLogLine kMovedNewBlocked(
    "CachedProjectCheck: Project moved to new path, opened with new path. Move handle failed, "
    "new path is occupied. Cache project id on new path: %",
    kCategory);
const ZR::WarningLogLine kDuplicatedOldBlocked(
    "CachedProjectCheck: Project duplicated, opened with old path. Duplicate handle failed, new "
    "path is occupied. Cache project id on new path: %",
    kCategory);
const ZR::WarningLogLine kDuplicatedNewBlocked(
    "CachedProjectCheck: Project duplicated, opened with new path. Duplicate handle failed, new "
    "path is occupied. Cache project id on new path: %",
    kCategory);
const ZR::WarningLogLine kNotHandled("CachedProjectCheck: not handled state", kCategory);
const ZR::ErrorLogLine kFailed(
    "CachedProjectCheck: failed to check project cache, project path: %, exception: %", kCategory);

bool Same(const ZR::UniString& a, const ZR::UniString& b) {
    return a.IsEqual(b, ZR::kIgnoreCase);
}

using ProjectRef = ZR::Ref<KRCB::Management::Entities::Project>;
using InfoRef = std::shared_ptr<const ProjectInfo>;

// The first record at path, also among those with an empty id.
const ProjectInfo* RecordAt(const ZR::Array<ProjectInfo>& projects, const ZR::UniString& path) {
    for (const ProjectInfo& info : projects.Std())
        if (Same(info.path, path)) return &info;
    return nullptr;
}

void LogState(const ProjectRef& p, const ProjectRef& q, const InfoRef& cp, const InfoRef& ci) {
    using Internal::WriteLog;
    if (p)
        WriteLog(kProjectByPath, p->GetPath(), p->GetId());
    else
        WriteLog(kProjectByPathNull);
    if (q)
        WriteLog(kProjectByCacheId, q->GetPath(), q->GetId());
    else
        WriteLog(kProjectByCacheIdNull);
    if (cp)
        WriteLog(kCacheByPath, cp->path, cp->id);
    else
        WriteLog(kCacheByPathNull);
    if (ci)
        WriteLog(kCacheById, ci->path, ci->id);
    else
        WriteLog(kCacheByIdNull);
}

}  // namespace

CachedProjectCheckTask::CachedProjectCheckTask(
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
    const ZR::UniString& projectPath, const Projects& projects, const MovedCallback& onMoved,
    const DuplicatedCallback& onDuplicated)
    : mConnection(connection),
      mProjectPath(projectPath),
      mProjects(projects),
      mOnMoved(onMoved),
      mOnDuplicated(onDuplicated) {}

void CachedProjectCheckTask::SetEnabled(bool enabled) {
    gEnabled = enabled;
}
bool CachedProjectCheckTask::IsEnabled() {
    return gEnabled;
}

void CachedProjectCheckTask::Run() {
    if (!gEnabled || !mConnection || mProjectPath.IsEmpty() || !mOnMoved || !mOnDuplicated ||
        !mProjects)
        return;
    try {
        ZR::Ref<KRCB::Management::ResourceManagerClient> client =
            KRCB::Management::ResourceManagerClientFactory::Create(mConnection);
        KRCB::Management::PortalServerNonTransactionalQueryGuard guard(*client);
        // The client remembers its answers. A path first met as the path of
        // a project found by id is asked afresh, so that a project that has
        // since taken the path is seen.
        ZR::HashSet<ZR::UniString> pathsSeenById, pathsSeenByPath;
        Lookup byPath = [&](const ZR::UniString& path) -> ProjectRef {
            try {
                const ZR::UniString key = path.ToLowerCase();
                if (pathsSeenById.Contains(key) && !pathsSeenByPath.Contains(key))
                    client->ResetProjectLookup();
                ProjectRef project = client->GetProjectByPath(path, ZR::UniString());
                pathsSeenByPath.Add(key);
                return project;
            } catch (const Kerrow::PortalServer::Client::EntityNotFoundException&) {
                return ProjectRef();
            }
        };
        Lookup byId = [&](const ZR::UniString& id) -> ProjectRef {
            try {
                ProjectRef project = client->GetProjectById(id);
                pathsSeenById.Add(project->GetPath().ToLowerCase());
                return project;
            } catch (const Kerrow::PortalServer::Client::EntityNotFoundException&) {
                return ProjectRef();
            }
        };
        Check(mProjectPath, mProjects, byPath, byId, mOnMoved, mOnDuplicated);
    } catch (const ZR::ZRException& e) {
        Internal::WriteLog(kFailed, mProjectPath, KRC::ToString(e));
    } catch (...) {
        Internal::WriteLog(kFailed, mProjectPath, "unknown");
    }
}

void CachedProjectCheckTask::Check(const ZR::UniString& projectPath, const Projects& projects,
                                   Lookup& getProjectByPath, Lookup& getProjectById,
                                   const MovedCallback& onMoved,
                                   const DuplicatedCallback& onDuplicated) {
    using Internal::WriteLog;
    // No list at all is no check; an empty list is a cache that knows
    // nothing of the project.
    if (!projects) return;
    const ProjectRef p = getProjectByPath(projectPath);
    InfoRef cp, ci;
    for (const ProjectInfo& info : projects->Std()) {
        if (info.id.IsEmpty() || info.path.IsEmpty()) continue;
        const bool idMatches = p && Same(info.id, p->GetId());
        const bool pathMatches = Same(info.path, projectPath);
        if (pathMatches && !(cp && !idMatches)) cp = std::make_shared<ProjectInfo>(info);
        if (idMatches && !(ci && !pathMatches)) ci = std::make_shared<ProjectInfo>(info);
    }
    ProjectRef q, r;
    if (cp) {
        if (p && Same(p->GetId(), cp->id)) {
            q = p;
        } else {
            q = getProjectById(cp->id);
            if (q) q = getProjectByPath(q->GetPath());
        }
    }
    if (ci) {
        if (p && Same(p->GetPath(), ci->path))
            r = p;
        else if (q && Same(q->GetPath(), ci->path))
            r = q;
        else
            r = getProjectByPath(ci->path);
    }

    if (!cp && !ci) return WriteLog(kServerOnly);
    if (!p && !q) return WriteLog(kCacheOnly);
    if (p && q && cp && ci && Same(q->GetPath(), p->GetPath()) && Same(cp->path, p->GetPath()) &&
        Same(ci->path, p->GetPath()) && Same(q->GetId(), p->GetId()) && Same(cp->id, p->GetId()) &&
        Same(ci->id, p->GetId()))
        return WriteLog(kBoth);
    if (p && cp && !q && !ci && Same(cp->path, p->GetPath()) && !Same(cp->id, p->GetId()))
        return WriteLog(kDifferentId);

    LogState(p, q, cp, ci);
    if (!p && q && cp && !ci && Same(cp->id, q->GetId())) {
        WriteLog(kMovedOld, cp->path, q->GetPath(), q->GetId());
        if (const ProjectInfo* occupant = RecordAt(*projects, q->GetPath()))
            return WriteLog(kMovedOldBlocked, occupant->id);
        return onMoved(projectPath, q->GetPath(), q->GetId());
    }
    if (p && !q && !r && ci && Same(p->GetId(), ci->id)) {
        WriteLog(kMovedNew, ci->path, p->GetPath(), p->GetId());
        if (cp) return WriteLog(kMovedNewBlocked, cp->id);
        return onMoved(ci->path, p->GetPath(), p->GetId());
    }
    if (p && q && cp && !Same(p->GetPath(), q->GetPath()) && !Same(p->GetId(), cp->id) &&
        !Same(p->GetId(), q->GetId()) && Same(q->GetId(), cp->id)) {
        WriteLog(kDuplicatedOld, projectPath, q->GetPath(), p->GetId(), q->GetId());
        if (const ProjectInfo* occupant = RecordAt(*projects, q->GetPath()))
            return WriteLog(kDuplicatedOldBlocked, occupant->id);
        return onDuplicated(projectPath, q->GetPath(), p->GetId(), q->GetId());
    }
    if (p && r && ci && !Same(p->GetPath(), r->GetPath()) && !Same(p->GetId(), r->GetId()) &&
        Same(p->GetId(), ci->id)) {
        WriteLog(kDuplicatedNew, ci->path, projectPath, r->GetId(), p->GetId());
        if (cp) return WriteLog(kDuplicatedNewBlocked, cp->id);
        return onDuplicated(ci->path, projectPath, r->GetId(), p->GetId());
    }
    WriteLog(kNotHandled);
}

}  // namespace KRC::UI
