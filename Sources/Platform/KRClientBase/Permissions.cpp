#include "KRCB/Entities.h"

namespace KRCB::Management::Entities {
namespace {

// Rights of a project stay below 2001; the checks of a connection compare
// only those. From 2001 on stand marks of folders and libraries, which the
// library tests by id.
struct Entry {
    PermissionID id;
    const char* text;
};
constexpr Entry kTable[] = {
    {1, "ReadProject"},    {2, "WriteProject"},     {3, "AdministerProject"},
    {4, "SendMail"},       {5, "ShareProject"},     {2001, "LibraryView"},
    {2002, "LibraryRead"}, {2005, "LibraryModify"}, {2006, "LibraryDelete"},
};

}  // namespace

PermissionIDMapper& PermissionIDMapper::GetInstance() {
    static PermissionIDMapper instance;
    return instance;
}

PermissionIDMapper::PermissionIDMapper() {
    for (const Entry& e : kTable) {
        mIds.Add(ZR::UniString(e.text), e.id);
        mTexts.Add(e.id, ZR::UniString(e.text));
    }
}

PermissionID PermissionIDMapper::GetPermissionID(const ZR::UniString& text) const {
    const PermissionID* id = mIds.Find(text);
    if (!id)
        throw ZR::IllegalArgumentException("Failed to map permission \"" + text.Std() + "\"",
                                           ZR_HERE);
    return *id;
}

ZR::UniString PermissionIDMapper::GetPermissionString(PermissionID id) const {
    const ZR::UniString* text = mTexts.Find(id);
    if (!text)
        throw ZR::IllegalArgumentException(
            ZR::UniString::Format("Failed to map permission id %d", static_cast<int>(id)), ZR_HERE);
    return *text;
}

void PermissionIDMapper::GetPermissionIDs(const ZR::HashSet<ZR::UniString>& texts,
                                          ZR::HashSet<PermissionID>& ids) const {
    for (const ZR::UniString& text : texts)
        if (const PermissionID* id = mIds.Find(text)) ids.Add(*id);
}

void PermissionIDMapper::GetPermissionIDsAsStrings(const ZR::HashSet<PermissionID>& ids,
                                                   ZR::HashSet<ZR::UniString>& texts) const {
    for (PermissionID id : ids)
        if (const ZR::UniString* text = mTexts.Find(id)) texts.Add(*text);
}

void PermissionIDMapper::GetAllPermissionStrings(ZR::Array<ZR::UniString>& texts) const {
    for (const auto& entry : mTexts) texts.Add(entry.second);
}

}  // namespace KRCB::Management::Entities
