#pragma once
/// @file
/// The session attribute that binds a project session to a computer: the
/// computer's name as UTF-8 bytes, without a closing zero.

#include "KRCB/Clients.h"
#include "ZR/UniString.h"

namespace KRC::Internal {

/// The name stored in the session, or an empty text if there is none.
ZR::UniString ReadSessionComputer(Kerrow::Server::Project::Client::ProjectClient& client,
                                  const ZR::UniString& sessionId);
void WriteSessionComputer(Kerrow::Server::Project::Client::ProjectClient& client,
                          const ZR::UniString& sessionId, const ZR::UniString& computer);
/// The name of this computer as the service knows it.
ZR::UniString ThisComputer();

}  // namespace KRC::Internal
