#pragma once
/// @file
/// Orders server resources and local projects by up to two keys.

#include <cstdint>

#include "KRClient/KRClientExport.h"
#include "KRClient/UserInterface/ISortableElement.h"

namespace KRC::UI {

/// A strict weak ordering for std::sort. Texts compare without regard to
/// case, so elements that differ only in case are equivalent.
class KRCLIENT_EXPORT ResourceComparer {
public:
    enum SortCriteria {
        Name = 1,
        Modified = 2,
        Size = 3,
        ModelServer = 4,
        ResourceType = 5,
        Path = 6
    };
    /// Deliberately not the values of ZR::UniString::Compare.
    enum CompareResult { Less = 1, Equal = 2, Greater = 3 };

    /// One criterion when first equals second; the second flag then plays no part.
    ResourceComparer(SortCriteria first, bool firstAscending, SortCriteria second,
                     bool secondAscending);

    /// True when a goes before b.
    bool operator()(const ISortableElement& a, const ISortableElement& b) const;

private:
    static CompareResult Compare(SortCriteria criterion, const ISortableElement& a,
                                 const ISortableElement& b);
    static CompareResult CompareByName(const ISortableElement& a, const ISortableElement& b);
    static CompareResult CompareByModified(const ISortableElement& a, const ISortableElement& b);
    static CompareResult CompareBySize(const ISortableElement& a, const ISortableElement& b);
    static CompareResult CompareByModelServer(const ISortableElement& a, const ISortableElement& b);
    static CompareResult CompareByResourceType(const ISortableElement& a,
                                               const ISortableElement& b);
    static CompareResult CompareByPath(const ISortableElement& a, const ISortableElement& b);
    static CompareResult GetCompareResult(int uniStringResult);

    SortCriteria mCriteria[2];
    bool mAscending[2];
    std::uint16_t mCriteriaCount;
};

}  // namespace KRC::UI
