#pragma once
/// @file
/// Read and write connections: the base client's closed halves joined to the
/// library's check.

#include "KRCB/Clients.h"
#include "KRCB/ProjectConnection.h"
#include "KRClient/KRClientExport.h"
#include "KRClient/ProjectConnectionBase.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC {

/// A connection for reading a project. Made with check true, it has been
/// through a check when the constructor returns (unless the base client says
/// the manager can't be checked); made with check false, it stands at
/// CheckNotChecked and the first IsOpen checks it.
class KRCLIENT_EXPORT ReadProjectConnection : public KRCB::ReadProjectConnectionBase,
                                              public KRC::ProjectConnectionBase {
public:
    /// What the check throws outside its steps leaves the constructor.
    ReadProjectConnection(KRCB::ProjectConnectionManagerInterface* manager, bool check);

    /// See ProjectConnectionBase::IsOpen.
    bool IsOpen(KRC::ProjectConnectionBase::CheckResult* result) {
        return KRC::ProjectConnectionBase::IsOpen(result);
    }
    /// The session of the closed half.
    using KRCB::ReadProjectConnectionBase::GetSessionId;
    /// The session of the closed half, for both halves.
    ZR::UniString _GetSessionId() const override;

protected:
    ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter> _GetResourceManagerClient()
        override;
    void _SetResourceManagerClient(
        ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>& client) override;
    KRCB::ProjectConnectionManagerInterface* _GetProjectConnectionManager() override;
};

/// A connection for changing a project; as ReadProjectConnection, and a
/// project in state 2 (read only) makes its check answer CheckProjectNotWritable.
class KRCLIENT_EXPORT WriteProjectConnection : public KRCB::WriteProjectConnectionBase,
                                               public KRC::ProjectConnectionBase {
public:
    /// What the check throws outside its steps leaves the constructor.
    WriteProjectConnection(KRCB::ProjectConnectionManagerInterface* manager, bool check);

    /// See ProjectConnectionBase::IsOpen.
    bool IsOpen(KRC::ProjectConnectionBase::CheckResult* result) {
        return KRC::ProjectConnectionBase::IsOpen(result);
    }
    /// The session of the closed half.
    using KRCB::WriteProjectConnectionBase::GetSessionId;
    /// The session of the closed half, for both halves.
    ZR::UniString _GetSessionId() const override;

protected:
    ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter> _GetResourceManagerClient()
        override;
    void _SetResourceManagerClient(
        ZR::Ref<KRCB::Management::ResourceManagerClient, ZR::AtomicCounter>& client) override;
    KRCB::ProjectConnectionManagerInterface* _GetProjectConnectionManager() override;
};

}  // namespace KRC
