#include "Network/Network.h"

#include <unistd.h>

#include <climits>
#include <mutex>

namespace Network {

namespace {
std::mutex& NameMutex() {
    static std::mutex mutex;
    return mutex;
}
ZR::UniString& OverrideName() {
    static ZR::UniString name;
    return name;
}
}  // namespace

ZR::UniString& GetClientComputerName(ZR::UniString& name) {
    {
        std::lock_guard<std::mutex> lock(NameMutex());
        if (!OverrideName().IsEmpty()) {
            name = OverrideName();
            return name;
        }
    }
    name = Socket::InternetAddress::GetLocalHostName();
    return name;
}

void SetClientComputerName(const ZR::UniString& name) {
    std::lock_guard<std::mutex> lock(NameMutex());
    OverrideName() = name;
}

namespace Socket {
ZR::UniString InternetAddress::GetLocalHostName() {
    char host[HOST_NAME_MAX + 1] = {};
    if (gethostname(host, sizeof host - 1) != 0) return ZR::UniString();
    return ZR::UniString(host);
}
}  // namespace Socket

}  // namespace Network
