// Construction of a connection's checking half, the public ways into the
// check, and signals.

#include "KRClient/ProjectConnectionBase.h"

#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/LogWrite.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionInfo.h"

namespace KRC {

namespace {

const ZR::InfoLogLine kCreated("KRC::ProjectConnection created");
const ZR::InfoLogLine kSecondaryCreated("Secondary KRC::ProjectConnection created");

}  // namespace

ProjectConnectionBase::ProjectConnectionBase(KRCB::ProjectConnectionManagerInterface* manager) {
    if (manager) {
        projectLocation = manager->GetKerrowLocation();
        connectionInfo = new ProjectConnectionInfo(projectLocation);
        secondary = manager->IsSecondary() || manager->GetSignalClient() == nullptr;
        postEvents = !secondary;
    } else {
        checkResult = CheckOffline;
    }
    Internal::WriteLog(secondary ? kSecondaryCreated : kCreated);
}

ProjectConnectionBase::~ProjectConnectionBase() {
    delete connectionInfo;
    delete cachedProjectInfo;
}

ProjectConnectionBase::CheckResult ProjectConnectionBase::Check(
    ProjectConnectionBase* connection, ZR::Ref<ZR::ZRException, ZR::Counter>& exception,
    bool sendSignals, bool reconnect) {
    if (!connection) return CheckOffline;
    try {
        return connection->Check(sendSignals, false, true, false, &exception, reconnect);
    } catch (const ZR::ZRException& e) {
        exception = ZR::Ref<ZR::ZRException, ZR::Counter>(e.Clone());
        return CheckOffline;
    }
}

ProjectConnectionBase::CheckResult ProjectConnectionBase::Check(ProjectConnectionBase* connection,
                                                                bool sendSignals, bool reconnect) {
    if (!connection) return CheckOffline;
    try {
        return connection->Check(sendSignals, false, true, false, nullptr, reconnect);
    } catch (const ZR::ZRException&) {
        return CheckOffline;
    }
}

ProjectConnectionBase::CheckResult ProjectConnectionBase::Check(
    KRCB::ProjectConnectionManagerInterface* manager,
    ZR::Ref<ZR::ZRException, ZR::Counter>& exception, bool sendSignals, bool reconnect) {
    try {
        ReadProjectConnection connection(manager, false);
        return Check(&connection, exception, sendSignals, reconnect);
    } catch (const ZR::ZRException& e) {
        exception = ZR::Ref<ZR::ZRException, ZR::Counter>(e.Clone());
        return CheckOffline;
    }
}

ProjectConnectionBase::CheckResult ProjectConnectionBase::Check(
    KRCB::ProjectConnectionManagerInterface* manager, bool sendSignals, bool reconnect) {
    try {
        ReadProjectConnection connection(manager, false);
        return Check(&connection, sendSignals, reconnect);
    } catch (const ZR::ZRException&) {
        return CheckOffline;
    }
}

bool ProjectConnectionBase::IsOpen(CheckResult* result) {
    if (checkResult == CheckNotChecked) Check(true, false, false, false, nullptr, false);
    if (result) *result = checkResult;
    return checkResult == CheckOnline;
}

bool ProjectConnectionBase::ReceiveSession(ProjectConnectionBase* connection,
                                           bool ignoreCachedSession) {
    if (!connection) return false;
    try {
        return connection->Check(false, true, true, ignoreCachedSession, nullptr, false) ==
               CheckOnline;
    } catch (const ZR::ZRException&) {
        return false;
    }
}

bool ProjectConnectionBase::ReceiveSession(KRCB::ProjectConnectionManagerInterface* manager,
                                           bool ignoreCachedSession) {
    try {
        ReadProjectConnection connection(manager, false);
        return ReceiveSession(&connection, ignoreCachedSession);
    } catch (const ZR::ZRException&) {
        return false;
    }
}

bool ProjectConnectionBase::SendSignal(const KRCB::SignalId& signal) {
    KRCB::ProjectConnectionManagerInterface* manager = GetProjectConnectionManager();
    if (!manager || !manager->GetSignalClient()) return false;
    manager->GetSignalClient()->SendSignal(signal, ZR::UniString());
    return true;
}

bool ProjectConnectionBase::PostEvent(const KRCB::SignalId& signal, const ZR::UniString& text) {
    if (!postEvents) return false;
    KRCB::ProjectConnectionManagerInterface* manager = GetProjectConnectionManager();
    if (!manager || !manager->GetSignalClient()) return false;
    manager->GetSignalClient()->SendInternalSignal(signal, text);
    return true;
}

const char* ProjectConnectionBase::GetCheckResultName(CheckResult result) {
    switch (result) {
        case CheckOnline:
            return "CheckOnline";
        case CheckOffline:
            return "CheckOffline";
        case CheckNoSession:
            return "CheckNoSession";
        case CheckSessionOnOtherComputer:
            return "CheckSessionOnOtherComputer";
        case CheckNotChecked:
            return "CheckNotChecked";
        case CheckSessionChanged:
            return "CheckSessionChanged";
        case CheckProjectNotFound:
            return "CheckProjectNotFound";
        case CheckProjectNotWritable:
            return "CheckProjectNotWritable";
        case CheckProjectStateRefused:
            return "CheckProjectStateRefused";
        case CheckIncompatibleServer:
            return "CheckIncompatibleServer";
        case CheckIncompatibleProject:
            return "CheckIncompatibleProject";
    }
    return "unknown";
}

}  // namespace KRC
