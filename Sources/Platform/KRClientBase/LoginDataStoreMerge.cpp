// Three-way merge of login data: a save applies what its writer changed since
// it took its copy to what the file holds now, so that writers who started from
// the same data each keep their own changes. Servers are matched by unique URL,
// users by name (both without regard to case); a field counts as changed here
// if mine differs from base, and then mine wins.

#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "KRCB/LoginDataStore.h"

namespace KRCB::LoginDataStore {

namespace {

std::string NameKey(const ZR::UniString& name) {
    return name.FoldCase().Std();
}

template <typename T>
std::unordered_map<std::string, std::size_t> IndexBy(const ZR::PagedArray<T>& items,
                                                     std::string (*key)(const T&)) {
    std::unordered_map<std::string, std::size_t> index;
    index.reserve(items.GetSize());
    for (std::size_t i = 0; i < items.GetSize(); ++i) index.emplace(key(items[i]), i);
    return index;
}

std::string UserKeyOf(const User& user) {
    return NameKey(user.GetUserName());
}

std::string ServerKeyOf(const Server& server) {
    return UrlKey(server.GetUniqueURL());
}

template <typename T>
const T& Pick(const T& base, const T& mine, const T& theirs) {
    return mine != base ? mine : theirs;
}

}  // namespace

void LoginDataStore::MergeServer(const Server* base, const Server& mine, Server& theirs) {
    static const Server kNone;
    const Server& b = base ? *base : kNone;
    theirs.mFriendlyName = Pick(b.mFriendlyName, mine.mFriendlyName, theirs.mFriendlyName);
    if (mine.mMajorVersion != b.mMajorVersion || mine.mMinorVersion != b.mMinorVersion) {
        theirs.mMajorVersion = mine.mMajorVersion;
        theirs.mMinorVersion = mine.mMinorVersion;
    }

    // Connections are only ever added.
    std::unordered_set<std::string> known = {UrlKey(theirs.mUniqueURL)};
    for (const auto* list : {&theirs.mCommonConnections, &theirs.mClientConnections})
        for (const ZR::UniString& url : *list) known.insert(UrlKey(url));
    for (auto [from, to] : {std::pair{&mine.mCommonConnections, &theirs.mCommonConnections},
                            std::pair{&mine.mClientConnections, &theirs.mClientConnections}})
        for (const ZR::UniString& url : *from)
            if (known.insert(UrlKey(url)).second) to->Add(url);

    auto baseUsers = IndexBy(b.mUsers, &UserKeyOf);
    auto mineUsers = IndexBy(mine.mUsers, &UserKeyOf);
    std::vector<User> kept;
    kept.reserve(theirs.mUsers.GetSize() + mine.mUsers.GetSize());
    for (User& user : theirs.mUsers.Std()) {
        std::string key = UserKeyOf(user);
        bool deletedHere = baseUsers.count(key) && !mineUsers.count(key);
        if (!deletedHere) kept.push_back(std::move(user));
    }
    theirs.mUsers.Std() = std::move(kept);
    auto theirUsers = IndexBy(theirs.mUsers, &UserKeyOf);
    static const User kNoUser;
    for (const User& m : mine.mUsers) {
        std::string key = UserKeyOf(m);
        auto bi = baseUsers.find(key);
        const User& bu = bi == baseUsers.end() ? kNoUser : b.mUsers[bi->second];
        auto ti = theirUsers.find(key);
        if (ti == theirUsers.end()) {
            // Deleted there and untouched here: the delete stands.
            if (bi != baseUsers.end() && m == bu) continue;
            theirUsers.emplace(key, theirs.mUsers.GetSize());
            theirs.mUsers.Add(m);
            continue;
        }
        User& t = theirs.mUsers[ti->second];
        t = User(Pick(bu.GetUserName(), m.GetUserName(), t.GetUserName()),
                 Pick(bu.GetRefreshToken(), m.GetRefreshToken(), t.GetRefreshToken()),
                 Pick(bu.GetFullName(), m.GetFullName(), t.GetFullName()));
    }

    std::string active = NameKey(theirs.mActiveUser);
    if (NameKey(mine.mActiveUser) != NameKey(b.mActiveUser)) active = NameKey(mine.mActiveUser);
    auto ai = theirUsers.find(active);
    theirs.mActiveUser = active.empty() || ai == theirUsers.end()
                             ? ZR::UniString()
                             : theirs.mUsers[ai->second].GetUserName();
}

LoginDataStore LoginDataStore::Merge(const LoginDataStore& base, const LoginDataStore& mine,
                                     const LoginDataStore& theirs) {
    auto baseServers = IndexBy(base.mServers, &ServerKeyOf);
    auto mineServers = IndexBy(mine.mServers, &ServerKeyOf);
    auto activeKey = [](const LoginDataStore& store) {
        return store.HasActiveServer() ? ServerKeyOf(store.mServers[store.mActiveServer])
                                       : std::string();
    };
    std::string active = activeKey(theirs);
    if (activeKey(mine) != activeKey(base)) active = activeKey(mine);

    LoginDataStore out;
    std::unordered_map<std::string, std::size_t> outServers;
    for (const Server& t : theirs.mServers) {
        std::string key = ServerKeyOf(t);
        if (baseServers.count(key) && !mineServers.count(key)) continue;  // deleted here
        outServers.emplace(key, out.mServers.GetSize());
        out.mServers.Add(t);
    }
    for (const Server& m : mine.mServers) {
        std::string key = ServerKeyOf(m);
        auto bi = baseServers.find(key);
        const Server* b = bi == baseServers.end() ? nullptr : &base.mServers[bi->second];
        if (auto oi = outServers.find(key); oi != outServers.end()) {
            MergeServer(b, m, out.mServers[oi->second]);
            continue;
        }
        if (b && *b == m) continue;  // deleted there, untouched here
        outServers.emplace(key, out.mServers.GetSize());
        out.mServers.Add(m);
    }
    out.RebuildIndex();
    if (auto ai = outServers.find(active); !active.empty() && ai != outServers.end())
        out.mActiveServer = ai->second;
    return out;
}

}  // namespace KRCB::LoginDataStore
