#pragma once
/// @file
/// Finds out whether a project that the host opens was moved or duplicated
/// on the server since the local cache recorded it.

#include <functional>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/LocalCache/ProjectInfo.h"
#include "ZR/Containers.h"
#include "ZR/Ref.h"
#include "ZR/Runnable.h"

namespace KRC::UI {

/// Compares what the server says about a path and about ids with the local
/// records, logs what it finds, and tells a move or a duplication through
/// one callback. Writes nothing itself. Run on an executor; the callbacks
/// run on that executor's thread.
class KRCLIENT_EXPORT CachedProjectCheckTask : public ZR::Runnable {
public:
    using Project = KRCB::Management::Entities::Project;
    using Projects = ZR::Ref<ZR::Array<LocalCache::ProjectInfo>>;
    using Lookup = std::function<ZR::Ref<Project>(const ZR::UniString&)>;
    /// Old path, new path, project id.
    using MovedCallback =
        std::function<void(const ZR::UniString&, const ZR::UniString&, const ZR::UniString&)>;
    /// Old path, new path, server project id on the old path, cache and
    /// server project id on the new path.
    using DuplicatedCallback = std::function<void(const ZR::UniString&, const ZR::UniString&,
                                                  const ZR::UniString&, const ZR::UniString&)>;

    /// Keeps references to connection and projects: the caller keeps both
    /// alive until Run has returned.
    CachedProjectCheckTask(ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& connection,
                           const ZR::UniString& projectPath, const Projects& projects,
                           const MovedCallback& onMoved, const DuplicatedCallback& onDuplicated);

    /// Does nothing while checks are disabled or an argument is missing.
    /// Failures end in an Error log line; nothing leaves Run.
    void Run() override;

    /// Process-wide switch of the check; true until the library has started,
    /// then whatever the base client's start answered.
    static void SetEnabled(bool enabled);
    static bool IsEnabled();

    /// The decision, with the server's look-ups given as functions that
    /// answer an empty reference for an unknown path or id. Does not look at
    /// the switch; exceptions of the look-ups and callbacks go through.
    /// Without a list, nothing happens at all.
    static void Check(const ZR::UniString& projectPath, const Projects& projects,
                      Lookup& getProjectByPath, Lookup& getProjectById,
                      const MovedCallback& onMoved, const DuplicatedCallback& onDuplicated);

private:
    ZR::Ref<KRCB::Management::AuthenticatedClientConnection>& mConnection;
    ZR::UniString mProjectPath;
    const Projects& mProjects;
    MovedCallback mOnMoved;
    DuplicatedCallback mOnDuplicated;
};

}  // namespace KRC::UI
