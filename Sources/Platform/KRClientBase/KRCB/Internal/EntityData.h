#pragma once
// Entities in the transport's data form, read as a server sends them. A
// value of the wrong shape is the server's fault: PortalServerClientException.

#include "KRCB/Entities.h"
#include "KRCB/Internal/Transport.h"
#include "Kerrow/ServerInfo.h"

namespace KRCB::Internal {

/// A member of an answer; empty or 0 if it is missing or of another type.
std::string Text(const Data& data, const char* key);
int Number(const Data& data, const char* key);

[[noreturn]] void BadAnswer(const char* op, const std::string& what);

ZR::Ref<Management::Entities::Project> ProjectFromData(const Data& data, const char* op);
ZR::Ref<Management::Entities::Library> LibraryFromData(const Data& data, const char* op);
ZR::Ref<Management::Entities::ProjectFolder> FolderFromData(const Data& data, const char* op);
ZR::Ref<Management::Entities::ModelServer> ModelServerFromData(const Data& data, const char* op);
Kerrow::PortalServer::Client::Management::ServerInfo ServerInfoFromData(const Data& data);

}  // namespace KRCB::Internal
