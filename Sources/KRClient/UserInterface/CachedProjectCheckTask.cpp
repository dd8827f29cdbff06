#include "KRClient/UserInterface/CachedProjectCheckTask.h"

#include <atomic>

namespace KRC::UI {
namespace {
std::atomic<bool> gEnabled{true};
}

void CachedProjectCheckTask::SetEnabled(bool enabled) {
    gEnabled = enabled;
}
bool CachedProjectCheckTask::IsEnabled() {
    return gEnabled;
}

}  // namespace KRC::UI
