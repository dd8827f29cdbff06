#pragma once
/// @file
/// What the data options tell their observers. The options themselves are
/// internal; the registry hears through this interface when the local data
/// folder moves.

#include "KRClient/KRClientExport.h"
#include "ZR/EventSource.h"

namespace KRC {

class KRCLIENT_EXPORT KRDataOptionsObserver : public ZR::EventObserver {
public:
    ~KRDataOptionsObserver() override = default;
    virtual void KRDataFolderChanged() {}
};

}  // namespace KRC
