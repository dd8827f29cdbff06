#pragma once
/// @file
/// Typed attachments of mails. An attachment travels as a JSON document in a
/// body part of its mail; the factory rebuilds it by class name through the
/// foundation's class registry, so a host's own attachment classes come back
/// from received mails once their class information is registered (see
/// docs/API.md).

#include "JSON/JSON.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/Frame.h"
#include "ZR/Object.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRC {

class ClientMail;

/// Base of the attachments. Subclasses override the three questions to steer
/// the mail client, and SerializeJSON/DeserializeJSON for their own members.
class KRCLIENT_EXPORT MailAttachment : public ZR::Object {
public:
    static const ZR::ClassInfo classInfo;

    ~MailAttachment() override;
    /// A new copy, owned by the caller.
    virtual MailAttachment* Clone() const = 0;
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }

    /// The stored form: a frame of this class holding "ClassName", the class
    /// name and the custom properties as a stored hash table. -7003 for a
    /// frame of another main version.
    int Read(ZR::IChannel& channel) override;
    int Write(ZR::OChannel& channel) const override;

    /// The mail may be completed by the client itself.
    virtual bool IsAutomaticCompleteEnabled() const { return true; }
    /// A sent mail not yet completed stays open while its sender is gone.
    virtual bool IsSenderNeedToBeActive() const { return false; }
    /// For the host; the library never asks it.
    virtual bool IsRevokeAttachment() const { return false; }

    /// The attachment a JSON document describes, owned by the caller, or null.
    /// classNotFound tells the one null a caller treats apart: a class name
    /// that is not registered. A "headers" value that is no string throws
    /// ZR::NullReferenceException.
    static MailAttachment* CreateFromJSON(JSON::Ref<JSON::ObjectValue> object, bool& classNotFound);
    /// "className", "headers", then the subclass's members; empty if the
    /// subclass refuses.
    JSON::Ref<JSON::ObjectValue> ToJSON() const;

    /// Empty text for an unknown key.
    ZR::UniString GetCustomProperty(const ZR::UniString& key) const;
    /// Adds the pair or overwrites the value of the key.
    void SetCustomProperty(const ZR::UniString& key, const ZR::UniString& value);
    void DeleteCustomProperty(const ZR::UniString& key);
    const ZR::HashTable<ZR::UniString, ZR::UniString>& GetCustomProperties() const {
        return mCustomProperties;
    }

    /// False for an empty reference; true without attachments; otherwise
    /// whether every attachment says yes.
    static bool IsAutomaticCompleteEnabledInMail(const ZR::Ref<ClientMail>& mail);
    /// False for an empty reference or no attachments; otherwise whether any
    /// attachment says yes.
    static bool IsSenderNeedToBeActiveInMail(const ZR::Ref<ClientMail>& mail);
    static bool IsRevokeAttachmentInMail(const ZR::Ref<ClientMail>& mail);

protected:
    MailAttachment() = default;
    MailAttachment(const MailAttachment&) = default;
    MailAttachment& operator=(const MailAttachment&) = default;

    /// Adds the subclass's members to the document; false refuses.
    virtual bool SerializeJSON(JSON::Ref<JSON::ObjectValue> object) const;
    /// Takes the subclass's members from the document; false refuses it.
    virtual bool DeserializeJSON(JSON::Ref<JSON::ObjectValue> object);

private:
    int ReadVersion1(ZR::IChannel& channel);
    int WriteVersion1(ZR::OChannel& channel) const;

    ZR::HashTable<ZR::UniString, ZR::UniString> mCustomProperties;
};

/// The library's own attachment class, for tests and as a model. Its string
/// lives in memory only: neither JSON nor the stored form carries it.
class KRCLIENT_EXPORT TestAttachment : public MailAttachment {
public:
    static const ZR::ClassInfo classInfo;

    TestAttachment() = default;
    TestAttachment(const TestAttachment&) = default;
    TestAttachment& operator=(const TestAttachment&) = default;

    MailAttachment* Clone() const override { return new TestAttachment(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    int Read(ZR::IChannel& channel) override;
    int Write(ZR::OChannel& channel) const override;

    const ZR::UniString& GetString() const { return mString; }
    void SetString(const ZR::UniString& text) { mString = text; }

protected:
    bool SerializeJSON(JSON::Ref<JSON::ObjectValue> object) const override;
    bool DeserializeJSON(JSON::Ref<JSON::ObjectValue> object) override;

private:
    static ZR::Object* ConstructorFunction();
    int ReadVersion1(ZR::IChannel& channel) { return MailAttachment::Read(channel); }
    int WriteVersion1(ZR::OChannel& channel) const { return MailAttachment::Write(channel); }

    ZR::UniString mString;
};

}  // namespace KRC
