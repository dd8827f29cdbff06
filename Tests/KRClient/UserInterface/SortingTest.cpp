// Sort keys of resources and local projects, the two-criteria comparer, and
// the path, server and user sorters.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KRClient/UserInterface/ResourceComparer.h"
#include "KRClient/UserInterface/Sorters.h"

namespace {

using namespace KRC::UI;
using namespace KRCB::Management::Entities;
using RC = ResourceComparer;

// Keys only; the comparer sees nothing else.
struct Element : ISortableElement {
    std::string name;
    int modified = 0;
    std::uint64_t size = 0;
    int type = 1;
    Element(std::string n, int m = 0, std::uint64_t s = 0)
        : name(std::move(n)), modified(m), size(s) {}
    ZR::UniString GetSortName() const override { return name; }
    int GetSortModifiedTimeUtc() const override { return modified; }
    std::uint64_t GetSortSize() const override { return size; }
    const ZR::UniString GetSortModelServerPath() const override { return name; }
    int GetSortResourceType() const override { return type; }
    ZR::UniString GetSortPath() const override { return "/" + name; }
};

struct HostProjectInfo : SortableProjectInfo {
    using SortableProjectInfo::SortableProjectInfo;
    ZR::UniString GetSortPath() const override { return GetProjectInfo().path; }
};

TEST(ResourceComparer, CriteriaDirectionsAndTies) {
    const Element a("a", 5, 2), B("B", -3, 2), b("b", 7, 1), c("c", 5, 9);
    struct Row {
        RC::SortCriteria first;
        bool firstUp;
        RC::SortCriteria second;
        bool secondUp;
        const Element *x, *y;
        bool before, after;  // x before y, y before x
    } rows[] = {
        {RC::Name, true, RC::Name, false, &a, &B, true, false},  // one criterion, ascending
        {RC::Name, false, RC::Name, true, &a, &B, false, true},
        {RC::Name, true, RC::Size, true, &B, &b, false, true},   // case tie: size decides
        {RC::Size, false, RC::Name, true, &a, &B, true, false},  // equal sizes: name ascending
        {RC::Size, false, RC::Name, false, &a, &B, false, true},
        {RC::Modified, true, RC::Name, true, &B, &a, true, false},  // signed: negative first
        {RC::Modified, true, RC::Size, true, &a, &c, true, false},
        {RC::Name, true, RC::Modified, true, &B, &B, false, false},  // equal in both
        {RC::Path, true, RC::Name, true, &b, &B, false, false},
        {RC::ModelServer, false, RC::Name, true, &a, &c, false, true},
        {static_cast<RC::SortCriteria>(7), true, RC::Name, true, &c, &a, false, true},
    };
    for (const Row& r : rows) {
        RC cmp(r.first, r.firstUp, r.second, r.secondUp);
        EXPECT_EQ(cmp(*r.x, *r.y), r.before) << r.first << " " << r.x->name << r.y->name;
        EXPECT_EQ(cmp(*r.y, *r.x), r.after) << r.first << " " << r.y->name << r.x->name;
    }
}

TEST(ResourceComparer, SortKeysOfResourcesAndLocalProjects) {
    Resource::Fields f;
    f.path = "/Top/Name";
    const ZR::Ref<Resource> resources[] = {
        ZR::Ref<Resource>(std::make_shared<Project>(f, "", ZR::HashSet<ZR::UniString>())),
        ZR::Ref<Resource>(std::make_shared<Library>(f)),
        ZR::Ref<Resource>(std::make_shared<File>(f))};
    for (int type = 1; type <= 3; ++type) {
        SortableResource s(resources[type - 1]);
        EXPECT_EQ(s.GetSortResourceType(), type);
        EXPECT_EQ(s.GetSortName(), "Name");
    }
    KRC::UI::LocalCache::ProjectInfo info;
    info.path = "/Top/Local";
    HostProjectInfo p(info);
    info.path = "changed";  // the element keeps its own copy
    EXPECT_EQ(p.GetSortName(), "Local");
    EXPECT_EQ(p.GetSortResourceType(), 1);
    SortableResource file(resources[2]), project(resources[0]);
    EXPECT_TRUE(RC(RC::ResourceType, true, RC::ResourceType, true)(project, file));
}

// std::sort needs a strict weak ordering: irreflexive, and with
// equivalence (neither before the other) transitive. Case variants and
// empty names are where a case-blind comparison can get this wrong; the
// million-element figure is the benchmark's.
TEST(ResourceComparer, IsAStrictWeakOrderingSafeForStdSort) {
    const char* names[] = {"",  "a", "A", "ab", "aB", "Ab", "b",
                           "B", "ä", "Ä", "z",  "Z",  " ",  "a b"};
    std::mt19937 random(7);
    std::vector<Element> pool;
    for (int i = 0; i < 100000; ++i)  // case-only variants, empty names, ties on size
        pool.emplace_back(names[random() % 8], 0, random() % 3);
    const RC comparers[] = {RC(RC::Name, true, RC::Size, false),
                            RC(RC::Name, false, RC::Name, true)};
    for (const RC& cmp : comparers) {
        for (const char* x : names)
            for (const char* y : names)
                for (const char* z : names) {
                    Element ex(x), ey(y), ez(z);
                    ASSERT_FALSE(cmp(ex, ex));
                    const bool xy = !cmp(ex, ey) && !cmp(ey, ex), yz = !cmp(ey, ez) && !cmp(ez, ey);
                    ASSERT_TRUE(!(xy && yz) || (!cmp(ex, ez) && !cmp(ez, ex))) << x << y << z;
                    ASSERT_TRUE(!(cmp(ex, ey) && cmp(ey, ez)) || cmp(ex, ez)) << x << y << z;
                }
    }
    // The sort itself, where a broken ordering runs off the range.
    const RC& cmp = comparers[0];
    std::vector<const Element*> order;
    for (const Element& e : pool) order.push_back(&e);
    auto less = [&cmp](const Element* l, const Element* r) { return cmp(*l, *r); };
    std::sort(order.begin(), order.end(), less);
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(), less));
}

// The items sorted by Sorter in place, each shown by key, one blank after each.
template <typename Sorter, typename T, typename Key>
std::string Sorted(std::initializer_list<T> items, Key key) {
    ZR::PagedArray<T, 8> array;
    for (const T& item : items) array.Add(item);
    Sorter sort(array);
    std::string text;
    for (std::size_t i = 0; i < array.GetSize(); ++i) text += key(array[i]) + " ";
    return text;
}

TEST(Sorters, PathsServersAndUsers) {
    using Path = ZR::Array<ZR::UniString>;
    auto path = [](std::initializer_list<const char*> elements) {
        Path p;
        for (const char* e : elements) p.Add(e);
        return p;
    };
    auto joined = [](const Path& p) {
        std::string text;
        for (const ZR::UniString& e : p.Std()) text += (text.empty() ? "" : "/") + e.Std();
        return text;
    };
    EXPECT_EQ(Sorted<PathSorter>(
                  {path({"A", "c"}), path({"a", "b"}), path({"a"}), path({}), path({"B"})}, joined),
              " a a/b A/c B ");
    using KRCB::LoginDataStore::Server;
    EXPECT_EQ(Sorted<ServerSorter>({Server("https://z", "Beta"), Server("https://c", ""),
                                    Server("https://b", "alpha"), Server("https://a", "Alpha")},
                                   [](const Server& s) { return s.GetUniqueURL().Std(); }),
              "https://a https://b https://z https://c ");
    using KRCB::LoginDataStore::User;
    EXPECT_EQ(
        Sorted<UserSorter>({User("zed", "", "Ann"), User("bob", "", ""), User("amy", "", "ann")},
                           [](const User& u) { return u.GetUserName().Std(); }),
        "amy zed bob ");
}

}  // namespace
