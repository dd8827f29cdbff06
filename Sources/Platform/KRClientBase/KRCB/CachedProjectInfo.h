#pragma once
/// @file
/// The base client's view of a cached project record. It reads and changes the
/// record only through the protected virtual operations, which the library's
/// record implements.

#include <cstdint>

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB {

class KRCB_EXPORT CachedProjectInfo {
public:
    virtual ~CachedProjectInfo() = default;

    std::int32_t GetLastModificationTime() const { return _GetLastModificationTime(); }
    std::int16_t GetPort() const { return _GetPort(); }
    ZR::UniString GetServerName() const { return _GetServerName(); }
    ZR::UniString GetPortalServerUrl() const { return _GetPortalServerUrl(); }
    ZR::UniString GetModelServerPath() const { return _GetModelServerPath(); }
    ZR::UniString GetProjectPath() const { return _GetProjectPath(); }
    ZR::UniString GetRefreshToken() const { return _GetRefreshToken(); }
    ZR::UniString GetUserName_() const { return _GetUserName_(); }
    ZR::UniString GetLoginName() const { return _GetLoginName(); }
    ZR::UniString GetUserId() const { return _GetUserId(); }
    ZR::UniString GetSessionId() const { return _GetSessionId(); }
    ZR::UniString GetProjectId() const { return _GetProjectId(); }
    bool IsChanges() const { return _IsChanges(); }
    bool IsReservation() const { return _IsReservation(); }
    const IO::Location& GetCacheFolderLocation() const { return _GetCacheFolderLocation(); }
    std::int32_t GetLogonId() const { return _GetLogonId(); }
    const ZR::HashSet<ZR::UniString>& GetPermissions() const { return _GetPermissions(); }
    void GetCacheEntryList(ZR::Array<IO::Name>& entries) const { _GetCacheEntryList(entries); }
    void SetChanges(bool changes) { _SetChanges(changes); }
    void SetSessionId(const ZR::UniString& id) { _SetSessionId(id); }
    void SetProjectForcedOffline(bool offline) { _SetProjectForcedOffline(offline); }
    bool IsProjectForcedOffline() const { return _IsProjectForcedOffline(); }
    std::int32_t GetXMLVersion() const { return _GetXMLVersion(); }

protected:
    virtual std::int32_t _GetLastModificationTime() const = 0;
    virtual std::int16_t _GetPort() const = 0;
    virtual ZR::UniString _GetServerName() const = 0;
    virtual ZR::UniString _GetPortalServerUrl() const = 0;
    virtual ZR::UniString _GetModelServerPath() const = 0;
    virtual ZR::UniString _GetProjectPath() const = 0;
    virtual ZR::UniString _GetRefreshToken() const = 0;
    virtual ZR::UniString _GetUserName_() const = 0;
    virtual ZR::UniString _GetLoginName() const = 0;
    virtual ZR::UniString _GetUserId() const = 0;
    virtual ZR::UniString _GetSessionId() const = 0;
    virtual ZR::UniString _GetProjectId() const = 0;
    virtual bool _IsChanges() const = 0;
    virtual bool _IsReservation() const = 0;
    virtual const IO::Location& _GetCacheFolderLocation() const = 0;
    virtual std::int32_t _GetLogonId() const = 0;
    virtual const ZR::HashSet<ZR::UniString>& _GetPermissions() const = 0;
    virtual void _GetCacheEntryList(ZR::Array<IO::Name>& entries) const = 0;
    virtual void _SetChanges(bool changes) = 0;
    virtual void _SetSessionId(const ZR::UniString& id) = 0;
    virtual void _SetProjectForcedOffline(bool offline) = 0;
    virtual bool _IsProjectForcedOffline() const = 0;
    virtual std::int32_t _GetXMLVersion() const = 0;
};

}  // namespace KRCB
