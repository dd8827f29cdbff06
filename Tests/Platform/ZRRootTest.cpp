// The root library: texts, containers, observers, digests and printable
// texts; binary channels in both byte orders, framed objects and their
// registry, the mail ids read from the server, and the JSON reader.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "JSON/JSON.h"
#include "Kerrow/Mail.h"
#include "Support/AllocationMeter.h"
#include "ZR/Channel.h"
#include "ZR/ChannelX.h"
#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/Exceptions.h"
#include "ZR/Frame.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MD5.h"
#include "ZR/Object.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

using Kerrow::Server::Mail::MailboxId;
using Kerrow::Server::Mail::MailboxSessionInfo;

namespace {

using Bytes = std::vector<unsigned char>;

// A source that can't say how much it holds, like a pipe.
class StreamIChannel : public ZR::IChannel {
public:
    explicit StreamIChannel(Bytes data) : mData(std::move(data)), mInner(mData) {}
    int Read(void* buffer, std::size_t length) override { return mInner.Read(buffer, length); }
    using ZR::IChannel::Read;

private:
    Bytes mData;
    ZR::MemoryIChannel mInner;
};

// Protocol channels in network byte order over memory channels.
struct XOut {
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary{out};
    ZR::OChannelX x{binary, ZR::GetNetworkByteOrderOProtocolX()};
};
struct XIn {
    explicit XIn(Bytes data) : bytes(std::move(data)) {}
    Bytes bytes;  // a memory channel reads what its owner keeps
    ZR::MemoryIChannel in{bytes};
    ZR::IBinaryChannelAdapterForIChannel binary{in};
    ZR::IChannelX x{binary, ZR::GetNetworkByteOrderIProtocolX()};
};

Bytes Head(const Bytes& bytes, std::size_t n) {
    return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
}

}  // namespace

TEST(Channel, NumbersAndTextsRoundTripInBothByteOrders) {
    // Little-endian and network order can share one channel, as in stored lists.
    XOut o;
    ASSERT_EQ(o.out.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(o.out.Write(ZR::UniString("ab")), 0);
    ASSERT_EQ(o.x.WriteUInt32(0x01020304u), 0);
    ASSERT_EQ(o.x.Write(ZR::UniString("hé")), 0);
    ASSERT_EQ(o.x.WriteInt16(-3), 0);
    ASSERT_EQ(o.out.WriteUInt64(0x1122334455667788ull), 0);
    ASSERT_EQ(o.out.WriteInt32(-2), 0);
    ASSERT_EQ(o.x.WriteInt64(-5), 0);
    ASSERT_EQ(o.x.WriteBool(true), 0);
    ASSERT_EQ(o.out.Write(ZR::UniString("")), 0);
    const Bytes head = {4, 3, 2, 1, 2, 0, 0,   0,    'a',  'b',  1,   2,
                        3, 4, 0, 0, 0, 3, 'h', 0xC3, 0xA9, 0xFF, 0xFD};
    EXPECT_EQ(Head(o.out.GetBytes(), head.size()), head);

    XIn i(o.out.GetBytes());
    std::uint32_t le = 0, be = 0;
    std::uint64_t u64 = 0;
    std::int32_t i32 = 0;
    std::int16_t i16 = 0;
    std::int64_t i64 = 0;
    bool flag = false;
    ZR::UniString ab, he, empty("x");
    // In order: && stops at the first failure.
    EXPECT_TRUE(!i.in.ReadUInt32(le) && !i.in.Read(ab) && !i.x.ReadUInt32(be) && !i.x.Read(he) &&
                !i.x.ReadInt16(i16) && !i.in.ReadUInt64(u64) && !i.in.ReadInt32(i32) &&
                !i.x.ReadInt64(i64) && !i.x.ReadBool(flag) && !i.in.Read(empty));
    EXPECT_EQ(std::tie(le, be, i16, u64, i32, i64, flag),
              std::make_tuple(0x01020304u, 0x01020304u, std::int16_t{-3}, 0x1122334455667788ull, -2,
                              std::int64_t{-5}, true));
    EXPECT_EQ((std::vector<ZR::UniString>{ab, he, empty}),
              (std::vector<ZR::UniString>{"ab", "hé", ""}));
    EXPECT_EQ(i.in.GetRemaining(), 0u);

    XIn two(Bytes{2});  // a boolean is 0 or 1, nothing else
    EXPECT_EQ(two.x.ReadBool(flag), ZR::kErrBadData);
}

TEST(Channel, CutInputEndsTheReadAndKeepsTheTarget) {
    ZR::MemoryOChannel32 out;
    ASSERT_EQ(out.Write(ZR::UniString("hello")), 0);
    ASSERT_EQ(out.WriteUInt64(7), 0);
    for (std::size_t cut = 0; cut < out.GetSize(); ++cut) {
        for (bool stream : {false, true}) {
            SCOPED_TRACE("cut at " + std::to_string(cut) + (stream ? ", stream" : ""));
            Bytes part = Head(out.GetBytes(), cut);
            ZR::MemoryIChannel memory(part);
            StreamIChannel piped(part);
            ZR::IChannel& in = stream ? static_cast<ZR::IChannel&>(piped) : memory;
            ZR::UniString text("untouched");
            std::uint64_t number = 42;
            int status = in.Read(text);
            if (status == 0) status = in.ReadUInt64(number);
            // A source that knows its size refuses a text longer than what is left.
            bool refusedUpFront = !stream && cut >= 4 && cut < 9;
            EXPECT_EQ(status, refusedUpFront ? ZR::kErrTooLarge : ZR::kErrEndOfData);
            EXPECT_EQ(text, cut < 9 ? "untouched" : "hello");
            EXPECT_EQ(number, 42u);
        }
    }
}

TEST(Channel, HostileLengthsCostNoMoreThanTheInput) {
    // A length of 4 GiB - 1 in front of 16 bytes.
    Bytes input = {0xFF, 0xFF, 0xFF, 0xFF};
    input.resize(input.size() + 16, 'x');
    ZR::UniString text("kept");
    Bytes bytes;
    {
        krtest::LargestAllocation meter;
        ZR::MemoryIChannel in(input);
        EXPECT_EQ(in.Read(text), ZR::kErrTooLarge);
        EXPECT_EQ(in.ReadBytes(bytes, 1ull << 40), ZR::kErrTooLarge);
        EXPECT_EQ(in.Skip(17), ZR::kErrTooLarge);
        EXPECT_EQ(in.GetRemaining(), 16u);  // refused before reading on
        XIn x(input);
        EXPECT_EQ(x.x.Read(text), ZR::kErrTooLarge);
        EXPECT_LT(meter.Bytes(), 1024u);
    }
    {
        // A stream grows its buffer in steps of 64 KiB as the bytes arrive.
        krtest::LargestAllocation meter;
        StreamIChannel in(input);
        EXPECT_EQ(in.Read(text), ZR::kErrEndOfData);
        EXPECT_LE(meter.Bytes(), 64u * 1024 + input.size());
    }
    EXPECT_EQ(text, "kept");
}

TEST(MailboxId, TextFormRoundTripsAnyOwnerAndName) {
    for (auto [owner, name] : std::vector<std::pair<std::string, std::string>>{
             {"a/b%2F", "Se/nt%"}, {"", ""}, {"ü", "//"}}) {
        MailboxId id{ZR::UniString(owner), ZR::UniString(name)};
        EXPECT_EQ(MailboxId(id.ToString()), id) << id.ToString().Std();
    }
    EXPECT_EQ(MailboxId("a/b", "50%").ToString(), "a%2Fb/50%25");
    for (const char* bad : {"no-separator", "a/b/c", "a/b%", "a/%zz"})
        EXPECT_THROW(MailboxId{ZR::UniString(bad)}, ZR::IllegalArgumentException) << bad;

    // An address is its mailbox; the display name follows the user's profile.
    using Kerrow::Server::Mail::Address;
    EXPECT_EQ(Address(MailboxId("u", "Inbox"), "Jo"), Address(MailboxId("u", "Inbox"), "Joe"));
    EXPECT_FALSE(Address(MailboxId("u", "Inbox"), "Jo") == Address(MailboxId("u", "Sent"), "Jo"));
}

TEST(MailboxSessionInfo, ReadsWhatItWroteAndThrowsOnBadInput) {
    XOut o;
    MailboxSessionInfo session("s-1", MailboxId("u-1", "Inbox"));
    session.Write(o.x);
    XIn i(o.out.GetBytes());
    MailboxSessionInfo back;
    back.Read(i.x);
    EXPECT_EQ(back, session);

    // Cut anywhere: an exception with the channel's code, the object as it was.
    const MailboxSessionInfo old("old", MailboxId("o", "Sent"));
    for (std::size_t cut = 0; cut < o.out.GetSize(); ++cut) {
        XIn cutIn(Head(o.out.GetBytes(), cut));
        MailboxSessionInfo target = old;
        try {
            target.Read(cutIn.x);
            ADD_FAILURE() << "no exception at cut " << cut;
        } catch (const ZR::ZRException& e) {
            EXPECT_TRUE(e.GetErrorCode() == ZR::kErrEndOfData ||
                        e.GetErrorCode() == ZR::kErrTooLarge);
        }
        EXPECT_EQ(target, old);
    }

    XOut bad;  // a mailbox id that is not one
    ASSERT_EQ(bad.x.Write(ZR::UniString("s")), 0);
    ASSERT_EQ(bad.x.Write(ZR::UniString("no separator")), 0);
    XIn badIn(bad.out.GetBytes());
    EXPECT_THROW(back.Read(badIn.x), ZR::IllegalArgumentException);
    EXPECT_EQ(back, session);
}

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

TEST(UniString, CaseInsensitiveBeyondAscii) {
    EXPECT_TRUE(ZR::UniString("ÄRGER").IsEqual("ärger", ZR::kIgnoreCase));
    EXPECT_FALSE(ZR::UniString("ÄRGER").IsEqual("ärger"));
    EXPECT_TRUE(ZR::UniString("Σ").IsEqual("σ", ZR::kIgnoreCase));
    EXPECT_TRUE(ZR::UniString("σ").IsEqual("ς", ZR::kIgnoreCase));
    EXPECT_TRUE(ZR::UniString("straße").IsEqual("STRASSE", ZR::kIgnoreCase));
    EXPECT_FALSE(ZR::UniString("straße").IsEqual("STRASE", ZR::kIgnoreCase));

    EXPECT_EQ(ZR::UniString("ärger").Compare("ÄRGER", ZR::kIgnoreCase), 1);
    // Folded bytes, not the ASCII order of the letter.
    EXPECT_EQ(ZR::UniString("ä").Compare("B", ZR::kIgnoreCase), 2);
    EXPECT_EQ(ZR::UniString("a").Compare("B", ZR::kIgnoreCase), 0);
    EXPECT_EQ(ZR::UniString("a").Compare("B"), 2);
    EXPECT_EQ(ZR::UniString("ÄRGER").ToLowerCase(), "ärger");

    EXPECT_EQ(ZR::UniString("abcabc").FindFirst("bc", 2), 4u);
    EXPECT_EQ(ZR::UniString("abcabc").FindFirst("x"), ZR::UniString::npos);
}

TEST(Containers, InsertionOrderSurvivesAddAndRemove) {
    ZR::HashTable<std::string, int> table;
    EXPECT_TRUE(table.Add("c", 1));
    EXPECT_TRUE(table.Add("a", 2));
    EXPECT_TRUE(table.Add("b", 3));
    EXPECT_FALSE(table.Add("a", 99));
    EXPECT_EQ(*table.Find("a"), 2);
    EXPECT_TRUE(table.Remove("a"));
    EXPECT_TRUE(table.Add("a", 4));
    std::vector<std::string> keys;
    for (const auto& e : table) keys.push_back(e.first + std::to_string(e.second));
    EXPECT_EQ(keys, (std::vector<std::string>{"c1", "b3", "a4"}));

    // The index holds positions in its own list: a copy and a moved table
    // find their keys after the source is changed or gone.
    ZR::HashTable<std::string, int> copy = table;
    table.Remove("c");
    table.Set("b", 30);
    ZR::HashTable<std::string, int> moved = std::move(table);
    moved.Reserve(100);
    ASSERT_TRUE(copy.Find("c") && copy.Find("b") && moved.Find("b"));
    EXPECT_EQ(*copy.Find("b"), 3);
    EXPECT_EQ(*moved.Find("b"), 30);
    EXPECT_FALSE(moved.Contains("c"));

    ZR::HashSet<std::string> set{"z", "y", "x"};
    EXPECT_FALSE(set.Add("y"));
    EXPECT_TRUE(set.Remove("y"));
    EXPECT_EQ(std::vector<std::string>(set.begin(), set.end()),
              (std::vector<std::string>{"z", "x"}));
}

namespace {

template <typename Base>
struct Observer : Base {
    Observer(std::string n, std::vector<std::string>& l) : name(std::move(n)), log(l) {}
    ~Observer() override {
        if constexpr (requires(Base & b) { b.DetachFromSources(); }) this->DetachFromSources();
    }
    void Called() {
        log.push_back(name);
        if (action) action();
    }
    std::string name;
    std::vector<std::string>& log;
    std::function<void()> action;
};

template <typename Base, typename ObserverBase>
struct Source : Base {
    void Send() {
        this->ForEachObserver(
            [](ObserverBase* o) { static_cast<Observer<ObserverBase>*>(o)->Called(); });
    }
};

// The plain and the thread-safe source walk alike.
template <typename SourceBase, typename ObserverBase>
void CheckWalk() {
    std::vector<std::string> log;
    Source<SourceBase, ObserverBase> source;
    Observer<ObserverBase> a("a", log), b("b", log), c("c", log), d("d", log);
    source.Attach(a);
    source.Attach(b);
    source.Attach(c);
    source.Attach(b);  // once only
    // Attached during the walk: not called by it.
    b.action = [&] { source.Attach(d); };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"c", "b", "a"}));
    b.action = nullptr;

    // Detaching itself and someone not yet called.
    log.clear();
    c.action = [&] {
        source.Detach(c);
        source.Detach(a);
    };
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"d", "c", "b"}));
    EXPECT_FALSE(source.IsAttached(a));

    // A destroyed observer detaches itself.
    log.clear();
    {
        Observer<ObserverBase> e("e", log);
        source.Attach(e);
        EXPECT_EQ(source.GetObserverCount(), 3u);
    }
    EXPECT_EQ(source.GetObserverCount(), 2u);
    source.Send();
    EXPECT_EQ(log, (std::vector<std::string>{"d", "b"}));
}

}  // namespace

TEST(EventSource, WalkOrderAndChangesDuringTheWalk) {
    CheckWalk<ZR::EventSource, ZR::EventObserver>();
    CheckWalk<ZR::TS::EventSource, ZR::TS::EventObserver>();
}

TEST(MD5, KnownDigest) {
    EXPECT_EQ(MD5::Of("abc").GetAsZrString(), "900150983cd24fb0d6963f7d28e17f72");
    MD5::Generator generator;
    generator.Update("a", 1);
    generator.Update("bc", 2);
    EXPECT_EQ(generator.GetFingerPrint(), MD5::Of("abc"));
}

TEST(Printable, EscapesWhatATerminalActsOnAndCutsLongText) {
    const std::tuple<std::string, std::size_t, std::string> rows[] = {
        {"Plain Ä name", 80, "Plain Ä name"},
        {"a\nb\r\tc\\", 80, R"(a\nb\r\tc\\)"},
        {"\x1b[2J\x7f", 80, R"(\x1b[2J\x7f)"},
        {"\xc2\x85\xc2\x9b\xc2\xa0", 80, "\\u0085\\u009b\xc2\xa0"},  // C1 controls; NBSP stays
        {"\xff\xc3(\xe0\x80\x80\xed\xa0\x80", 80, R"(\xff\xc3(\xe0\x80\x80\xed\xa0\x80)"},
        {std::string(100, 'x'), 10, std::string(10, 'x') + "...(100 bytes)"},
        {"\xc3\xa4\xc3\xa4\xc3\xa4", 3, "\xc3\xa4\xc3\xa4...(6 bytes)"},  // whole characters
    };
    for (const auto& [text, max, expected] : rows)
        EXPECT_EQ(ZR::Internal::Printable(text, max), expected) << text;
}
