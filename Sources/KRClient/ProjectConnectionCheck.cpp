// The six steps of a connection check, the sorting of what they throw into
// results and signals, the presence state, and the details line of a check
// that failed or was slow.

#include <cstdint>

#include "KRCB/Clients.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"
#include "KRClient/ProjectConnectionInfo.h"
#include "KRClient/RegisteredProjects.h"
#include "Kerrow/Exceptions.h"
#include "Kerrow/ProjectMessages.h"
#include "ZR/Time.h"

namespace KRC {

namespace {

const ZR::InfoLogLine kCheckStarted("KRC::ProjectConnection::Check started");
const ZR::InfoLogLine kOfflineByPresence(
    "KRC::ProjectConnection::Check return Offline about presenceState.");
const ZR::WarningLogLine kCheckException("KRC::ProjectConnection::Check exception occurred:%");
const ZR::InfoLogLine kCheckDetails("KRC::ProjectConnection::Check details:%");
const ZR::InfoLogLine kCheckEnded("KRC::ProjectConnection::Check ended: result=%");
const ZR::InfoLogLine kPathChanged(
    "KRC::ProjectConnection::Check project path changed: project id: %, old path: %, new "
    "path: %");

// A check slower than this is written out step by step even when it succeeds.
constexpr std::int64_t kSlowCheckMs = 10000;
constexpr int kSteps = 6;

// Signals of the check and presence states: public, in KRCB/SignalClient.h.
using KRCB::kPresenceCheckFailed;
using KRCB::kPresenceNotSet;
using KRCB::kPresenceOnline;
using KRCB::kPresenceSessionProblemTold;
using KRCB::kSignalIncompatibleProject;
using KRCB::kSignalIncompatibleServer;
using KRCB::kSignalNoSession;
using KRCB::kSignalProjectMoved;
using KRCB::kSignalProjectNotFound;
using KRCB::kSignalProjectNotWritable;
using KRCB::kSignalProjectStateRefused;

// Project states of the server.
constexpr std::int32_t kProjectReadOnly = 2;
constexpr std::int32_t kProjectRefused = 3;

// Time stamps of the steps: stamp 0 before the first, stamp n after step n.
struct StepClock {
    std::int64_t at[kSteps + 1] = {};
    bool taken[kSteps + 1] = {};
    void Take(int n) {
        at[n] = ZR::System::GetCurrentTimeMillis();
        taken[n] = true;
    }
    ZR::UniString Details() const {
        ZR::UniString text;
        for (int n = 1; n <= kSteps; ++n) {
            const unsigned ms = taken[n] ? static_cast<unsigned>(at[n] - at[n - 1]) : 0u;
            text += ZR::UniString::Format("\n\tstep%u: executed: %u, execution time=%u ms",
                                          static_cast<unsigned>(n), taken[n] ? 1u : 0u, ms);
            if (!taken[n]) break;
        }
        return text;
    }
};

}  // namespace

ProjectConnectionBase::CheckResult ProjectConnectionBase::Check(
    bool sendSignals, bool takeOverSession, bool explicitCheck, bool ignoreCachedSession,
    ZR::Ref<ZR::ZRException, ZR::Counter>* exception, bool reconnect) {
    Internal::WriteLog(kCheckStarted);
    checkErrorSignalSent = false;
    const std::int64_t started = ZR::System::GetCurrentTimeMillis();

    KRCB::ProjectConnectionManagerInterface* manager = GetProjectConnectionManager();
    if (!manager) return CheckOffline;
    KRCB::SignalClient* signalClient = manager->GetSignalClient();

    // A failure already told by presence isn't checked again by an implicit
    // check; the result stays as it was, so the next IsOpen tries again.
    if (!secondary && !explicitCheck && signalClient) {
        const KRCB::PresenceState presence = signalClient->GetPresenceState();
        if (presence != kPresenceNotSet && presence != kPresenceOnline) {
            Internal::WriteLog(kOfflineByPresence);
            return CheckOffline;
        }
    }
    if (signalClient && !signalClient->IsOnline()) reconnect = true;
    if (!secondary) postEvents = sendSignals;

    StepClock clock;
    clock.Take(0);
    Kerrow::Server::Project::Messages::SessionInfo sessionInfo;
    try {
        ConnectAndAuthenticateToServer(reconnect);
        clock.Take(1);
        if (checkResult == CheckOnline) {
            GetCachedProjectInfo();
            clock.Take(2);
        }
        if (checkResult == CheckOnline) {
            CheckProjectAvailability();
            clock.Take(3);
        }
        if (checkResult == CheckOnline) {
            checkResult = StartAndCheckSession(explicitCheck, takeOverSession, ignoreCachedSession,
                                               sessionInfo);
            clock.Take(4);
        }
        if (checkResult == CheckOnline) {
            FillCache(sessionInfo);
            clock.Take(5);
        }
        if (checkResult == CheckOnline) {
            CheckProjectState();
            clock.Take(6);
        }
    } catch (...) {
        HandleCheckException(exception);
    }

    if (checkResult == CheckOnline && signalClient && !signalClient->IsForcedOffline())
        signalClient->SetPresenceState(kPresenceOnline);
    if (!secondary && checkResult != CheckOnline && checkResult != CheckNotChecked &&
        checkResult != CheckProjectNotWritable && signalClient && signalClient->IsOnline()) {
        // Only a missing session that a signal has told about already is a
        // presence of its own; every other failure is "check failed".
        signalClient->SetPresenceState(checkErrorSignalSent && checkResult == CheckNoSession
                                           ? kPresenceSessionProblemTold
                                           : kPresenceCheckFailed);
    }

    if (checkResult != CheckOnline || ZR::System::GetCurrentTimeMillis() - started > kSlowCheckMs)
        Internal::WriteLog(kCheckDetails, clock.Details());
    Internal::WriteLog(kCheckEnded, static_cast<int>(checkResult));
    return checkResult;
}

// Called from within a catch clause: sorts the exception in flight, the more
// special classes first.
void ProjectConnectionBase::HandleCheckException(ZR::Ref<ZR::ZRException, ZR::Counter>* exception) {
    using namespace Kerrow::PortalServer::Client;
    auto log = [](const ZR::ZRException& e) {
        Internal::WriteLog(kCheckException, Kerrow::Common::ToString(e));
    };
    auto copy = [exception](const ZR::ZRException& e) {
        if (exception) *exception = ZR::Ref<ZR::ZRException, ZR::Counter>(e.Clone());
    };
    try {
        throw;
    } catch (const SessionRequiredException& e) {
        log(e);
        copy(e);
        checkResult = CheckNoSession;
        checkErrorSignalSent = PostEvent(kSignalNoSession, ZR::UniString());
    } catch (const CreateSessionFailedException& e) {
        log(e);
        copy(e);
        checkResult = CheckNoSession;
        checkErrorSignalSent = PostEvent(kSignalNoSession, ZR::UniString());
    } catch (const EntityNotFoundException& e) {
        log(e);
        copy(e);
        if (CheckProjectPathChanged()) {
            checkResult = CheckOffline;
            checkErrorSignalSent = PostEvent(kSignalProjectMoved, ZR::UniString());
        } else {
            checkResult = CheckProjectNotFound;
            checkErrorSignalSent = PostEvent(kSignalProjectNotFound, ZR::UniString());
        }
    } catch (const PortalServerClientException& e) {
        log(e);
        copy(e);
        checkResult = CheckOffline;
    } catch (const KRCB::IncompatibleModelServerVersionException& e) {
        copy(e);
        checkResult = CheckIncompatibleServer;
        checkErrorSignalSent = PostEvent(kSignalIncompatibleServer, e.ToString());
    } catch (const KRCB::IncompatibleProjectVersionException& e) {
        copy(e);
        checkResult = CheckIncompatibleProject;
        // The minor version twice and a literal ".0": the form other clients read.
        checkErrorSignalSent =
            PostEvent(kSignalIncompatibleProject,
                      ZR::UniString::Format("%d.%d.0/%d", e.GetMajorVersion(), e.GetMinorVersion(),
                                            e.GetMinorVersion()));
    } catch (const ZR::ZRException& e) {
        log(e);
        copy(e);
        checkResult = CheckOffline;
    } catch (...) {
        checkResult = CheckOffline;
    }
}

void ProjectConnectionBase::ConnectAndAuthenticateToServer(bool reconnect) {
    checkResult = CheckOffline;
    // A connection that has its client keeps it, and the project id with it.
    if (!GetResourceManagerClient() && !projectLocation.IsEmpty()) {
        ZR::Ref<KRCB::Management::ResourceManagerClient> client;
        if (secondary) {
            client = KRCB::Management::ResourceManagerClientFactory::CreateAuthenticated(
                projectLocation, true, true);
        } else {
            client = KRCB::CreateResourceManagerClientOnOpenedProjectByPath(
                GetProjectConnectionManager()->GetSignalClient(), connectionInfo->GetServerUrl(),
                connectionInfo->GetUserName(), connectionInfo->GetRefreshToken(), true, true,
                connectionInfo->GetProjectPath(), reconnect);
        }
        SetResourceManagerClient(client);
        projectId = client->GetProjectIdByPath(connectionInfo->GetProjectPath());
    }
    if (GetResourceManagerClient()) checkResult = CheckOnline;
}

void ProjectConnectionBase::GetCachedProjectInfo() {
    if (checkResult != CheckOnline || cachedProjectInfo) return;
    KRCB::ProjectConnectionManagerInterface* manager = GetProjectConnectionManager();
    if (!manager->GetSessionId().IsEmpty()) {
        // A connection on a running session copies the manager's record.
        auto* closed = dynamic_cast<KRCB::ProjectConnectionManager*>(manager);
        auto* record =
            closed ? dynamic_cast<CachedProjectInfo*>(closed->GetCachedProjectInfo()) : nullptr;
        if (record) cachedProjectInfo = new CachedProjectInfo(*record);
    } else {
        bool created = false;
        cachedProjectInfo = registeredProjects.CreateCachedProjectInfo(projectLocation, created);
    }
    if (!cachedProjectInfo) checkResult = CheckOffline;
}

ZR::UniString ProjectConnectionBase::GetCurrentProjectId() const {
    if (!projectId.IsEmpty()) return projectId;
    if (cachedProjectInfo && !cachedProjectInfo->GetProjectId().IsEmpty())
        return cachedProjectInfo->GetProjectId();
    return ZR::UniString();
}

void ProjectConnectionBase::CheckProjectAvailability() {
    const ZR::UniString cached = cachedProjectInfo->GetProjectId();
    // Another project of a new id at the same path is not the cached one.
    if (!projectId.IsEmpty() && (cached.IsEmpty() || cached == projectId)) return;
    checkResult = CheckProjectNotFound;
    checkErrorSignalSent = PostEvent(kSignalProjectNotFound, ZR::UniString());
}

bool ProjectConnectionBase::CheckProjectPathChanged() {
    try {
        auto* manager =
            dynamic_cast<KRCB::ProjectConnectionManager*>(GetProjectConnectionManager());
        auto* record =
            manager ? dynamic_cast<CachedProjectInfo*>(manager->GetCachedProjectInfo()) : nullptr;
        if (!record || record->GetProjectId().IsEmpty()) return false;
        auto client = KRCB::Management::ResourceManagerClientFactory::Create(
            connectionInfo->GetServerUrl(), connectionInfo->GetUserName(),
            connectionInfo->GetRefreshToken(), true, false);
        auto resource = client->GetResourceById(record->GetProjectId());
        if (!dynamic_cast<const KRCB::Management::Entities::Project*>(resource.Get())) return false;
        const ZR::UniString oldPath = manager->GetProjectPath();
        if (resource->GetPath().IsEqual(oldPath, ZR::kIgnoreCase)) return false;
        Internal::WriteLog(kPathChanged, record->GetProjectId(), oldPath, resource->GetPath());
        return true;
    } catch (...) {
        return false;
    }
}

void ProjectConnectionBase::CheckProjectState() {
    const std::int32_t state = GetResourceManagerClient()->GetProjectState(projectId);
    if (state == kProjectReadOnly && dynamic_cast<WriteProjectConnection*>(this)) {
        checkResult = CheckProjectNotWritable;
        checkErrorSignalSent = PostEvent(kSignalProjectNotWritable, ZR::UniString());
    } else if (state == kProjectRefused) {
        checkResult = CheckProjectStateRefused;
        checkErrorSignalSent = PostEvent(kSignalProjectStateRefused, ZR::UniString());
    }
}

}  // namespace KRC
