#pragma once
/// @file
/// Sorters of path lists, servers and users: constructing one sorts the list
/// in place. Texts compare without regard to case; the sort is not stable.

#include "KRCB/LoginDataStore.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRC::UI {

/// Paths as lists of elements; a proper prefix goes first.
class KRCLIENT_EXPORT PathSorter {
public:
    explicit PathSorter(ZR::PagedArray<ZR::Array<ZR::UniString>, 8>& paths);
    bool operator()(const ZR::Array<ZR::UniString>& a, const ZR::Array<ZR::UniString>& b) const;
};

/// By friendly name (the URL where it has none), then by URL.
class KRCLIENT_EXPORT ServerSorter {
public:
    explicit ServerSorter(ZR::PagedArray<KRCB::LoginDataStore::Server, 8>& servers);
    bool operator()(const KRCB::LoginDataStore::Server& a,
                    const KRCB::LoginDataStore::Server& b) const;
};

/// By full name (the user name where it has none), then by user name.
class KRCLIENT_EXPORT UserSorter {
public:
    explicit UserSorter(ZR::PagedArray<KRCB::LoginDataStore::User, 8>& users);
    bool operator()(const KRCB::LoginDataStore::User& a, const KRCB::LoginDataStore::User& b) const;
};

}  // namespace KRC::UI
