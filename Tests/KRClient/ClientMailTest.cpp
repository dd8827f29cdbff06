#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "KRClient/ContactBuilder.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/Internal/ClientMailInternal.h"
#include "Support/AllocationMeter.h"
#include "ZR/Exceptions.h"

namespace M = Kerrow::Server::Mail;
using KRC::ClientMail;

namespace {

M::Address Addr(const std::string& owner, const std::string& name = "") {
    return M::Address({ZR::UniString(owner), "Inbox"}, ZR::UniString(name.empty() ? owner : name));
}

void AddPart(M::Mail& mail, const std::string& name, const std::string& type,
             const std::string& content) {
    M::BodyPart part(ZR::UniString(name), {},
                     ZR::Ref<M::Contents::Content>(new M::Contents::MemoryContent(content)));
    part.SetContentType(ZR::UniString(type));
    mail.GetBodyParts().Add(part);
}

std::string TestDoc(const std::string& headers = "[]") {
    return R"({"className":"KRC::TestAttachment","headers":)" + headers + "}";
}

std::string Names(const M::Mail& mail) {
    std::string s;
    for (const auto& p : mail.GetBodyParts()) s += p.GetName().Std() + ";";
    return s;
}

std::string Classes(const ClientMail& mail) {
    std::string s;
    for (const KRC::MailAttachment* a : mail.EnumerateAttachments())
        s += a->GetClassName().Std() + ";";
    return s;
}

// Another registered attachment class, so that a mail can hold two.
class Other : public KRC::MailAttachment {
public:
    static const ZR::ClassInfo classInfo;
    MailAttachment* Clone() const override { return new Other(*this); }
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    static ZR::Object* Make() { return new Other; }
};
const ZR::ClassInfo Other::classInfo("Test::Other", "0A0B0C0D-0000-4000-8000-000000000003", 1, 0,
                                     &KRC::MailAttachment::classInfo, &Other::Make);

TEST(ClientMailTest, NewMailsTakeTheirIdAsThreadAndTheirTextAsOnePart) {
    ClientMail mail;
    EXPECT_FALSE(mail.GetId().IsEmpty());
    EXPECT_EQ(mail.GetThreadId(), mail.GetId());
    mail.SetThreadId("t-2");
    mail.SetThreadId("");  // refused
    EXPECT_EQ(mail.GetThreadId(), "t-2");

    // The text: added once, then replaced; long texts come back whole.
    std::string big(20000, 'x');
    big += "\r\nend\n";
    mail.SetMessagePart("first");
    mail.SetMessagePart(ZR::UniString(big));
    ZR::Ref<M::Mail> server = mail.ToServerMail();
    EXPECT_EQ(Names(*server), "KerrowMessage;");
    EXPECT_EQ(mail.GetMessagePart(), big);
    EXPECT_EQ(mail.GetMessagePartWithoutLineBreaks(), std::string(20000, 'x') + "  end ");

    ZR::Ref<M::Mail> empty;
    EXPECT_THROW(ClientMail wrapped(empty), ZR::NullReferenceException);
}

TEST(ClientMailTest, AttachmentScanOfReceivedMails) {
    struct Case {
        std::vector<std::string> parts;  // attachment part contents in order
        std::string classes;
    } cases[] = {
        {{TestDoc(), R"({"className":"Test::Other","headers":[]})"},
         "KRC::TestAttachment;Test::Other;"},
        {{TestDoc(R"([{"k":"first"}])"), TestDoc(R"([{"k":"second"}])")}, "KRC::TestAttachment;"},
        // An unknown class is passed over ...
        {{R"({"className":"Nope","headers":[]})", TestDoc()}, "KRC::TestAttachment;"},
        // ... while no object or a bad header ends the scan.
        {{"[1]", TestDoc()}, ""},
        {{TestDoc(), TestDoc(R"([{"a":"1","b":"2"}])"),
          R"({"className":"Test::Other","headers":[]})"},
         "KRC::TestAttachment;"},
    };
    for (const Case& c : cases) {
        ZR::Ref<M::Mail> server(new M::Mail(M::MailId("m")));
        AddPart(*server, "text", "KerrowMessage", "hello");
        for (std::size_t i = 0; i < c.parts.size(); ++i)
            AddPart(*server, "a" + std::to_string(i), "KerrowAttachment", c.parts[i]);
        ClientMail mail(server);
        EXPECT_EQ(Classes(mail), c.classes) << c.parts[0];
    }
    // The first of two of one class stays, also when added later.
    ZR::Ref<M::Mail> server(new M::Mail(M::MailId("m")));
    AddPart(*server, "a", "KerrowAttachment", TestDoc(R"([{"k":"first"}])"));
    AddPart(*server, "b", "KerrowAttachment", TestDoc(R"([{"k":"second"}])"));
    ClientMail mail(server);
    KRC::TestAttachment later;
    later.SetCustomProperty("k", "later");
    mail.AddAttachment(later);
    EXPECT_EQ(mail.GetAttachment(KRC::TestAttachment::classInfo.GetId())->GetCustomProperty("k"),
              "first");

    // A header value that is no string raises out of the scan, and what was
    // parsed before it goes with the mail that was never made.
    AddPart(*server, "c", "KerrowAttachment", R"({"className":"Test::Other","headers":[]})");
    AddPart(*server, "d", "KerrowAttachment", TestDoc(R"([{"k":1}])"));
    EXPECT_THROW(ClientMail raising(server), ZR::NullReferenceException);
}

TEST(ClientMailTest, ServerFormIsACopyWithTheCurrentAttachments) {
    ZR::Ref<M::Mail> server(new M::Mail(M::MailId("m")));
    AddPart(*server, "KerrowAttachment_KRC::TestAttachment_0", "KerrowAttachment", TestDoc());
    AddPart(*server, "x", "KerrowAttachment", R"({"className":"Test::Other","headers":[]})");
    AddPart(*server, "y", "KerrowAttachment", R"({"className":"Nope","headers":[]})");
    AddPart(*server, "text", "KerrowMessage", "hi");
    ClientMail mail(server);
    mail.DeleteAttachment(Other::classInfo.GetId());
    mail.DeleteAttachment(Other::classInfo.GetId());  // gone already: nothing happens
    EXPECT_TRUE(mail.HasAnyAttachment());
    EXPECT_FALSE(mail.HasAttachment(Other::classInfo.GetId()));

    ZR::Ref<M::Mail> out = mail.ToServerMail();
    EXPECT_EQ(Names(*out), "text;KerrowAttachment_KRC::TestAttachment_0;");
    EXPECT_EQ(*out->GetHeader("Version"), "1.0");
    EXPECT_EQ(Names(*server), "KerrowAttachment_KRC::TestAttachment_0;x;y;text;");  // untouched
    EXPECT_EQ(server->GetHeader("Version"), nullptr);
    EXPECT_EQ(Names(*mail.ToServerMail()), Names(*out));

    // Update swaps the mail and keeps the parsed attachments.
    ZR::Ref<M::Mail> bare(new M::Mail(M::MailId("m")));
    mail.Update(bare);
    EXPECT_EQ(Classes(mail), "KRC::TestAttachment;");
    EXPECT_EQ(Names(*mail.ToServerMail()), "KerrowAttachment_KRC::TestAttachment_0;");
}

TEST(ClientMailTest, ReplyAllListsAndDisplayTexts) {
    ClientMail mail;
    mail.SetSender(Addr("me"));
    mail.SetRecipients({Addr("me"), Addr("a"), Addr("b", "B1"), Addr("a"), Addr("b", "B2")});
    auto spec = [](const char* owner, const char* clientType) {
        krtest::ContactSpec s;
        s.ownerId = owner;
        s.sessions = {{"s-" + s.ownerId, "Inbox", clientType}};
        return s;
    };
    auto desktop = spec("a", "Lumbra"), mobile = spec("b", "Mobile"), none = spec("b", "");
    auto list = [](std::vector<krtest::ContactSpec> specs) {
        ZR::Ref<KRCB::Mailbox::ContactList> contacts(new KRCB::Mailbox::ContactList);
        for (const auto& s : specs) contacts->AddContact(s.Build());
        return ZR::Ref<const KRCB::Mailbox::ContactList>(contacts);
    };
    struct Case {
        M::Address own;
        std::vector<krtest::ContactSpec> contacts;
        bool filter;
        std::string text;
    } cases[] = {
        {Addr("me"), {}, false, "a, B1"},  // a mail to oneself and others
        {Addr("a"), {}, false, "me, B1"},         {Addr("me"), {desktop, mobile}, true, "a, B1"},
        {Addr("me"), {desktop, none}, true, "a"}, {Addr("me"), {}, true, ""},
    };
    for (const Case& c : cases) {
        M::AddressList result{Addr("stale")};
        auto contacts = list(c.contacts);
        KRC::Internal::CreateReplyAllList(mail, c.own, c.filter ? &contacts : nullptr, result);
        EXPECT_EQ(ClientMail::ToDisplayText(result), c.text);
    }
    M::AddressList result{Addr("stale")};
    KRCB::Mailbox::MailboxMonitor monitor;  // knows nobody yet
    ClientMail::CreateReplayAllList(mail, Addr("me"), &monitor, result);
    EXPECT_EQ(ClientMail::ToDisplayText(result), "");
    EXPECT_EQ(ClientMail::ToDisplayText({M::Address({"x", "Inbox"}, ""), Addr("y")}), "y");
}

TEST(ClientMailTest, StoredFormAndItsFailures) {
    ZR::Ref<ClientMail> mail(new ClientMail);
    mail->SetMessagePart("text");
    mail->SetSender(Addr("me"));
    mail->AddAttachment(KRC::TestAttachment());
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(ClientMail::Write(mail, out), 0);
    ZR::Ref<ClientMail> read;
    ZR::MemoryIChannel in(out.GetBytes());
    ASSERT_EQ(ClientMail::Read(read, in), 0);
    EXPECT_EQ(in.GetRemaining(), 0u);
    EXPECT_EQ(read->GetId(), mail->GetId());
    EXPECT_EQ(read->GetMessagePart(), "text");
    EXPECT_EQ(Classes(*read), "KRC::TestAttachment;");
    EXPECT_EQ(Names(*read->ToServerMail()), Names(*mail->ToServerMail()));

    // Version 2 and another class are refused; cuts fail; the target is kept.
    std::vector<unsigned char> v2 = out.GetBytes();
    v2[4 + 4 + 16] = 2;  // main version, after the name "Mail" and the id
    std::vector<unsigned char> other = out.GetBytes();
    other[4] = 'N';
    struct Case {
        std::vector<unsigned char> bytes;
        int status;
    } cases[] = {{v2, -7003}, {other, ZR::kErrFrameClass}};
    ZR::Ref<ClientMail> kept = mail;
    for (const Case& c : cases) {
        ZR::MemoryIChannel bad(c.bytes);
        EXPECT_EQ(ClientMail::Read(kept, bad), c.status);
        EXPECT_EQ(kept, mail);
    }
    for (std::size_t cut = 0; cut < out.GetSize(); ++cut) {
        ZR::MemoryIChannel part(out.GetData(), cut);
        krtest::LargestAllocation meter;
        EXPECT_NE(ClientMail::Read(kept, part), 0) << cut;
        EXPECT_LT(meter.Bytes(), out.GetSize() + 4096) << cut;
    }
    EXPECT_EQ(kept, mail);

    // An attachment without JSON makes the mail unwritable: -7003, nothing out.
    class Mute : public KRC::TestAttachment {
        MailAttachment* Clone() const override { return new Mute(*this); }
        bool SerializeJSON(JSON::Ref<JSON::ObjectValue>) const override { return false; }
    };
    mail->DeleteAttachment(KRC::TestAttachment::classInfo.GetId());
    mail->AddAttachment(Mute());
    EXPECT_FALSE(mail->ToServerMail());
    ZR::MemoryOChannel32 none;
    EXPECT_EQ(ClientMail::Write(mail, none), -7003);
    EXPECT_EQ(none.GetSize(), 0u);
}

}  // namespace
