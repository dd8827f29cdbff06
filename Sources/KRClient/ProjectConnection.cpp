#include "KRClient/ProjectConnection.h"

namespace KRC {

namespace {

using ClientRef = ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>;

// The one body of both kinds: the closed half holds the client.
void ReplaceClient(ClientRef& held, const ClientRef& client) {
    if (held.Get() == client.Get()) return;
    held = client;
}

}  // namespace

ReadProjectConnection::ReadProjectConnection(KRCB::ProjectConnectionManagerInterface* manager,
                                             bool check)
    : KRCB::ReadProjectConnectionBase(manager, ClientRef()), KRC::ProjectConnectionBase(manager) {
    if (check && ShouldCheck()) Check(true, false, false, false, nullptr, false);
}

ZR::UniString ReadProjectConnection::_GetSessionId() const {
    return KRCB::ProjectConnectionBase::GetSessionId();
}

ClientRef ReadProjectConnection::_GetResourceManagerClient() {
    return ClientReference();
}

void ReadProjectConnection::_SetResourceManagerClient(ClientRef& client) {
    ReplaceClient(ClientReference(), client);
}

KRCB::ProjectConnectionManagerInterface* ReadProjectConnection::_GetProjectConnectionManager() {
    return GetManager();
}

WriteProjectConnection::WriteProjectConnection(KRCB::ProjectConnectionManagerInterface* manager,
                                               bool check)
    : KRCB::WriteProjectConnectionBase(manager, ClientRef()), KRC::ProjectConnectionBase(manager) {
    if (check && ShouldCheck()) Check(true, false, false, false, nullptr, false);
}

ZR::UniString WriteProjectConnection::_GetSessionId() const {
    return KRCB::ProjectConnectionBase::GetSessionId();
}

ClientRef WriteProjectConnection::_GetResourceManagerClient() {
    return ClientReference();
}

void WriteProjectConnection::_SetResourceManagerClient(ClientRef& client) {
    ReplaceClient(ClientReference(), client);
}

KRCB::ProjectConnectionManagerInterface* WriteProjectConnection::_GetProjectConnectionManager() {
    return GetManager();
}

}  // namespace KRC
