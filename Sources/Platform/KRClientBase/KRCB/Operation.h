#pragma once
/// @file
/// Marks of server work under way, and the process-wide cache of what the
/// server has already been asked.

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_set>

#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB::Operation {

/// Marks an operation as under way for as long as it stands. A host asks
/// IsBusy to show that the service is working; operations that run in the
/// background are marked without making the service busy.
class KRCB_EXPORT OperationGuard {
public:
    /// busy: whether the operation makes the service busy for the host.
    OperationGuard(const ZR::UniString& name, bool busy);
    ~OperationGuard();
    OperationGuard(const OperationGuard&) = delete;
    OperationGuard& operator=(const OperationGuard&) = delete;

    const ZR::UniString& GetName() const { return mName; }

    /// True while a guard made with busy true stands, on any thread.
    static bool IsBusy();
    /// Names of the operations under way, the oldest first; a name appears
    /// once for each guard of that name.
    static ZR::PagedArray<ZR::UniString> GetRunningOperations();

private:
    ZR::UniString mName;
    bool mBusy;
    std::uint64_t mSerial;
};

/// Which users the server has already given this process, per server and
/// logged-in user, so that a batch fetches only the ones it lacks. Safe to use
/// from several threads.
class KRCB_EXPORT OperationCache {
public:
    static OperationCache& GetInstance();

    bool CacheEnabled() const;
    /// Turning the cache off forgets what it held.
    void SetCacheEnabled(bool enabled);

    /// Splits ownerIds into known (fetched before) and missing, each in the
    /// order of ownerIds, after emptying both. False, with both empty, when the
    /// cache can't say: it is off, or server or user is empty.
    bool ContainsUsers(const ZR::UniString& server, const ZR::UniString& user,
                       const ZR::Array<ZR::UniString>& ownerIds, ZR::Array<ZR::UniString>& known,
                       ZR::Array<ZR::UniString>& missing) const;
    /// Records users the server gave to that server's client of user. Does
    /// nothing while the cache is off.
    void AddUsers(const ZR::UniString& server, const ZR::UniString& user,
                  const ZR::Array<ZR::UniString>& ownerIds);
    /// Forgets everything (a new login, a test).
    void Clear();

private:
    OperationCache() = default;
    mutable std::mutex mLock;
    bool mEnabled = true;
    /// Server, user and owner id, joined by NUL characters.
    std::unordered_set<std::string> mUsers;
};

}  // namespace KRCB::Operation

namespace KRCB {

/// Marks background work of the service, such as a mail request, as under
/// way for as long as it stands; with busy true the service is busy for the
/// host too (OperationGuard::IsBusy).
class KRCB_EXPORT BusyStateGuard {
public:
    explicit BusyStateGuard(bool busy) : mGuard("BusyState", busy) {}
    /// The number of guards standing now, on any thread.
    static int GetCount();

private:
    Operation::OperationGuard mGuard;
};

}  // namespace KRCB
