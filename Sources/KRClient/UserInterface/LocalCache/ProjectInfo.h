#pragma once
/// @file
/// One locally cached project as the host describes it.

#include <cstdint>

#include "KRClient/KRClientExport.h"
#include "ZR/UniString.h"

namespace KRC::UI::LocalCache {

/// Filled by the host from its cache records; the library only reads it.
struct KRCLIENT_EXPORT ProjectInfo {
    ZR::UniString id;
    ZR::UniString path;  ///< full server path, the project's name last
    int modifiedTimeUtc = 0;
    std::uint64_t size = 0;
    ZR::UniString version;  ///< "major.minor.third / build", maybe with a "(remark)"
    bool isPackedIntoTravelPackage = false;
    bool isUnpackedFromTravelPackage = false;
    bool hasChanges = false;
    bool isDetached = false;
    ZR::UniString hostTextA;  ///< the host's own; carried, never read
    ZR::UniString modelServerPath;
    ZR::UniString hostTextB;  ///< the host's own; carried, never read

    void Clear() { *this = ProjectInfo(); }
};

}  // namespace KRC::UI::LocalCache
