#pragma once
/// @file
/// Names of the attributes of a project session on the server.

#include "KRClient/KRClientExport.h"
#include "ZR/UniString.h"

namespace KRC {

/// The library itself reads and writes ComputerName only: the computer that
/// holds the session. The others are the host's.
class KRCLIENT_EXPORT SessionAttributeNames {
public:
    /// "ComputerName": the name of the computer that holds the session, UTF-8.
    static const ZR::UniString ComputerName;
    /// "UserPreferencesData".
    static const ZR::UniString UserPreferencesData;
    /// "RevisionNumber".
    static const ZR::UniString RevisionNumber;
    /// "TransactionCount".
    static const ZR::UniString TransactionCount;
    /// "VisitCount".
    static const ZR::UniString VisitCount;
};

}  // namespace KRC
