#pragma once
/// @file
/// What a management server tells about itself when a client logs in.

#include "KRCB/KRClientBaseExport.h"
#include "ZR/UniString.h"

namespace Kerrow::PortalServer::Client::Management {

class KRCB_EXPORT ServerInfo {
public:
    ServerInfo() = default;
    ServerInfo(const ZR::UniString& url, const ZR::UniString& name, int major = 0, int minor = 0)
        : uniqueURL(url), friendlyName(name), majorVersion(major), minorVersion(minor) {}
    virtual ~ServerInfo() = default;

    /// The one URL under which the server knows itself, whatever address a
    /// client used to reach it. May be empty for servers that don't say.
    ZR::UniString uniqueURL;
    /// The name shown to people; may be empty.
    ZR::UniString friendlyName;
    int majorVersion = 0;
    int minorVersion = 0;
};

}  // namespace Kerrow::PortalServer::Client::Management
