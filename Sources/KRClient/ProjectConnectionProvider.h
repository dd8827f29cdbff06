#pragma once
/// @file
/// How the library's parts ask for a connection without knowing the manager.
/// There is no pool: every request makes a new connection, held by counted
/// references.

#include "KRCB/ProjectConnection.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/ProjectConnection.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC {

/// A read connection made and checked for one piece of work: take the holder,
/// ask it for the connection, let go of both.
class KRCLIENT_EXPORT BorrowedReadProjectConnection {
public:
    virtual ~BorrowedReadProjectConnection() = default;
    /// The same connection however often it is asked.
    virtual ZR::Ref<ReadProjectConnection, ZR::AtomicCounter> GetConnection() = 0;
};

/// A write connection made and checked for one piece of work.
class KRCLIENT_EXPORT BorrowedWriteProjectConnection {
public:
    virtual ~BorrowedWriteProjectConnection() = default;
    /// The same connection however often it is asked.
    virtual ZR::Ref<WriteProjectConnection, ZR::AtomicCounter> GetConnection() = 0;
};

/// A temporary read connection, which takes no part in checks, for one piece of work.
class KRCLIENT_EXPORT BorrowedTemporaryReadProjectConnection {
public:
    virtual ~BorrowedTemporaryReadProjectConnection() = default;
    /// The same connection however often it is asked.
    virtual ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter> GetConnection() = 0;
};

/// The source of connections for the library's parts.
class KRCLIENT_EXPORT ProjectConnectionProvider {
public:
    virtual ~ProjectConnectionProvider() = default;
    /// Whether the Get operations can be used at all.
    virtual bool CanProvideConnection() = 0;
    /// Whether connections come from a ClientProjectConnectionManager.
    virtual bool IsClientConnectionProvider() = 0;
    /// Hands a new refresh token to the manager; see
    /// ClientProjectConnectionManager::ChangeRefreshToken.
    virtual void ChangeRefreshToken(const ZR::UniString& a, const ZR::UniString& b,
                                    const ZR::UniString& token) = 0;
    /// A new read connection; with check true it has been checked.
    virtual ZR::Ref<ReadProjectConnection, ZR::AtomicCounter> GetReadProjectConnection(
        bool check) = 0;
    /// A new holder with a new, checked read connection.
    virtual ZR::Ref<BorrowedReadProjectConnection, ZR::AtomicCounter>
    GetBorrowedReadProjectConnection() = 0;
    /// A new write connection; with check true it has been checked.
    virtual ZR::Ref<WriteProjectConnection, ZR::AtomicCounter> GetWriteProjectConnection(
        bool check) = 0;
    /// A new holder with a new, checked write connection.
    virtual ZR::Ref<BorrowedWriteProjectConnection, ZR::AtomicCounter>
    GetBorrowedWriteProjectConnection() = 0;
    /// A new temporary read connection.
    virtual ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter>
    GetTemporaryReadProjectConnection() = 0;
    /// A new holder with a new temporary read connection.
    virtual ZR::Ref<BorrowedTemporaryReadProjectConnection, ZR::AtomicCounter>
    GetBorrowedTemporaryReadProjectConnection() = 0;
};

/// Connections on one manager, which it doesn't own and which must outlive
/// it. It doesn't test the manager before it makes a connection: a caller
/// asks CanProvideConnection first. A copy holds the same manager.
class KRCLIENT_EXPORT ConnectionManagerBasedConnectionProvider : public ProjectConnectionProvider {
public:
    /// manager may be null.
    explicit ConnectionManagerBasedConnectionProvider(
        KRCB::ProjectConnectionManagerInterface* connectionManager)
        : manager(connectionManager) {}

    const KRCB::ProjectConnectionManagerInterface* GetProjectConnectionManager() const {
        return manager;
    }

    /// True if there is a manager.
    bool CanProvideConnection() override;
    /// True if the manager is a ClientProjectConnectionManager.
    bool IsClientConnectionProvider() override;
    /// Passed on to a ClientProjectConnectionManager; dropped for another manager.
    void ChangeRefreshToken(const ZR::UniString& a, const ZR::UniString& b,
                            const ZR::UniString& token) override;
    ZR::Ref<ReadProjectConnection, ZR::AtomicCounter> GetReadProjectConnection(bool check) override;
    ZR::Ref<BorrowedReadProjectConnection, ZR::AtomicCounter> GetBorrowedReadProjectConnection()
        override;
    ZR::Ref<WriteProjectConnection, ZR::AtomicCounter> GetWriteProjectConnection(
        bool check) override;
    ZR::Ref<BorrowedWriteProjectConnection, ZR::AtomicCounter> GetBorrowedWriteProjectConnection()
        override;
    ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter>
    GetTemporaryReadProjectConnection() override;
    ZR::Ref<BorrowedTemporaryReadProjectConnection, ZR::AtomicCounter>
    GetBorrowedTemporaryReadProjectConnection() override;

private:
    KRCB::ProjectConnectionManagerInterface* manager;
};

}  // namespace KRC
