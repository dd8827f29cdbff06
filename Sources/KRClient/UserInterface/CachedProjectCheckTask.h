#pragma once
#include "KRClient/KRClientExport.h"

namespace KRC::UI {

class KRCLIENT_EXPORT CachedProjectCheckTask {
public:
    /// Process-wide switch of the check; true until the library has started,
    /// then whatever the base client's start answered.
    static void SetEnabled(bool enabled);
    static bool IsEnabled();
};

}  // namespace KRC::UI
