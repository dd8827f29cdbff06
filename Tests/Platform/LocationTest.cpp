#include <gtest/gtest.h>

#include "IO/Location.h"

using IO::Location;
using IO::Name;

TEST(Location, LocalPathsAreNormalised) {
    EXPECT_EQ(Location(ZR::UniString("/a//b///")).ToPath(), "/a/b");
    EXPECT_EQ(Location(ZR::UniString("///")).ToPath(), "/");
    EXPECT_EQ(Location(ZR::UniString("a//b/")).ToPath(), "a/b");
    EXPECT_TRUE(Location(ZR::UniString("")).IsEmpty());
    EXPECT_TRUE(Location(ZR::UniString("/x")).IsLocal());
}

TEST(Location, NamesOfLocalPaths) {
    Location root(ZR::UniString("/"));
    Location l = root + Name("a") + Name("b c");
    EXPECT_EQ(l.ToPath(), "/a/b c");

    Name name;
    ASSERT_TRUE(l.GetLastLocalName(&name));
    EXPECT_EQ(name.GetUniString(), "b c");
    EXPECT_FALSE(root.GetLastLocalName(&name));

    ASSERT_TRUE(l.MoveLastLocalName(&name));
    EXPECT_EQ(l.ToPath(), "/a");
    ASSERT_TRUE(l.MoveLastLocalName(&name));
    EXPECT_EQ(l, root);
    EXPECT_FALSE(l.MoveLastLocalName(&name));

    EXPECT_EQ(Location(ZR::UniString("/a/b")).GetParent().ToPath(), "/a");
    EXPECT_TRUE(root.GetParent().IsEmpty());
    EXPECT_TRUE(Location(ZR::UniString("rel")).GetParent().IsEmpty());
    EXPECT_EQ(Location(ZR::UniString("rel/x")).GetParent().ToPath(), "rel");
}

TEST(Location, TextFormRoundTripsEveryKindAndCharacter) {
    const char* const nasty[] = {"",       "plain",     "a@b:c/d",          "100%",
                                 "%3B%25", ";;;",       " lead and trail ", "ÄÖü 😀",
                                 "krcb:x", "file:///x", "tab\tnl\n",        "a;b%c@d:e/f"};
    std::vector<Location> locations = {Location(), Location(ZR::UniString("/tmp/some where/ä;%")),
                                       Location(ZR::UniString("krcb:a;b;c;d")),
                                       Location(ZR::UniString("rel/krcb:"))};
    for (const char* url : nasty)
        for (const char* secret : nasty)
            locations.push_back(Location::ServerLocation(url, secret, secret, url));
    locations.push_back(Location::ServerLocation("https://srv:8443/", "jo@example.org",
                                                 "p@ss:w/rd%", "/F/Proj ect"));

    // All-empty fields included: still a server location, not an empty one.
    for (const Location& l : locations) {
        Location back;
        ASSERT_TRUE(back.Set(l.ToText())) << l.ToText().Std();
        EXPECT_EQ(back, l) << l.ToText().Std();
        EXPECT_EQ(back.GetKind(), l.GetKind());
    }
}

TEST(Location, SetTakesPlainPathsAndRejectsMalformedText) {
    Location l = Location::ServerLocation("u", "n", "p", "/x");
    ASSERT_TRUE(l.Set("/var//data/"));
    EXPECT_TRUE(l.IsLocal());
    EXPECT_EQ(l.ToPath(), "/var/data");
    EXPECT_EQ(l.ToText(), "/var/data");

    ASSERT_TRUE(l.Set(""));
    EXPECT_TRUE(l.IsEmpty());

    for (const char* bad : {"krcb:a;b", "krcb:a;b;c;d;e", "krcb:%G0;;;", "krcb:%4", "krcb:a;b;c;%"})
        EXPECT_FALSE(Location().Set(bad)) << bad;
}

TEST(Location, DisplayTextNeverShowsThePassword) {
    Location l = Location::ServerLocation("https://srv", "jo", "s3cr3t-token", "/Folder/Project");
    std::string shown = l.ToDisplayText().Std();
    EXPECT_EQ(shown.find("s3cr3t"), std::string::npos);
    EXPECT_NE(shown.find("/Folder/Project"), std::string::npos);
    EXPECT_EQ(Location(ZR::UniString("/a b")).ToDisplayText(), "/a b");
}

TEST(Location, ObsoleteFileUrlForm) {
    Location l(ZR::UniString("/tmp/a b/ä%;"));
    EXPECT_EQ(l.ToObsoleteText(), "file:///tmp/a%20b/%C3%A4%25%3B");

    Location back;
    ASSERT_TRUE(back.SetObsolete(l.ToObsoleteText()));
    EXPECT_EQ(back, l);
    ASSERT_TRUE(back.SetObsolete("file://localhost/x%2fy"));
    EXPECT_EQ(back.ToPath(), "/x/y");
    ASSERT_TRUE(back.Set("FILE:///a%20b"));
    EXPECT_EQ(back.ToPath(), "/a b");

    EXPECT_FALSE(back.SetObsolete("file://elsewhere/x"));
    EXPECT_FALSE(back.SetObsolete("http://host/x"));
    EXPECT_FALSE(back.SetObsolete("file:///bad%zz"));
    EXPECT_TRUE(Location::ServerLocation("u", "n", "p", "/x").ToObsoleteText().IsEmpty());
}

TEST(Location, EqualityComparesKindAndEveryField) {
    Location a = Location::ServerLocation("u", "n", "p", "/x");
    EXPECT_EQ(a, Location::ServerLocation("u", "n", "p", "/x"));
    EXPECT_NE(a, Location::ServerLocation("u", "n", "other", "/x"));
    EXPECT_NE(a, Location::ServerLocation("U", "n", "p", "/x"));
    EXPECT_NE(Location(ZR::UniString("/x")), Location::ServerLocation("", "", "", "/x"));
}
