// The stored form of the login data; docs/LOGIN_DATA.md describes it.

#include <nlohmann/json.hpp>

#include "KRCB/LoginDataStore.h"

namespace KRCB::LoginDataStore {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormatVersion = 1;

Json UrlList(const ZR::PagedArray<ZR::UniString>& urls) {
    Json list = Json::array();
    for (const ZR::UniString& url : urls) list.push_back(url.Std());
    return list;
}

// Missing members read as their empty value; members of the wrong type are
// refused, since a guess could lose a token on the next save.
std::string TextMember(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::string();
    if (!it->is_string())
        throw LoginDataStoreException(
            ZR::UniString(std::string("Login data: \"") + key + "\" is not a text."), ZR_HERE);
    return it->get<std::string>();
}

int IntMember(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return 0;
    if (!it->is_number_integer())
        throw LoginDataStoreException(
            ZR::UniString(std::string("Login data: \"") + key + "\" is not a number."), ZR_HERE);
    return it->get<int>();
}

const Json& ArrayMember(const Json& object, const char* key) {
    static const Json empty = Json::array();
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return empty;
    if (!it->is_array())
        throw LoginDataStoreException(
            ZR::UniString(std::string("Login data: \"") + key + "\" is not a list."), ZR_HERE);
    return *it;
}

void RequireObject(const Json& value, const char* what) {
    if (!value.is_object())
        throw LoginDataStoreException(
            ZR::UniString(std::string("Login data: a ") + what + " is not an object."), ZR_HERE);
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
    Json root = Json::parse(text, nullptr, false);
    if (root.is_discarded())
        throw LoginDataStoreException("Login data: the file is not valid JSON.", ZR_HERE);
    RequireObject(root, "file");
    int version = IntMember(root, "formatVersion");
    if (version != kFormatVersion)
        throw LoginDataStoreException(
            ZR::UniString::Format("Login data: unsupported format version %d.", version), ZR_HERE);

    LoginDataStore store;
    for (const Json& s : ArrayMember(root, "servers")) {
        RequireObject(s, "server");
        ZR::UniString unique(TextMember(s, "uniqueUrl"));
        if (unique.IsEmpty())
            throw LoginDataStoreException("Login data: a server has no unique URL.", ZR_HERE);
        Server server(unique, ZR::UniString(TextMember(s, "friendlyName")),
                      IntMember(s, "majorVersion"), IntMember(s, "minorVersion"));
        for (const Json& url : ArrayMember(s, "commonConnections")) {
            if (!url.is_string())
                throw LoginDataStoreException("Login data: a connection is not a text.", ZR_HERE);
            server.AddCommonConnection(ZR::UniString(url.get<std::string>()));
        }
        for (const Json& url : ArrayMember(s, "clientConnections")) {
            if (!url.is_string())
                throw LoginDataStoreException("Login data: a connection is not a text.", ZR_HERE);
            server.AddClientConnection(ZR::UniString(url.get<std::string>()));
        }
        for (const Json& u : ArrayMember(s, "users")) {
            RequireObject(u, "user");
            ZR::UniString name(TextMember(u, "userName"));
            if (name.IsEmpty())
                throw LoginDataStoreException("Login data: a user has no name.", ZR_HERE);
            server.PutUser(User(name, ZR::UniString(TextMember(u, "refreshToken")),
                                ZR::UniString(TextMember(u, "fullName"))));
        }
        // An active user that isn't listed is dropped rather than kept dangling.
        if (const User* active = server.FindUser(ZR::UniString(TextMember(s, "activeUser"))))
            server.SetActiveUserName(active->GetUserName());
        store.mServers.Add(std::move(server));
    }
    ZR::UniString active(TextMember(root, "activeServer"));
    if (!active.IsEmpty()) store.mActiveServer = store.IndexOf(active);
    return store;
}

}  // namespace KRCB::LoginDataStore
