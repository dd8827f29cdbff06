#pragma once
// The attachment class of the random mail sequences: it keeps its mail from
// being completed by the client. The killed host worker registers it too, so
// that the mails it rewrites keep theirs.

#include "KRClient/MailClient/MailAttachment.h"
#include "ZR/Object.h"

namespace mailrandom {

class Pinned : public KRC::MailAttachment {
public:
    static const ZR::ClassInfo classInfo;
    MailAttachment* Clone() const override { return new Pinned(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    bool IsAutomaticCompleteEnabled() const override { return false; }
    static ZR::Object* Make() { return new Pinned; }
};
inline const ZR::ClassInfo Pinned::classInfo("MailRandom::Pinned",
                                             "5E1D0C0A-0000-4000-8000-00000000a7e1", 1, 0,
                                             &KRC::MailAttachment::classInfo, &Pinned::Make);

}  // namespace mailrandom
