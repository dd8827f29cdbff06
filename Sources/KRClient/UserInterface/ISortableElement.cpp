#include "KRClient/UserInterface/ISortableElement.h"

#include "KRCB/Paths.h"

namespace KRC::UI {

using namespace KRCB::Management::Entities;

ZR::UniString SortableProjectInfo::GetSortName() const {
    return KRCB::Management::GetProjectName(mInfo.path);
}

int SortableResource::GetSortResourceType() const {
    const Resource* resource = &*mResource;
    if (dynamic_cast<const Project*>(resource)) return 1;
    if (dynamic_cast<const Library*>(resource)) return 2;
    return 3;
}

}  // namespace KRC::UI
