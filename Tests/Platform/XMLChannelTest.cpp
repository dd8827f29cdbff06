#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <string>

#include "Support/TempFolder.h"
#include "ZRXML/XMLChannel.h"

namespace {

using krtest::Loc;

struct IDeleter {
    void operator()(ZR::XMLIChannel* c) const { ZRXML::DisposeXMLIChannel(c); }
};
struct ODeleter {
    void operator()(ZR::XMLOChannel* c) const { ZRXML::DisposeXMLOChannel(c); }
};
using IChannel = std::unique_ptr<ZR::XMLIChannel, IDeleter>;
using OChannel = std::unique_ptr<ZR::XMLOChannel, ODeleter>;

IChannel OpenIn(const std::string& path, const char* root = "Root") {
    return IChannel(ZRXML::CreateXMLIChannel(Loc(path), root, 0));
}

// Writes key/text pairs under the root, each as a string value.
void WriteTexts(const std::string& path,
                std::initializer_list<std::pair<const char*, const char*>> items) {
    OChannel out(ZRXML::CreateXMLOChannel(Loc(path), "Root", 0));
    ASSERT_TRUE(out);
    ASSERT_EQ(out->StartDocument(), 0);
    for (const auto& [key, text] : items) ASSERT_EQ(out->Write(key, text, 0), 0);
    ASSERT_EQ(out->EndDocument(), 0);
}

// Reads one value that must be there.
template <typename T>
T Get(const IChannel& in, const char* key) {
    T value{};
    EXPECT_EQ(in->Read(key, &value), 0) << key;
    return value;
}

}  // namespace

TEST(XMLChannel, WritesAndReadsBackEveryTypeAtEveryLevel) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("doc.xml");
    const ZR::UniString nasty("  a<b>&\"' \r\n\ttab ä 😀 \x01 ]]> ");
    {
        OChannel out(ZRXML::CreateXMLOChannel(Loc(path), "Root", 0));
        ASSERT_TRUE(out);
        EXPECT_EQ(out->Write("early", true), ZR::kXMLErrState);
        ASSERT_EQ(out->StartDocument(), 0);
        ASSERT_EQ(out->Write("text", nasty), 0);
        ASSERT_EQ(out->Write("empty", ZR::UniString()), 0);
        ASSERT_EQ(out->Write("u32", std::numeric_limits<std::uint32_t>::max()), 0);
        ASSERT_EQ(out->Write("i32", std::numeric_limits<std::int32_t>::min()), 0);
        ASSERT_EQ(out->StartElement("Group"), 0);
        ASSERT_EQ(out->Write("u16", std::numeric_limits<std::uint16_t>::max()), 0);
        ASSERT_EQ(out->StartElement("Inner"), 0);
        ASSERT_EQ(out->Write("i16", std::numeric_limits<std::int16_t>::min()), 0);
        ASSERT_EQ(out->EndElement(), 0);
        // An unclosed element stops the document from ending.
        EXPECT_EQ(out->EndDocument(), ZR::kXMLErrState);
        ASSERT_EQ(out->EndElement(), 0);
        EXPECT_EQ(out->StartElement("bad name"), ZR::kXMLErrBadValue);
        ASSERT_EQ(out->Write("yes", true), 0);
        ASSERT_EQ(out->Write("no", false), 0);
        EXPECT_EQ(out->EndElement(), ZR::kXMLErrState);
        EXPECT_FALSE(krtest::Exists(path));  // nothing is stored before the end
        ASSERT_EQ(out->EndDocument(), 0);
        EXPECT_EQ(out->Write("late", true), ZR::kXMLErrState);
    }
    std::string stored = krtest::ReadFile(path);
    EXPECT_EQ(stored.rfind("<?xml version=\"1.0\" encoding=\"UTF-8\"?>", 0), 0u) << stored;
    EXPECT_NE(stored.find("\n    <u16>65535</u16>\n"), std::string::npos) << stored;
    EXPECT_EQ(krtest::ModeOf(path), 0600u);

    IChannel in = OpenIn(path);
    ASSERT_TRUE(in);
    EXPECT_EQ(Get<ZR::UniString>(in, "text"), nasty);
    EXPECT_EQ(Get<ZR::UniString>(in, "empty"), "");
    EXPECT_EQ(Get<std::uint32_t>(in, "u32"), std::numeric_limits<std::uint32_t>::max());
    EXPECT_EQ(Get<std::int32_t>(in, "i32"), std::numeric_limits<std::int32_t>::min());
    ZR::UniString name;
    ASSERT_EQ(in->GetNextElementName(&name), 0);
    EXPECT_EQ(name, "Group");
    EXPECT_EQ(in->EnterElement("Other"), ZR::kXMLErrNotFound);
    ASSERT_EQ(in->EnterElement("Group"), 0);
    EXPECT_EQ(Get<std::uint16_t>(in, "u16"), 65535);
    ASSERT_EQ(in->EnterElement("Inner"), 0);
    EXPECT_EQ(Get<std::int16_t>(in, "i16"), -32768);
    bool flag = false;
    EXPECT_EQ(in->Read("yes", &flag), ZR::kXMLErrNotFound);  // the level has ended
    ASSERT_EQ(in->LeaveElement(), 0);
    ASSERT_EQ(in->LeaveElement(), 0);
    EXPECT_TRUE(Get<bool>(in, "yes"));
    EXPECT_FALSE(Get<bool>(in, "no"));
    EXPECT_EQ(in->Read("more", &name), ZR::kXMLErrNotFound);
    EXPECT_EQ(in->LeaveElement(), ZR::kXMLErrState);
}

TEST(XMLChannel, ReadsFailOnWrongOrderBadValuesAndFilesThatAreNoDocument) {
    krtest::TempFolder tmp;
    const std::string path = tmp.Sub("doc.xml");
    WriteTexts(path, {{"a", "1"},
                      {"big", "70000"},
                      {"neg", "-1"},
                      {"one", " 1 "},
                      {"zero", "0"},
                      {"maybe", "yes"}});
    IChannel in = OpenIn(path);
    ASSERT_TRUE(in);
    // A mismatch leaves the element for the next read; a bad value is consumed.
    std::int32_t i32 = 0;
    EXPECT_EQ(in->Read("b", &i32), ZR::kXMLErrNotFound);
    EXPECT_EQ(in->EnterElement("b"), ZR::kXMLErrNotFound);
    EXPECT_EQ(Get<std::int32_t>(in, "a"), 1);
    std::uint16_t u16 = 7;
    EXPECT_EQ(in->Read("big", &u16), ZR::kXMLErrBadValue);
    EXPECT_EQ(u16, 7);
    std::uint32_t u32 = 7;
    EXPECT_EQ(in->Read("neg", &u32), ZR::kXMLErrBadValue);
    EXPECT_TRUE(Get<bool>(in, "one"));  // spaces around a value are not part of it
    EXPECT_FALSE(Get<bool>(in, "zero"));
    bool flag = false;
    EXPECT_EQ(in->Read("maybe", &flag), ZR::kXMLErrBadValue);

    krtest::WriteFile(tmp.Sub("group.xml"), "<Root><g><a>1</a></g></Root>");
    ZR::UniString text;
    EXPECT_EQ(OpenIn(tmp.Sub("group.xml"))->Read("g", &text), ZR::kXMLErrBadValue);  // no value
    krtest::WriteFile(tmp.Sub("other.xml"), "<Other><a>1</a></Other>");
    EXPECT_FALSE(OpenIn(tmp.Sub("other.xml")));
    EXPECT_TRUE(OpenIn(tmp.Sub("other.xml"), "Other"));
    EXPECT_FALSE(OpenIn(tmp.Sub("none.xml")));
    EXPECT_FALSE(ZRXML::CreateXMLOChannel(Loc(tmp.Sub("no/folder.xml")), "Root", 0));
}
