#include "KRClient/ProjectConnectionProvider.h"

#include "KRClient/ClientProjectConnectionManager.h"

// The holders of borrowed connections make their connection at once, so a
// borrowed read or write connection has always been through a check.

class ConnectionManagerBasedBorrowedReadProjectConnection
    : public KRC::BorrowedReadProjectConnection {
public:
    explicit ConnectionManagerBasedBorrowedReadProjectConnection(
        KRCB::ProjectConnectionManagerInterface* manager)
        : connection(new KRC::ReadProjectConnection(manager, true)) {}
    ZR::Ref<KRC::ReadProjectConnection, ZR::AtomicCounter> GetConnection() override {
        return connection;
    }

private:
    ZR::Ref<KRC::ReadProjectConnection, ZR::AtomicCounter> connection;
};

class ConnectionManagerBasedBorrowedWriteProjectConnection
    : public KRC::BorrowedWriteProjectConnection {
public:
    explicit ConnectionManagerBasedBorrowedWriteProjectConnection(
        KRCB::ProjectConnectionManagerInterface* manager)
        : connection(new KRC::WriteProjectConnection(manager, true)) {}
    ZR::Ref<KRC::WriteProjectConnection, ZR::AtomicCounter> GetConnection() override {
        return connection;
    }

private:
    ZR::Ref<KRC::WriteProjectConnection, ZR::AtomicCounter> connection;
};

class ConnectionManagerBasedBorrowedTemporaryReadProjectConnection
    : public KRC::BorrowedTemporaryReadProjectConnection {
public:
    explicit ConnectionManagerBasedBorrowedTemporaryReadProjectConnection(
        KRCB::ProjectConnectionManagerInterface* manager)
        : connection(new KRCB::TemporaryReadProjectConnection(manager)) {}
    ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter> GetConnection() override {
        return connection;
    }

private:
    ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter> connection;
};

namespace KRC {

bool ConnectionManagerBasedConnectionProvider::CanProvideConnection() {
    return manager != nullptr;
}

bool ConnectionManagerBasedConnectionProvider::IsClientConnectionProvider() {
    return dynamic_cast<ClientProjectConnectionManager*>(manager) != nullptr;
}

void ConnectionManagerBasedConnectionProvider::ChangeRefreshToken(const ZR::UniString& a,
                                                                  const ZR::UniString& b,
                                                                  const ZR::UniString& token) {
    if (auto* client = dynamic_cast<ClientProjectConnectionManager*>(manager))
        client->ChangeRefreshToken(a, b, token);
}

ZR::Ref<ReadProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetReadProjectConnection(bool check) {
    return ZR::Ref<ReadProjectConnection, ZR::AtomicCounter>(
        new ReadProjectConnection(manager, check));
}

ZR::Ref<WriteProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetWriteProjectConnection(bool check) {
    return ZR::Ref<WriteProjectConnection, ZR::AtomicCounter>(
        new WriteProjectConnection(manager, check));
}

ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetTemporaryReadProjectConnection() {
    return ZR::Ref<KRCB::TemporaryReadProjectConnection, ZR::AtomicCounter>(
        new KRCB::TemporaryReadProjectConnection(manager));
}

ZR::Ref<BorrowedReadProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetBorrowedReadProjectConnection() {
    return ZR::Ref<BorrowedReadProjectConnection, ZR::AtomicCounter>(
        new ConnectionManagerBasedBorrowedReadProjectConnection(manager));
}

ZR::Ref<BorrowedWriteProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetBorrowedWriteProjectConnection() {
    return ZR::Ref<BorrowedWriteProjectConnection, ZR::AtomicCounter>(
        new ConnectionManagerBasedBorrowedWriteProjectConnection(manager));
}

ZR::Ref<BorrowedTemporaryReadProjectConnection, ZR::AtomicCounter>
ConnectionManagerBasedConnectionProvider::GetBorrowedTemporaryReadProjectConnection() {
    return ZR::Ref<BorrowedTemporaryReadProjectConnection, ZR::AtomicCounter>(
        new ConnectionManagerBasedBorrowedTemporaryReadProjectConnection(manager));
}

}  // namespace KRC
