#include "KRCB/Internal/Transport.h"

#include <memory>
#include <mutex>
#include <stdexcept>

#include "KRCB/Paths.h"
#include "Kerrow/Exceptions.h"

namespace KRCB::Internal {
namespace {

std::mutex& TransportMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<Transport>& Installed() {
    static std::shared_ptr<Transport> transport;
    return transport;
}

// The failed handshake, wrapped in depth - 1 further causes.
std::unique_ptr<ZR::ZRException> HandshakeCause(int depth) {
    std::unique_ptr<ZR::ZRException> cause(
        new SecureCommunication::SecureCommunicationHandshakeException(
            "The secure handshake with the server failed", ZR_HERE));
    for (int i = 1; i < depth; ++i)
        cause.reset(new ZR::ZRException("The secure channel could not be opened", ZR_HERE, *cause));
    return cause;
}

}  // namespace

void SetTransport(std::shared_ptr<Transport> transport) {
    std::lock_guard<std::mutex> lock(TransportMutex());
    Installed() = std::move(transport);
}

std::shared_ptr<Transport> GetTransport() {
    std::lock_guard<std::mutex> lock(TransportMutex());
    return Installed();
}

void ThrowFault(const Fault& fault) {
    using namespace Kerrow::PortalServer::Client;
    const ZR::UniString message(fault.message);
    switch (fault.kind) {
        case FaultKind::SessionRequired:
            throw SessionRequiredException(message, ZR_HERE);
        case FaultKind::CreateSessionFailed:
            throw CreateSessionFailedException(message, ZR_HERE);
        case FaultKind::EntityNotFound:
            throw EntityNotFoundException(message, ZR_HERE);
        case FaultKind::PortalServerClient:
            throw PortalServerClientException(message, ZR_HERE);
        case FaultKind::ConnectionFailed:
            if (fault.handshakeDepth > 0)
                throw ConnectionFailedException(message, ZR_HERE,
                                                *HandshakeCause(fault.handshakeDepth));
            throw ConnectionFailedException(message, ZR_HERE);
        case FaultKind::IncompatibleModelServerVersion:
            throw IncompatibleModelServerVersionException(
                message, ZR_HERE, fault.major, fault.minor, fault.clientMajor, fault.clientMinor);
        case FaultKind::IncompatibleProjectVersion:
            throw IncompatibleProjectVersionException(message, ZR_HERE, fault.major, fault.minor);
        case FaultKind::SessionExists:
            throw Kerrow::Server::Project::Client::ProjectManagerClientSessionExistsException(
                message, ZR_HERE);
        case FaultKind::ZRException:
            throw ZR::ZRException(message, ZR_HERE);
        case FaultKind::Foreign:
            throw std::runtime_error(fault.message);
        case FaultKind::PortalServerErrorResponse:
            throw PortalServerErrorResponseException(message, ZR_HERE);
        case FaultKind::NotInCompany:
            throw NotInCompanyResponseException(message, ZR_HERE);
        case FaultKind::GeneralErrorResponse:
            throw GeneralErrorResponseException(message, ZR_HERE);
        case FaultKind::IncompatiblePortalServerVersion:
            throw IncompatiblePortalServerVersionException(message, ZR_HERE, fault.major,
                                                           fault.minor);
        case FaultKind::Interrupted:
            throw ZR::InterruptedException(message, ZR_HERE);
        case FaultKind::InterruptedIO:
            throw ZR::InterruptedIOException(message, ZR_HERE);
        case FaultKind::InternalError:
            throw ZR::InternalErrorException(message, ZR_HERE);
        case FaultKind::ForcedOffline:
            throw ForcedOfflineStateException(message, ZR_HERE);
        case FaultKind::ClientConnection:
            throw Communication::Client::ClientConnectionException(message, ZR_HERE);
        case FaultKind::ProjectManagerClient:
            throw Kerrow::Server::Project::Client::ProjectManagerClientException(message, ZR_HERE);
        case FaultKind::AccessDenied:
            throw AccessDeniedException(message, ZR_HERE);
        case FaultKind::EntityExists:
            throw EntityExistsException(message, ZR_HERE);
        case FaultKind::EntityValidation:
            throw EntityValidationException(message, ZR_HERE);
    }
    throw ZR::ZRException(message, ZR_HERE);
}

Data Call(const Request& request) {
    std::shared_ptr<Transport> transport = GetTransport();
    if (!transport) {
        // Said plainly: a host that links no transport meets this first, and
        // the text reaches its log and the exceptions that it is handed.
        throw Kerrow::PortalServer::Client::ConnectionFailedException(
            ZR::UniString("No connection to " + WithoutUserInfo(request.serverUrl).Std() +
                          ": no transport is installed (a host's tests install the emulator,"
                          " KRClient::Emulator, with Emulator::Service::Install)"),
            ZR_HERE);
    }
    Reply reply = transport->Call(request);
    if (reply.fault) ThrowFault(*reply.fault);
    return std::move(reply.result);
}

}  // namespace KRCB::Internal
