#include "KRClient/UserInterface/ResourceComparer.h"

namespace KRC::UI {

namespace {
template <typename T>
ResourceComparer::CompareResult Order(const T& a, const T& b) {
    if (a < b) return ResourceComparer::Less;
    if (b < a) return ResourceComparer::Greater;
    return ResourceComparer::Equal;
}
}  // namespace

ResourceComparer::ResourceComparer(SortCriteria first, bool firstAscending, SortCriteria second,
                                   bool secondAscending)
    : mCriteria{first, second},
      mAscending{firstAscending, secondAscending},
      mCriteriaCount(first == second ? 1 : 2) {}

bool ResourceComparer::operator()(const ISortableElement& a, const ISortableElement& b) const {
    for (std::uint16_t i = 0; i < mCriteriaCount; ++i) {
        switch (Compare(mCriteria[i], a, b)) {
            case Less:
                return mAscending[i];
            case Greater:
                return !mAscending[i];
            case Equal:
                break;
        }
    }
    return false;
}

ResourceComparer::CompareResult ResourceComparer::Compare(SortCriteria criterion,
                                                          const ISortableElement& a,
                                                          const ISortableElement& b) {
    switch (criterion) {
        case Modified:
            return CompareByModified(a, b);
        case Size:
            return CompareBySize(a, b);
        case ModelServer:
            return CompareByModelServer(a, b);
        case ResourceType:
            return CompareByResourceType(a, b);
        case Path:
            return CompareByPath(a, b);
        case Name:
        default:
            return CompareByName(a, b);
    }
}

ResourceComparer::CompareResult ResourceComparer::CompareByName(const ISortableElement& a,
                                                                const ISortableElement& b) {
    return GetCompareResult(a.GetSortName().Compare(b.GetSortName(), ZR::kIgnoreCase));
}
ResourceComparer::CompareResult ResourceComparer::CompareByModified(const ISortableElement& a,
                                                                    const ISortableElement& b) {
    return Order(a.GetSortModifiedTimeUtc(), b.GetSortModifiedTimeUtc());
}
ResourceComparer::CompareResult ResourceComparer::CompareBySize(const ISortableElement& a,
                                                                const ISortableElement& b) {
    return Order(a.GetSortSize(), b.GetSortSize());
}
ResourceComparer::CompareResult ResourceComparer::CompareByModelServer(const ISortableElement& a,
                                                                       const ISortableElement& b) {
    return GetCompareResult(
        a.GetSortModelServerPath().Compare(b.GetSortModelServerPath(), ZR::kIgnoreCase));
}
ResourceComparer::CompareResult ResourceComparer::CompareByResourceType(const ISortableElement& a,
                                                                        const ISortableElement& b) {
    return Order(a.GetSortResourceType(), b.GetSortResourceType());
}
ResourceComparer::CompareResult ResourceComparer::CompareByPath(const ISortableElement& a,
                                                                const ISortableElement& b) {
    return GetCompareResult(a.GetSortPath().Compare(b.GetSortPath(), ZR::kIgnoreCase));
}

ResourceComparer::CompareResult ResourceComparer::GetCompareResult(int uniStringResult) {
    switch (uniStringResult) {
        case 0:
            return Less;
        case 2:
            return Greater;
        default:
            return Equal;
    }
}

}  // namespace KRC::UI
