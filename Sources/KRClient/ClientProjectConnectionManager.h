#pragma once
/// @file
/// The connection manager a host keeps for one open project: the base
/// client's manager tied to the project's cached record.

#include "IO/Location.h"
#include "KRCB/ProjectConnection.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/KRClientExport.h"
#include "ZR/UniString.h"

namespace KRC {

/// Holds the project's cached record and follows the writes of other records
/// of the same cache folder in this process. It must outlive every connection
/// and provider made on it.
class KRCLIENT_EXPORT ClientProjectConnectionManager : public KRCB::ProjectConnectionManager,
                                                       public CachedProjectInfoObserver {
public:
    /// Finds or makes the project's cached record, gives the manager the
    /// mailbox monitor and the user attributes of the record, and listens to
    /// record writes. Never throws past the base manager: a failure leaves
    /// the manager standing with what was done, and not listening. A
    /// location with no record and no way to make one gives a manager
    /// without a record.
    ClientProjectConnectionManager(const IO::Location& location, bool primary);
    ~ClientProjectConnectionManager() override;

    /// A new refresh token: into the login data store for the record's user,
    /// into the manager's location, and as this process's active connection
    /// (a and b go to KRCB::LoginDataStore::ActiveConnectionData as they are).
    /// Without a record nothing changes.
    void ChangeRefreshToken(const ZR::UniString& a, const ZR::UniString& b,
                            const ZR::UniString& token);
    /// Writes the record's file again, if there is a record. The argument
    /// isn't read.
    void RewriteCacheInfo(const IO::Location& location);

    /// Transactions committed through this manager.
    unsigned int GetTransactionCounter() const { return transactionCounter; }
    void SetTransactionCounter(unsigned int counter) { transactionCounter = counter; }

    /// Counts, then lets the base manager hear of it.
    void TransactionComitted() override;
    /// Another record of this cache folder was written: the manager's record
    /// takes its content, without a write of its own.
    void ContentWrittenToDisc(const CachedProjectInfo* written) override;

private:
    unsigned int transactionCounter = 0;
};

}  // namespace KRC
