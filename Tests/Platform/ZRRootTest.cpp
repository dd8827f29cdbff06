#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "ZR/Containers.h"
#include "ZR/EventSource.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MD5.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

using ZR::UniString;

TEST(UniString, CaseInsensitiveBeyondAscii) {
    EXPECT_TRUE(UniString("ÄRGER").IsEqual("ärger", ZR::kIgnoreCase));
    EXPECT_FALSE(UniString("ÄRGER").IsEqual("ärger"));
    EXPECT_TRUE(UniString("Σ").IsEqual("σ", ZR::kIgnoreCase));
    EXPECT_TRUE(UniString("σ").IsEqual("ς", ZR::kIgnoreCase));
    EXPECT_TRUE(UniString("straße").IsEqual("STRASSE", ZR::kIgnoreCase));
    EXPECT_FALSE(UniString("straße").IsEqual("STRASE", ZR::kIgnoreCase));

    EXPECT_EQ(UniString("ärger").Compare("ÄRGER", ZR::kIgnoreCase), 1);
    // Folded bytes, not the ASCII order of the letter.
    EXPECT_EQ(UniString("ä").Compare("B", ZR::kIgnoreCase), 2);
    EXPECT_EQ(UniString("a").Compare("B", ZR::kIgnoreCase), 0);
    EXPECT_EQ(UniString("a").Compare("B"), 2);
    EXPECT_EQ(UniString("ÄRGER").ToLowerCase(), "ärger");

    EXPECT_EQ(UniString("abcabc").FindFirst("bc", 2), 4u);
    EXPECT_EQ(UniString("abcabc").FindFirst("x"), UniString::npos);
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
