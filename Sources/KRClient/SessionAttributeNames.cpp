#include "KRClient/SessionAttributeNames.h"

namespace KRC {

const ZR::UniString SessionAttributeNames::ComputerName("ComputerName");
const ZR::UniString SessionAttributeNames::UserPreferencesData("UserPreferencesData");
const ZR::UniString SessionAttributeNames::RevisionNumber("RevisionNumber");
const ZR::UniString SessionAttributeNames::TransactionCount("TransactionCount");
const ZR::UniString SessionAttributeNames::VisitCount("VisitCount");

}  // namespace KRC
