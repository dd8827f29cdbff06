#pragma once
/// @file
/// Names of this computer on the network.

#include "Network/NetworkExport.h"
#include "ZR/UniString.h"

namespace Network {

/// The name under which this computer is known to the service: the name set
/// by SetClientComputerName if any, otherwise the host name. Answers name.
NETWORK_EXPORT ZR::UniString& GetClientComputerName(ZR::UniString& name);

/// Makes the process act as the computer of that name (tests, tools and the
/// demo play several computers on one machine); an empty name undoes it.
NETWORK_EXPORT void SetClientComputerName(const ZR::UniString& name);

namespace Socket {
class NETWORK_EXPORT InternetAddress {
public:
    /// The host name of this machine; empty if the system doesn't say.
    static ZR::UniString GetLocalHostName();
};
}  // namespace Socket

}  // namespace Network
