#pragma once
/// @file
/// Exceptions of the server message libraries. A refusal of a server call is
/// one of these; the more special classes derive from
/// PortalServerClientException, so a caller catches them first.

#include "KRCB/KRClientBaseExport.h"
#include "ZR/Exceptions.h"

#define KERROW_DECLARE_EXCEPTION(Name, Base)                                    \
    class KRCB_EXPORT Name : public Base {                                      \
    public:                                                                     \
        Name() = default;                                                       \
        Name(const ZR::UniString& message, const char* file, unsigned int line, \
             int error = ZR::kGeneralErrorCode)                                 \
            : ZR::ZRException(message, file, line, error) {}                    \
        Name(const ZR::UniString& message, const char* file, unsigned int line, \
             const ZR::ZRException& cause, int error = ZR::kGeneralErrorCode)   \
            : ZR::ZRException(message, file, line, cause, error) {}             \
        ZR::UniString GetName() const override { return #Name; }                \
        ZR::ZRException* Clone() const override { return new Name(*this); }     \
    };

namespace Kerrow::PortalServer::Client {

KERROW_DECLARE_EXCEPTION(PortalServerClientException, virtual ZR::ZRException)
/// The server wants a session for this request.
KERROW_DECLARE_EXCEPTION(SessionRequiredException, PortalServerClientException)
/// The server refused to make a session: wrong password or refresh token.
KERROW_DECLARE_EXCEPTION(CreateSessionFailedException, PortalServerClientException)
/// No entity of that id or path.
KERROW_DECLARE_EXCEPTION(EntityNotFoundException, PortalServerClientException)
/// The server could not be reached; the cause may say why.
KERROW_DECLARE_EXCEPTION(ConnectionFailedException, PortalServerClientException)
/// The server answered with an error of its own.
KERROW_DECLARE_EXCEPTION(PortalServerErrorResponseException, PortalServerClientException)
KERROW_DECLARE_EXCEPTION(NotInCompanyResponseException, PortalServerClientException)
KERROW_DECLARE_EXCEPTION(GeneralErrorResponseException, PortalServerClientException)
/// The user may not do this to this folder, project or library.
KERROW_DECLARE_EXCEPTION(AccessDeniedException, PortalServerClientException)
/// Something of that name stands there already.
KERROW_DECLARE_EXCEPTION(EntityExistsException, PortalServerClientException)
/// The server refused a value: a name it can't take.
KERROW_DECLARE_EXCEPTION(EntityValidationException, PortalServerClientException)

}  // namespace Kerrow::PortalServer::Client

namespace Kerrow::Server::Project::Client {

/// A call of the project server failed.
KERROW_DECLARE_EXCEPTION(ProjectManagerClientException, virtual ZR::ZRException)
/// CreateSession found a session of the user that stands already.
KERROW_DECLARE_EXCEPTION(ProjectManagerClientSessionExistsException, virtual ZR::ZRException)

}  // namespace Kerrow::Server::Project::Client

namespace Communication::Client {

/// The connection under a client broke or could not be made.
KERROW_DECLARE_EXCEPTION(ClientConnectionException, virtual ZR::ZRException)

}  // namespace Communication::Client

namespace SecureCommunication {

/// The secure channel to the server could not be set up (certificate, protocol).
KERROW_DECLARE_EXCEPTION(SecureCommunicationHandshakeException, virtual ZR::ZRException)

}  // namespace SecureCommunication

namespace Kerrow::Common {

/// "Name: message", followed by "\n\tcaused by: ..." for each cause.
KRCB_EXPORT ZR::UniString ToString(const ZR::ZRException& exception);
/// Writes ToString of the exception to the foundation's debug output.
KRCB_EXPORT void DebugPrintEx(const ZR::ZRException& exception);

}  // namespace Kerrow::Common

namespace KRCB {

/// A failure of the base client itself.
KERROW_DECLARE_EXCEPTION(KRClientBaseException, virtual ZR::ZRException)
/// The user chose to work offline: nothing goes to the server.
KERROW_DECLARE_EXCEPTION(ForcedOfflineStateException, KRClientBaseException)

/// Writes the exception and its causes to the log as an error line of the
/// component "KRClientBase". Messages of exceptions never hold secrets.
KRCB_EXPORT void LogException(const ZR::ZRException& exception);

/// The project server speaks a version this client doesn't.
class KRCB_EXPORT IncompatibleModelServerVersionException : public virtual ZR::ZRException {
public:
    IncompatibleModelServerVersionException() = default;
    IncompatibleModelServerVersionException(const ZR::UniString& message, const char* file,
                                            unsigned int line, int serverMajor, int serverMinor,
                                            int clientMajor, int clientMinor)
        : ZR::ZRException(message, file, line),
          mServerMajor(serverMajor),
          mServerMinor(serverMinor),
          mClientMajor(clientMajor),
          mClientMinor(clientMinor) {}
    ZR::UniString GetName() const override { return "IncompatibleModelServerVersionException"; }
    ZR::ZRException* Clone() const override {
        return new IncompatibleModelServerVersionException(*this);
    }
    int GetServerMajorVersion() const { return mServerMajor; }
    int GetServerMinorVersion() const { return mServerMinor; }
    int GetClientMajorVersion() const { return mClientMajor; }
    int GetClientMinorVersion() const { return mClientMinor; }
    /// "Incompatible model server version: server %d.%d, client %d.%d".
    ZR::UniString ToString() const;

private:
    int mServerMajor = 0;
    int mServerMinor = 0;
    int mClientMajor = 0;
    int mClientMinor = 0;
};

/// The project was made by a version of the service this client can't open.
class KRCB_EXPORT IncompatibleProjectVersionException : public virtual ZR::ZRException {
public:
    IncompatibleProjectVersionException() = default;
    IncompatibleProjectVersionException(const ZR::UniString& message, const char* file,
                                        unsigned int line, int major, int minor)
        : ZR::ZRException(message, file, line), mMajor(major), mMinor(minor) {}
    ZR::UniString GetName() const override { return "IncompatibleProjectVersionException"; }
    ZR::ZRException* Clone() const override {
        return new IncompatibleProjectVersionException(*this);
    }
    int GetMajorVersion() const { return mMajor; }
    int GetMinorVersion() const { return mMinor; }

private:
    int mMajor = 0;
    int mMinor = 0;
};

/// The management server is of a version this client can't use.
class KRCB_EXPORT IncompatiblePortalServerVersionException : public virtual ZR::ZRException {
public:
    IncompatiblePortalServerVersionException() = default;
    IncompatiblePortalServerVersionException(const ZR::UniString& message, const char* file,
                                             unsigned int line, int major, int minor)
        : ZR::ZRException(message, file, line), mMajor(major), mMinor(minor) {}
    ZR::UniString GetName() const override { return "IncompatiblePortalServerVersionException"; }
    ZR::ZRException* Clone() const override {
        return new IncompatiblePortalServerVersionException(*this);
    }
    int GetMajorVersion() const { return mMajor; }
    int GetMinorVersion() const { return mMinor; }

private:
    int mMajor = 0;
    int mMinor = 0;
};

}  // namespace KRCB
