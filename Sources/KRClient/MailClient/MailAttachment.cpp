#include "KRClient/MailClient/MailAttachment.h"

#include <memory>

#include "KRClient/MailClient/ClientMail.h"
#include "ZR/Exceptions.h"

namespace KRC {

const ZR::ClassInfo MailAttachment::classInfo("MailAttachment",
                                              "DEB8D7EF-8B52-4BB4-B6D2-80E4EEA8F51C", 1, 0);
const ZR::ClassInfo TestAttachment::classInfo("KRC::TestAttachment",
                                              "AEB464CD-B012-4063-A922-6B43D68E8947", 1, 0,
                                              &MailAttachment::classInfo,
                                              &TestAttachment::ConstructorFunction);

namespace {

const ZR::UniString kClassNameKey("ClassName");

}  // namespace

MailAttachment::~MailAttachment() = default;

MailAttachment* MailAttachment::CreateFromJSON(JSON::Ref<JSON::ObjectValue> object,
                                               bool& classNotFound) {
    classNotFound = false;
    if (!object) return nullptr;
    auto className = object->GetMandatoryMember<JSON::StringValue>("className");
    if (!className || className->GetValue().IsEmpty()) return nullptr;
    if (!ZR::classManager.Find(className->GetValue())) {
        classNotFound = true;
        return nullptr;
    }
    std::unique_ptr<ZR::Object> created(ZR::New(className->GetValue()));
    if (!created) return nullptr;
    auto* attachment = dynamic_cast<MailAttachment*>(created.get());
    if (!attachment) return nullptr;
    auto headers = object->GetMandatoryMember<JSON::ArrayValue>("headers");
    if (!headers) return nullptr;
    for (std::size_t i = 0; i < headers->GetSize(); ++i) {
        auto header = JSON::ObjectValue::Cast(headers->Get(i));
        if (!header || header->GetSize() != 1) return nullptr;
        // A value that is no string is dereferenced empty: it throws.
        auto value = JSON::StringValue::Cast(header->Get(0));
        attachment->mCustomProperties.Add(header->GetName(0), value->GetValue());
    }
    if (!attachment->DeserializeJSON(object)) return nullptr;
    created.release();
    return attachment;
}

JSON::Ref<JSON::ObjectValue> MailAttachment::ToJSON() const {
    JSON::Ref<JSON::ObjectValue> object(new JSON::ObjectValue);
    object->Add("className", GetClassName());
    JSON::Ref<JSON::ArrayValue> headers(new JSON::ArrayValue);
    for (const auto& [key, value] : mCustomProperties) {
        JSON::Ref<JSON::ObjectValue> header(new JSON::ObjectValue);
        header->Add(key, value);
        headers->Add(header);
    }
    object->Add("headers", headers);
    if (!SerializeJSON(object)) return JSON::Ref<JSON::ObjectValue>();
    return object;
}

ZR::UniString MailAttachment::GetCustomProperty(const ZR::UniString& key) const {
    const ZR::UniString* value = mCustomProperties.Find(key);
    return value ? *value : ZR::UniString();
}

void MailAttachment::SetCustomProperty(const ZR::UniString& key, const ZR::UniString& value) {
    mCustomProperties.Set(key, value);
}

void MailAttachment::DeleteCustomProperty(const ZR::UniString& key) {
    mCustomProperties.Remove(key);
}

bool MailAttachment::IsAutomaticCompleteEnabledInMail(const ZR::Ref<ClientMail>& mail) {
    if (!mail) return false;
    for (const auto& entry : mail->GetAttachments())
        if (!entry.second->IsAutomaticCompleteEnabled()) return false;
    return true;
}

bool MailAttachment::IsSenderNeedToBeActiveInMail(const ZR::Ref<ClientMail>& mail) {
    if (!mail) return false;
    for (const auto& entry : mail->GetAttachments())
        if (entry.second->IsSenderNeedToBeActive()) return true;
    return false;
}

bool MailAttachment::IsRevokeAttachmentInMail(const ZR::Ref<ClientMail>& mail) {
    if (!mail) return false;
    for (const auto& entry : mail->GetAttachments())
        if (entry.second->IsRevokeAttachment()) return true;
    return false;
}

bool MailAttachment::SerializeJSON(JSON::Ref<JSON::ObjectValue>) const {
    return true;
}

bool MailAttachment::DeserializeJSON(JSON::Ref<JSON::ObjectValue>) {
    return true;
}

int MailAttachment::Read(ZR::IChannel& channel) {
    ZR::InputFrame frame(channel, classInfo);
    if (frame.GetStatus()) return frame.GetStatus();
    if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
    if (int status = ReadVersion1(frame)) return status;
    return frame.Close();
}

int MailAttachment::Write(ZR::OChannel& channel) const {
    ZR::OutputFrame frame(channel, classInfo);
    if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
    if (int status = WriteVersion1(frame)) return status;
    return frame.Close();
}

int MailAttachment::ReadVersion1(ZR::IChannel& channel) {
    // Both texts are written for readers of the form; this one needs neither.
    ZR::UniString key, className;
    if (int status = channel.Read(key)) return status;
    if (int status = channel.Read(className)) return status;
    return ZR::ReadHashTable(channel, mCustomProperties);
}

int MailAttachment::WriteVersion1(ZR::OChannel& channel) const {
    if (int status = channel.Write(kClassNameKey)) return status;
    if (int status = channel.Write(GetClassInfo().GetName())) return status;
    return ZR::WriteHashTable(channel, mCustomProperties);
}

ZR::Object* TestAttachment::ConstructorFunction() {
    try {
        return new TestAttachment;
    } catch (...) {
        return nullptr;
    }
}

int TestAttachment::Read(ZR::IChannel& channel) {
    ZR::InputFrame frame(channel, classInfo);
    if (frame.GetStatus()) return frame.GetStatus();
    if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
    if (int status = ReadVersion1(frame)) return status;
    return frame.Close();
}

int TestAttachment::Write(ZR::OChannel& channel) const {
    ZR::OutputFrame frame(channel, classInfo);
    if (frame.GetMajorVersion() != 1) return ZR::kGeneralErrorCode;
    if (int status = WriteVersion1(frame)) return status;
    return frame.Close();
}

bool TestAttachment::SerializeJSON(JSON::Ref<JSON::ObjectValue>) const {
    return true;
}

bool TestAttachment::DeserializeJSON(JSON::Ref<JSON::ObjectValue>) {
    return true;
}

}  // namespace KRC
