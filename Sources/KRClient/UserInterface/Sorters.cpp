#include "KRClient/UserInterface/Sorters.h"

#include <algorithm>

namespace KRC::UI {

namespace {
// Display text first; on a tie the unique key decides.
bool ByDisplayThenKey(const ZR::UniString& displayA, const ZR::UniString& keyA,
                      const ZR::UniString& displayB, const ZR::UniString& keyB) {
    const ZR::UniString& shownA = displayA.IsEmpty() ? keyA : displayA;
    const ZR::UniString& shownB = displayB.IsEmpty() ? keyB : displayB;
    switch (shownA.Compare(shownB, ZR::kIgnoreCase)) {
        case 0:
            return true;
        case 2:
            return false;
        default:
            return keyA.Compare(keyB, ZR::kIgnoreCase) == 0;
    }
}
}  // namespace

PathSorter::PathSorter(ZR::PagedArray<ZR::Array<ZR::UniString>, 8>& paths) {
    std::sort(paths.Std().begin(), paths.Std().end(), *this);
}

bool PathSorter::operator()(const ZR::Array<ZR::UniString>& a,
                            const ZR::Array<ZR::UniString>& b) const {
    for (std::size_t i = 0; i < b.GetSize(); ++i) {
        if (i >= a.GetSize()) return true;
        switch (a[i].Compare(b[i], ZR::kIgnoreCase)) {
            case 0:
                return true;
            case 2:
                return false;
            default:
                break;
        }
    }
    return false;
}

ServerSorter::ServerSorter(ZR::PagedArray<KRCB::LoginDataStore::Server, 8>& servers) {
    std::sort(servers.Std().begin(), servers.Std().end(), *this);
}

bool ServerSorter::operator()(const KRCB::LoginDataStore::Server& a,
                              const KRCB::LoginDataStore::Server& b) const {
    return ByDisplayThenKey(a.GetFriendlyName(), a.GetUniqueURL(), b.GetFriendlyName(),
                            b.GetUniqueURL());
}

UserSorter::UserSorter(ZR::PagedArray<KRCB::LoginDataStore::User, 8>& users) {
    std::sort(users.Std().begin(), users.Std().end(), *this);
}

bool UserSorter::operator()(const KRCB::LoginDataStore::User& a,
                            const KRCB::LoginDataStore::User& b) const {
    return ByDisplayThenKey(a.GetFullName(), a.GetUserName(), b.GetFullName(), b.GetUserName());
}

}  // namespace KRC::UI
