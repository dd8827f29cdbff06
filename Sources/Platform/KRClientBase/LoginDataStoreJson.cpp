// The stored form of the login data; docs/LOGIN_DATA.md describes it.

#include <cstdint>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <unordered_set>

#include "KRCB/Internal/JsonScan.h"
#include "KRCB/LoginDataStore.h"
#include "KRCB/Paths.h"

namespace KRCB::LoginDataStore {

namespace {

// Written in member order; read into a plain map, whose look-ups and inserts
// stay logarithmic whatever a hostile file holds.
using Json = nlohmann::ordered_json;
using ReadJson = nlohmann::json;

constexpr int kFormatVersion = 1;

[[noreturn]] void Refuse(const std::string& what) {
    throw LoginDataStoreException(ZR::UniString("Login data: " + what), ZR_HERE);
}

Json UrlList(const ZR::PagedArray<ZR::UniString>& urls) {
    Json list = Json::array();
    for (const ZR::UniString& url : urls) list.push_back(url.Std());
    return list;
}

// Missing members read as their empty value; members of the wrong type are
// refused, since a guess could lose a token on the next save. Texts are UTF-8
// (the parser checks).
std::string TextMember(const ReadJson& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::string();
    if (!it->is_string()) Refuse(std::string("\"") + key + "\" is not a text.");
    return it->get_ref<const std::string&>();
}

// An integer in [min, max]; anything else is refused before it is narrowed.
std::int64_t NumberMember(const ReadJson& object, const char* key, std::int64_t min,
                          std::int64_t max) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return 0;
    bool inRange = false;
    std::int64_t value = 0;
    if (it->is_number_unsigned()) {
        std::uint64_t u = it->get<std::uint64_t>();
        inRange = u <= static_cast<std::uint64_t>(max);
        value = inRange ? static_cast<std::int64_t>(u) : 0;
    } else if (it->is_number_integer()) {
        value = it->get<std::int64_t>();
        inRange = true;
    } else {
        Refuse(std::string("\"") + key + "\" is not a whole number.");
    }
    if (!inRange || value < min || value > max)
        Refuse(std::string("\"") + key + "\" is out of range (" + std::to_string(min) + " to " +
               std::to_string(max) + ").");
    return value;
}

int VersionMember(const ReadJson& object, const char* key) {
    return static_cast<int>(NumberMember(object, key, 0, LoginDataStore::kMaxVersionNumber));
}

const ReadJson& ArrayMember(const ReadJson& object, const char* key) {
    static const ReadJson empty = ReadJson::array();
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return empty;
    if (!it->is_array()) Refuse(std::string("\"") + key + "\" is not a list.");
    return *it;
}

void RequireObject(const ReadJson& value, const char* what) {
    if (!value.is_object()) Refuse(std::string("a ") + what + " is not an object.");
}

ZR::UniString UrlText(const ReadJson& value) {
    if (!value.is_string()) Refuse("a connection is not a text.");
    return ZR::UniString(value.get_ref<const std::string&>());
}

void RequireNoUserInfo(const ZR::UniString& url) {
    if (HasUserInfo(url)) Refuse("a server URL carries a user name or password.");
}

ReadJson ParseBounded(const std::string& text) {
    if (text.size() > LoginDataStore::kMaxTextBytes)
        Refuse("the file is larger than " + std::to_string(LoginDataStore::kMaxTextBytes >> 20) +
               " MiB.");
    const Internal::JsonScan scan = Internal::ScanJson(text, LoginDataStore::kMaxDepth);
    if (scan.outcome == Internal::JsonScan::Outcome::TooDeep)
        Refuse("the file is nested deeper than " + std::to_string(LoginDataStore::kMaxDepth) +
               " levels.");
    if (scan.outcome != Internal::JsonScan::Outcome::Fine)
        Refuse("the file is not valid JSON (at byte " + std::to_string(scan.byte) + ").");
    ReadJson root = ReadJson::parse(text, nullptr, false);
    if (root.is_discarded()) Refuse("the file is not valid JSON.");
    return root;
}

}  // namespace

std::string LoginDataStore::ToJson() const {
    Json root = Json::object();
    root["formatVersion"] = kFormatVersion;
    root["activeServer"] =
        HasActiveServer() ? mServers[mActiveServer].GetUniqueURL().Std() : std::string();
    Json servers = Json::array();
    for (const Server& server : mServers) {
        Json s = Json::object();
        s["uniqueUrl"] = server.GetUniqueURL().Std();
        s["friendlyName"] = server.GetFriendlyName().Std();
        s["majorVersion"] = server.GetMajorVersion();
        s["minorVersion"] = server.GetMinorVersion();
        s["commonConnections"] = UrlList(server.GetCommonConnections());
        s["clientConnections"] = UrlList(server.GetClientConnections());
        s["activeUser"] = server.GetActiveUserName().Std();
        Json users = Json::array();
        for (const User& user : server.GetUsers()) {
            Json u = Json::object();
            u["userName"] = user.GetUserName().Std();
            u["fullName"] = user.GetFullName().Std();
            u["refreshToken"] = user.GetRefreshToken().Std();
            users.push_back(std::move(u));
        }
        s["users"] = std::move(users);
        servers.push_back(std::move(s));
    }
    root["servers"] = std::move(servers);
    // Texts are UTF-8 by contract; a stray byte must not make the save fail.
    return root.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

LoginDataStore LoginDataStore::FromJson(const std::string& text) {
    ReadJson root = ParseBounded(text);
    RequireObject(root, "file");
    std::int64_t version = NumberMember(root, "formatVersion", 0, INT32_MAX);
    if (version != kFormatVersion)
        Refuse("unsupported format version " + std::to_string(version) + ".");

    LoginDataStore store;
    const ReadJson& servers = ArrayMember(root, "servers");
    store.mServers.EnsureCapacity(servers.size());
    // Duplicates are found through hashes of the look-up forms: a list of any
    // length reads in linear time.
    std::unordered_map<std::string, std::size_t> users;
    std::unordered_set<std::string> urls;
    for (const ReadJson& s : servers) {
        RequireObject(s, "server");
        ZR::UniString unique(TextMember(s, "uniqueUrl"));
        if (unique.IsEmpty()) Refuse("a server has no unique URL.");
        RequireNoUserInfo(unique);
        Server server(unique, ZR::UniString(TextMember(s, "friendlyName")),
                      VersionMember(s, "majorVersion"), VersionMember(s, "minorVersion"));
        urls.clear();
        urls.insert(UrlKey(unique));
        for (auto [key, list] : {std::pair{"commonConnections", &server.mCommonConnections},
                                 std::pair{"clientConnections", &server.mClientConnections}}) {
            for (const ReadJson& value : ArrayMember(s, key)) {
                ZR::UniString url = UrlText(value);
                RequireNoUserInfo(url);
                std::string urlKey = UrlKey(url);
                if (!urlKey.empty() && urls.insert(urlKey).second) list->Add(std::move(url));
            }
        }
        users.clear();
        for (const ReadJson& u : ArrayMember(s, "users")) {
            RequireObject(u, "user");
            ZR::UniString name(TextMember(u, "userName"));
            if (name.IsEmpty()) Refuse("a user has no name.");
            User user(name, ZR::UniString(TextMember(u, "refreshToken")),
                      ZR::UniString(TextMember(u, "fullName")));
            // A name listed twice: the later data in the earlier place.
            auto [it, added] = users.emplace(name.FoldCase().Std(), server.mUsers.GetSize());
            if (added)
                server.mUsers.Add(std::move(user));
            else
                server.mUsers[it->second] = std::move(user);
        }
        // An active user that isn't listed is dropped rather than kept dangling.
        ZR::UniString active(TextMember(s, "activeUser"));
        if (auto it = users.find(active.FoldCase().Std()); !active.IsEmpty() && it != users.end())
            server.mActiveUser = server.mUsers[it->second].GetUserName();
        store.mServers.Add(std::move(server));
    }
    store.RebuildIndex();
    ZR::UniString active(TextMember(root, "activeServer"));
    if (!active.IsEmpty()) store.mActiveServer = store.IndexOf(active);
    return store;
}

}  // namespace KRCB::LoginDataStore
