#include <sys/stat.h>

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "Support/TempFolder.h"
#include "ZRXML/XMLChannel.h"

namespace {

struct IDeleter {
    void operator()(ZR::XMLIChannel* c) const { ZRXML::DisposeXMLIChannel(c); }
};
struct ODeleter {
    void operator()(ZR::XMLOChannel* c) const { ZRXML::DisposeXMLOChannel(c); }
};
using IChannel = std::unique_ptr<ZR::XMLIChannel, IDeleter>;
using OChannel = std::unique_ptr<ZR::XMLOChannel, ODeleter>;

IO::Location At(const std::string& path) { return IO::Location(ZR::UniString(path)); }

IChannel OpenIn(const std::string& path, const char* root = "Root") {
    return IChannel(ZRXML::CreateXMLIChannel(At(path), root, 0));
}

// Writes key/text pairs under the root, each as a string value.
void WriteTexts(const std::string& path, std::initializer_list<std::pair<const char*, const char*>> items) {
    OChannel out(ZRXML::CreateXMLOChannel(At(path), "Root", 0));
    ASSERT_TRUE(out);
    ASSERT_EQ(out->StartDocument(), 0);
    for (const auto& [key, text] : items) ASSERT_EQ(out->Write(key, text, 0), 0);
    ASSERT_EQ(out->EndDocument(), 0);
}

}  // namespace

TEST(XMLChannel, WritesAndReadsBackEveryType) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("doc.xml");
    const ZR::UniString nasty("  a<b>&\"' \r\n\ttab ä 😀 \x01 ]]> ");
    {
        OChannel out(ZRXML::CreateXMLOChannel(At(path), "Root", 0));
        ASSERT_TRUE(out);
        EXPECT_EQ(out->Write("early", true), ZR::kXMLErrState);
        ASSERT_EQ(out->StartDocument(), 0);
        ASSERT_EQ(out->Write("text", nasty), 0);
        ASSERT_EQ(out->Write("blank", ZR::UniString(" ")), 0);
        ASSERT_EQ(out->Write("empty", ZR::UniString()), 0);
        ASSERT_EQ(out->Write("chars", "plain", 0), 0);
        ASSERT_EQ(out->Write("u32", std::numeric_limits<std::uint32_t>::max()), 0);
        ASSERT_EQ(out->Write("i32", std::numeric_limits<std::int32_t>::min()), 0);
        ASSERT_EQ(out->StartElement("Group"), 0);
        ASSERT_EQ(out->Write("u16", std::numeric_limits<std::uint16_t>::max()), 0);
        ASSERT_EQ(out->Write("i16", std::numeric_limits<std::int16_t>::min()), 0);
        ASSERT_EQ(out->EndElement(), 0);
        ASSERT_EQ(out->Write("yes", true), 0);
        ASSERT_EQ(out->Write("no", false), 0);
        EXPECT_EQ(out->EndElement(), ZR::kXMLErrState);
        EXPECT_FALSE(krtest::Exists(path));  // nothing is stored before the end
        ASSERT_EQ(out->EndDocument(), 0);
        EXPECT_EQ(out->Write("late", true), ZR::kXMLErrState);
    }
    std::string stored = krtest::ReadFile(path);
    EXPECT_EQ(stored.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u) << stored;
    EXPECT_NE(stored.find("\n  <yes>true</yes>\n"), std::string::npos) << stored;
    EXPECT_NE(stored.find("\n    <u16>65535</u16>\n"), std::string::npos) << stored;
    struct stat st;
    ASSERT_EQ(stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    IChannel in = OpenIn(path);
    ASSERT_TRUE(in);
    ZR::UniString text, name;
    ASSERT_EQ(in->Read("text", &text), 0);
    EXPECT_EQ(text, nasty);
    ASSERT_EQ(in->Read("blank", &text), 0);
    EXPECT_EQ(text, " ");
    ASSERT_EQ(in->Read("empty", &text), 0);
    EXPECT_EQ(text, "");
    ASSERT_EQ(in->Read("chars", &text), 0);
    EXPECT_EQ(text, "plain");
    std::uint32_t u32 = 0;
    std::int32_t i32 = 0;
    std::uint16_t u16 = 0;
    std::int16_t i16 = 0;
    ASSERT_EQ(in->Read("u32", &u32), 0);
    EXPECT_EQ(u32, std::numeric_limits<std::uint32_t>::max());
    ASSERT_EQ(in->Read("i32", &i32), 0);
    EXPECT_EQ(i32, std::numeric_limits<std::int32_t>::min());
    ASSERT_EQ(in->GetNextElementName(&name), 0);
    EXPECT_EQ(name, "Group");
    ASSERT_EQ(in->EnterElement("Group"), 0);
    ASSERT_EQ(in->Read("u16", &u16), 0);
    EXPECT_EQ(u16, 65535);
    ASSERT_EQ(in->Read("i16", &i16), 0);
    EXPECT_EQ(i16, -32768);
    EXPECT_EQ(in->GetNextElementName(&name), ZR::kXMLErrNotFound);
    ASSERT_EQ(in->LeaveElement(), 0);
    bool yes = false, no = true;
    ASSERT_EQ(in->Read("yes", &yes), 0);
    ASSERT_EQ(in->Read("no", &no), 0);
    EXPECT_TRUE(yes);
    EXPECT_FALSE(no);
    EXPECT_EQ(in->Read("more", &text), ZR::kXMLErrNotFound);
    EXPECT_EQ(in->LeaveElement(), ZR::kXMLErrState);
}

TEST(XMLChannel, ReadsFailOnWrongOrderAndBadValues) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("doc.xml");
    WriteTexts(path, {{"a", "1"}, {"big", "70000"}, {"neg", "-1"}, {"word", "abc"}, {"one", " 1 "},
                      {"zero", "0"}, {"maybe", "yes"}, {"last", "x"}});
    IChannel in = OpenIn(path);
    ASSERT_TRUE(in);

    // A mismatch leaves the element for the next read.
    std::int32_t i32 = 0;
    EXPECT_EQ(in->Read("b", &i32), ZR::kXMLErrNotFound);
    EXPECT_EQ(in->EnterElement("b"), ZR::kXMLErrNotFound);
    ASSERT_EQ(in->Read("a", &i32), 0);
    EXPECT_EQ(i32, 1);

    std::uint16_t u16 = 7;
    std::uint32_t u32 = 7;
    EXPECT_EQ(in->Read("big", &u16), ZR::kXMLErrBadValue);
    EXPECT_EQ(u16, 7);
    EXPECT_EQ(in->Read("neg", &u32), ZR::kXMLErrBadValue);
    EXPECT_EQ(in->Read("word", &i32), ZR::kXMLErrBadValue);

    bool flag = false;
    ASSERT_EQ(in->Read("one", &flag), 0);
    EXPECT_TRUE(flag);
    ASSERT_EQ(in->Read("zero", &flag), 0);
    EXPECT_FALSE(flag);
    EXPECT_EQ(in->Read("maybe", &flag), ZR::kXMLErrBadValue);
    ZR::UniString text;
    ASSERT_EQ(in->Read("last", &text), 0);
}

TEST(XMLChannel, NestedLevels) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("doc.xml");
    {
        OChannel out(ZRXML::CreateXMLOChannel(At(path), "Root", 0));
        ASSERT_EQ(out->StartDocument(), 0);
        ASSERT_EQ(out->StartElement("Outer"), 0);
        ASSERT_EQ(out->StartElement("Inner"), 0);
        ASSERT_EQ(out->Write("v", std::int32_t(5)), 0);
        ASSERT_EQ(out->EndElement(), 0);
        // An unclosed element stops the document from ending.
        EXPECT_EQ(out->EndDocument(), ZR::kXMLErrState);
        ASSERT_EQ(out->EndElement(), 0);
        ASSERT_EQ(out->Write("after", true), 0);
        EXPECT_EQ(out->StartElement("bad name"), ZR::kXMLErrBadValue);
        ASSERT_EQ(out->EndDocument(), 0);
    }
    IChannel in = OpenIn(path);
    ASSERT_TRUE(in);
    std::int32_t v = 0;
    ZR::UniString text;
    EXPECT_EQ(in->Read("Outer", &text), ZR::kXMLErrBadValue);  // a group is not a value

    in = OpenIn(path);
    ASSERT_EQ(in->EnterElement("Outer"), 0);
    EXPECT_EQ(in->EnterElement("Other"), ZR::kXMLErrNotFound);
    ASSERT_EQ(in->EnterElement("Inner"), 0);
    ASSERT_EQ(in->Read("v", &v), 0);
    EXPECT_EQ(v, 5);
    EXPECT_EQ(in->Read("after", &v), ZR::kXMLErrNotFound);  // the level has ended
    ASSERT_EQ(in->LeaveElement(), 0);
    ASSERT_EQ(in->LeaveElement(), 0);
    bool after = false;
    ASSERT_EQ(in->Read("after", &after), 0);
    EXPECT_TRUE(after);
}

TEST(XMLChannel, MissingOrUnreadableFilesGiveNoChannel) {
    krtest::TempFolder tmp;
    EXPECT_FALSE(OpenIn(tmp.Sub("none.xml")));
    EXPECT_FALSE(ZRXML::CreateXMLOChannel(At(tmp.Sub("no/folder.xml")), "Root", 0));

    krtest::WriteFile(tmp.Sub("broken.xml"), "<Root><a>1</a>");
    EXPECT_FALSE(OpenIn(tmp.Sub("broken.xml")));
    krtest::WriteFile(tmp.Sub("other.xml"), "<Other><a>1</a></Other>");
    EXPECT_FALSE(OpenIn(tmp.Sub("other.xml")));
    EXPECT_TRUE(OpenIn(tmp.Sub("other.xml"), "Other"));
}
