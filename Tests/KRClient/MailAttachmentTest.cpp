#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/MailAttachment.h"
#include "ZR/Exceptions.h"

namespace {

// An attachment that answers the three questions the other way, and refuses
// a document whose "refuse" member is true.
class Sticky : public KRC::MailAttachment {
public:
    static const ZR::ClassInfo classInfo;
    MailAttachment* Clone() const override { return new Sticky(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    bool IsAutomaticCompleteEnabled() const override { return false; }
    bool IsSenderNeedToBeActive() const override { return true; }
    bool IsRevokeAttachment() const override { return true; }
    bool refuse = false;

protected:
    bool SerializeJSON(JSON::Ref<JSON::ObjectValue> object) const override {
        object->Add("extra", ZR::UniString("x"));
        return !refuse;
    }
    bool DeserializeJSON(JSON::Ref<JSON::ObjectValue> object) override {
        return !object->GetMandatoryMember<JSON::BooleanValue>("refuse");
    }

private:
    static ZR::Object* Make() { return new Sticky; }
};
const ZR::ClassInfo Sticky::classInfo("Test::Sticky", "0A0B0C0D-0000-4000-8000-000000000001", 1, 0,
                                      &KRC::MailAttachment::classInfo, &Sticky::Make);

class NoAttachment : public ZR::Object {
public:
    static const ZR::ClassInfo classInfo;
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    static ZR::Object* Make() { return new NoAttachment; }
};
const ZR::ClassInfo NoAttachment::classInfo("Test::NoAttachment",
                                            "0A0B0C0D-0000-4000-8000-000000000002", 1, 0, nullptr,
                                            &NoAttachment::Make);

JSON::Ref<JSON::ObjectValue> Doc(const std::string& text) {
    JSON::JDOMParser parser;
    return JSON::ObjectValue::Cast(parser.Parse(text, false));
}

std::string Props(const KRC::MailAttachment& a) {
    std::string s;
    for (const auto& [k, v] : a.GetCustomProperties()) s += k.Std() + "=" + v.Std() + ";";
    return s;
}

TEST(MailAttachmentTest, FactoryRebuildsRegisteredAttachmentsOnly) {
    struct Case {
        std::string json;
        const char* className;  // null: no attachment
        bool classNotFound;
        std::string props;
    } cases[] = {
        {R"({"className":"KRC::TestAttachment","headers":[]})", "KRC::TestAttachment", false, ""},
        {R"({"className":"KRC::TestAttachment","headers":[{"k":"1"},{"j":""},{"k":"2"}],"more":0})",
         "KRC::TestAttachment", false, "k=1;j=;"},  // a repeated key keeps its first value
        {R"({"className":"","headers":[]})", nullptr, false, ""},
        {R"({"headers":[]})", nullptr, false, ""},
        {R"({"className":"Nope","headers":[]})", nullptr, true, ""},
        {R"({"className":"MailAttachment","headers":[]})", nullptr, true, ""},  // abstract
        {R"({"className":"Test::NoAttachment","headers":[]})", nullptr, false, ""},
        {R"({"className":"KRC::TestAttachment","headers":{}})", nullptr, false, ""},
        {R"({"className":"KRC::TestAttachment","headers":[{"a":"1","b":"2"}]})", nullptr, false,
         ""},
        {R"({"className":"KRC::TestAttachment","headers":["a"]})", nullptr, false, ""},
        {R"({"className":"Test::Sticky","headers":[],"refuse":true})", nullptr, false, ""},
    };
    for (const Case& c : cases) {
        bool classNotFound = !c.classNotFound;
        std::unique_ptr<KRC::MailAttachment> a(
            KRC::MailAttachment::CreateFromJSON(Doc(c.json), classNotFound));
        EXPECT_EQ(classNotFound, c.classNotFound) << c.json;
        ASSERT_EQ(a != nullptr, c.className != nullptr) << c.json;
        if (a) {
            EXPECT_EQ(a->GetClassName(), c.className);
            EXPECT_EQ(Props(*a), c.props);
        }
    }
    bool classNotFound = true;
    EXPECT_EQ(KRC::MailAttachment::CreateFromJSON(nullptr, classNotFound), nullptr);
    EXPECT_FALSE(classNotFound);
    // A header value that is no string is not caught here.
    EXPECT_THROW(
        KRC::MailAttachment::CreateFromJSON(
            Doc(R"({"className":"KRC::TestAttachment","headers":[{"k":1}]})"), classNotFound),
        ZR::NullReferenceException);
}

TEST(MailAttachmentTest, JsonAndStoredFormsCarryClassAndProperties) {
    KRC::TestAttachment a;
    a.SetString("memory only");
    a.SetCustomProperty("b", "1");
    a.SetCustomProperty("a", "x");
    a.SetCustomProperty("b", "2");  // overwrites in place
    a.SetCustomProperty("gone", "y");
    a.DeleteCustomProperty("gone");
    EXPECT_EQ(a.GetCustomProperty("none"), "");
    EXPECT_EQ(JSON::JDOMWriter::ToString(a.ToJSON()),
              R"({"className":"KRC::TestAttachment","headers":[{"b":"2"},{"a":"x"}]})");
    bool classNotFound = true;
    std::unique_ptr<KRC::MailAttachment> back(
        KRC::MailAttachment::CreateFromJSON(a.ToJSON(), classNotFound));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(Props(*back), "b=2;a=x;");
    EXPECT_EQ(static_cast<KRC::TestAttachment&>(*back).GetString(), "");

    Sticky refusing;
    refusing.refuse = true;
    EXPECT_FALSE(refusing.ToJSON());
    EXPECT_EQ(JSON::JDOMWriter::ToString(Sticky().ToJSON()),
              R"({"className":"Test::Sticky","headers":[],"extra":"x"})");

    // Stored form: TestAttachment's frame around MailAttachment's.
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(a.Write(out), 0);
    KRC::TestAttachment read;
    read.SetCustomProperty("old", "1");
    ZR::MemoryIChannel in(out.GetBytes());
    ASSERT_EQ(read.Read(in), 0);
    EXPECT_EQ(Props(read), "b=2;a=x;");
    EXPECT_EQ(in.GetRemaining(), 0u);
    ZR::MemoryIChannel wrong(out.GetBytes());
    EXPECT_EQ(static_cast<KRC::MailAttachment&>(refusing).MailAttachment::Read(wrong),
              ZR::kErrFrameClass);
    for (std::size_t cut = 0; cut < out.GetSize(); ++cut) {
        ZR::MemoryIChannel part(out.GetData(), cut);
        EXPECT_NE(read.Read(part), 0) << cut;
    }
    EXPECT_EQ(Props(read), "b=2;a=x;");
}

TEST(MailAttachmentTest, QuestionsOfAMailAskEveryAttachment) {
    using A = KRC::MailAttachment;
    ZR::Ref<KRC::ClientMail> plain(new KRC::ClientMail), sticky(new KRC::ClientMail);
    plain->AddAttachment(KRC::TestAttachment());
    sticky->AddAttachment(KRC::TestAttachment());
    sticky->AddAttachment(Sticky());
    for (const auto& [mail, sticks] : {std::pair{plain, false}, std::pair{sticky, true}}) {
        EXPECT_EQ(A::IsAutomaticCompleteEnabledInMail(mail), !sticks);
        EXPECT_EQ(A::IsSenderNeedToBeActiveInMail(mail), sticks);
        EXPECT_EQ(A::IsRevokeAttachmentInMail(mail), sticks);
    }
    const ZR::Ref<KRC::ClientMail> none;
    EXPECT_FALSE(A::IsAutomaticCompleteEnabledInMail(none) ||
                 A::IsSenderNeedToBeActiveInMail(none) || A::IsRevokeAttachmentInMail(none));
}

}  // namespace
