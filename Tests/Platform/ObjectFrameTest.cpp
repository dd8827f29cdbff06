#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "JSON/JSON.h"
#include "Support/AllocationMeter.h"
#include "ZR/Frame.h"
#include "ZR/Object.h"

namespace {

class Widget : public ZR::Object {
public:
    static const ZR::ClassInfo classInfo;
    const ZR::ClassInfo& GetClassInfo() const override { return classInfo; }
    static ZR::Object* Make() { return new Widget; }
};
const ZR::ClassInfo Widget::classInfo("Test::Widget", "{11111111-2222-3333-4444-555555555555}", 1,
                                      2, &ZR::Object::classInfo, &Widget::Make);
// Same name, no constructor: never in the registry, so never shadows Widget.
const ZR::ClassInfo kPlain("Test::Plain", "11111111-2222-3333-4444-555555555556", 2, 0);

std::vector<unsigned char> Framed(const ZR::ClassInfo& info, const std::string& body) {
    ZR::MemoryOChannel32 out;
    ZR::OutputFrame frame(out, info);
    EXPECT_EQ(frame.Write(body.data(), body.size()), 0);
    EXPECT_EQ(frame.Close(), 0);
    return out.GetBytes();
}

TEST(ObjectTest, RegistryFindsClassesWithConstructorsByName) {
    EXPECT_EQ(ZR::classManager.Find("Test::Widget"), &Widget::classInfo);
    EXPECT_EQ(ZR::classManager.Find("Test::Plain"), nullptr);
    EXPECT_EQ(ZR::classManager.Find("test::widget"), nullptr);  // exact
    std::unique_ptr<ZR::Object> made(ZR::New("Test::Widget"));
    ASSERT_NE(made, nullptr);
    EXPECT_TRUE(made->IsKindOf(ZR::Object::classInfo));
    EXPECT_FALSE(made->IsKindOf(kPlain));
    EXPECT_EQ(ZR::New("Test::Plain"), nullptr);
    EXPECT_FALSE(Widget::classInfo.GetId().IsNull());  // braces are accepted
}

TEST(ObjectTest, FramesTellClassAndVersionAndStepOverBodies) {
    // Two frames in a row: the first is read, the second stepped over whole,
    // and what follows is read where it stands.
    std::vector<unsigned char> bytes = Framed(Widget::classInfo, "body");
    std::vector<unsigned char> other = Framed(kPlain, "unknown body");
    bytes.insert(bytes.end(), other.begin(), other.end());
    bytes.push_back(0x7F);
    ZR::MemoryIChannel in(bytes);
    {
        ZR::InputFrame frame(in, Widget::classInfo);
        ASSERT_EQ(frame.GetStatus(), 0);
        EXPECT_EQ(frame.GetMajorVersion(), 1);
        EXPECT_EQ(frame.GetMinorVersion(), 2);
        std::string body(4, '\0');
        EXPECT_EQ(frame.Read(body.data(), 4), 0);
        EXPECT_EQ(body, "body");
        EXPECT_EQ(frame.Read(body.data(), 1), ZR::kErrEndOfData);  // never past the body
        EXPECT_EQ(frame.Close(), 0);
    }
    {
        ZR::InputFrame frame(in, Widget::classInfo);
        EXPECT_EQ(frame.GetStatus(), ZR::kErrFrameClass);
        EXPECT_EQ(frame.GetClassName(), "Test::Plain");
        EXPECT_EQ(frame.GetMajorVersion(), 2);
        EXPECT_EQ(frame.Close(), 0);
    }
    std::uint8_t last = 0;
    EXPECT_EQ(in.ReadUInt8(last), 0);
    EXPECT_EQ(last, 0x7F);
}

TEST(ObjectTest, DamagedFrameHeadersAreRefusedBeforeAllocating) {
    std::vector<unsigned char> good = Framed(Widget::classInfo, "body");
    auto withU32At = [&](std::size_t at, std::uint32_t v) {
        std::vector<unsigned char> b = good;
        for (int i = 0; i < 4; ++i) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
        return b;
    };
    const std::size_t lengthAt = 4 + 12 + 16 + 4;
    struct Case {
        std::vector<unsigned char> bytes;
        int status;
    } cases[] = {
        {withU32At(0, 0xFFFFFFFFu), ZR::kErrBadData},           // name length
        {withU32At(lengthAt, 0xFFFFFFFFu), ZR::kErrEndOfData},  // body length
    };
    for (const Case& c : cases) {
        krtest::LargestAllocation meter;
        ZR::MemoryIChannel in(c.bytes);
        EXPECT_EQ(ZR::InputFrame(in, Widget::classInfo).GetStatus(), c.status);
        EXPECT_LT(meter.Bytes(), 2048u);
    }
    for (std::size_t cut = 0; cut < good.size(); ++cut) {  // the body too must be whole
        ZR::MemoryIChannel in(good.data(), cut);
        EXPECT_NE(ZR::InputFrame(in, Widget::classInfo).GetStatus(), 0) << cut;
    }
}

TEST(ObjectTest, HashTableFormKeepsOrderAndFirstValueOfRepeatedKeys) {
    ZR::HashTable<ZR::UniString, ZR::UniString> table;
    table.Add("b", "2");
    table.Add("a", "1");
    table.Add("", "");
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(ZR::WriteHashTable(out, table), 0);
    ZR::HashTable<ZR::UniString, ZR::UniString> read;
    read.Add("old", "x");
    ZR::MemoryIChannel in(out.GetBytes());
    ASSERT_EQ(ZR::ReadHashTable(in, read), 0);
    std::vector<std::string> keys;
    for (const auto& [k, v] : read) keys.push_back(k.Std() + "=" + v.Std());
    EXPECT_EQ(keys, (std::vector<std::string>{"b=2", "a=1", "="}));

    // A hostile count over a short body is refused; the table keeps what it had.
    std::vector<unsigned char> bytes = out.GetBytes();
    const std::size_t countAt = 4 + 13 + 16 + 4 + 4;
    for (int i = 0; i < 4; ++i) bytes[countAt + i] = 0xFF;
    ZR::MemoryIChannel hostile(bytes);
    krtest::LargestAllocation meter;
    EXPECT_EQ(ZR::ReadHashTable(hostile, read), ZR::kErrTooLarge);
    EXPECT_LT(meter.Bytes(), 2048u);
    EXPECT_EQ(read.GetSize(), 3u);
}

TEST(JsonTest, ParserBuildsOrderedTreesWithinBounds) {
    struct Case {
        std::string text;
        bool ok;
        const char* error;  // part of the error text
    } cases[] = {
        {R"({"z":1,"a":[true,null,"s",1.5],"m":{}})", true, ""},
        {std::string(257, '[') + std::string(257, ']'), false, "nested deeper than 256"},
        {std::string(256, '[') + std::string(256, ']'), true, ""},
        {R"(["[[[[[[\"]"])", true, ""},  // brackets in strings don't nest
        {R"({"a":1,})", false, "syntax error at byte"},
        {"// c\n{}", false, "syntax error"},  // comments only on asking
        {std::string(70u << 20, ' '), false, "more than"},
    };
    for (const Case& c : cases) {
        JSON::JDOMParser parser;
        krtest::LargestAllocation meter;
        JSON::Ref<JSON::Value> value = parser.Parse(c.text, false);
        EXPECT_EQ(static_cast<bool>(value), c.ok) << c.text.substr(0, 40);
        EXPECT_NE(parser.GetError().Std().find(c.error), std::string::npos)
            << parser.GetError().Std();
        if (!c.ok) {
            EXPECT_LT(meter.Bytes(), 4096u) << c.text.substr(0, 40);
        }
    }
    JSON::JDOMParser parser;
    EXPECT_TRUE(parser.Parse(std::string_view("// c\n{}"), true));
    auto object = JSON::ObjectValue::Cast(parser.Parse(R"({"z":1,"a":[true],"s":"t"})", false));
    ASSERT_TRUE(object);
    EXPECT_EQ(object->GetName(0), "z");
    EXPECT_EQ(object->GetMandatoryMember<JSON::StringValue>("s")->GetValue(), "t");
    EXPECT_FALSE(object->GetMandatoryMember<JSON::StringValue>("a"));  // wrong type
    EXPECT_EQ(JSON::JDOMWriter::ToString(object), R"({"z":1,"a":[true],"s":"t"})");

    // A channel that holds more than the bound is refused before it is read.
    std::vector<unsigned char> big(1000, ' ');
    ZR::MemoryIChannel in(big);
    EXPECT_FALSE(JSON::JDOMParser(999).Parse(in, false));
    EXPECT_EQ(in.GetRemaining(), 1000u);
}

TEST(JsonTest, ObjectsKeepOneMemberPerNameAtAnySize) {
    JSON::ObjectValue object;
    for (int i = 0; i < 40; ++i)
        object.Add(ZR::UniString(std::to_string(i % 20)), ZR::UniString("v"));
    object.Add("3", ZR::UniString("last"));
    EXPECT_EQ(object.GetSize(), 20u);
    EXPECT_EQ(object.GetName(3), "3");
    EXPECT_EQ(JSON::StringValue::Cast(object.Find("3"))->GetValue(), "last");
    ZR::MemoryOChannel32 out;
    JSON::JDOMWriter writer(JSON::Ref<JSON::Value>(new JSON::StringValue("\xff")), out, true, 4);
    EXPECT_EQ(writer.GetStatus(), 0);
    EXPECT_EQ(std::string(out.GetBytes().begin(), out.GetBytes().end()), "\"\xEF\xBF\xBD\"");
}

}  // namespace
