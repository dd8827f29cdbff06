#pragma once
// The scenario reader and writer, split by area: the values and their checks
// here and in ScenarioValues.cpp, servers and users in ScenarioServers.cpp,
// projects, sessions and members in ScenarioProjects.cpp, state logins in
// ScenarioLogins.cpp, mailboxes in ScenarioMail.cpp. Every refusal is a
// ScenarioError of one line that names the place ("servers[0].version[0]")
// and what is allowed, never the value.

#include <cstdint>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "Emulator/Internal/State.h"
#include "ZR/Internal/Printable.h"

namespace Emulator::Internal::Scenario {

/// Read into a plain map, whose look-ups and inserts stay logarithmic
/// whatever an object holds; written in member order (Data).
using Value = nlohmann::json;

inline constexpr std::size_t kMaxBytes = 64u << 20;
inline constexpr int kMaxDepth = 64;
/// Values and keys in all: room for 100,000 entries of every kind with all
/// their keys, and a bound on what the parser builds and the tables take.
inline constexpr std::size_t kMaxValues = 2'000'000;
/// Keys are names (of members, logins, attributes), never data.
inline constexpr std::size_t kMaxKeyBytes = 4096;

// The place of a member or an element; keys are made printable.
std::string Child(const std::string& path, std::string_view key);
std::string Index(const std::string& path, std::size_t i);
[[noreturn]] void Fail(const std::string& path, const std::string& what);

/// The parsed document, after a scan that refuses what would cost more than
/// one pass over the bytes.
Value Parse(const std::string& text);

/// An object with only the keys named; another key is the error.
const Value& Object(const Value& value, const std::string& path,
                    std::initializer_list<std::string_view> keys);
const Value* Member(const Value& object, const char* key);
std::string Text(const Value& object, const std::string& path, const char* key,
                 bool required = false);
/// A whole number in [low, high], checked as the parser stored it.
std::int64_t Integer(const Value& value, const std::string& path, std::int64_t low,
                     std::int64_t high);
std::int64_t Integer(const Value& object, const std::string& path, const char* key,
                     std::int64_t otherwise, std::int64_t low, std::int64_t high);
bool Boolean(const Value& object, const std::string& path, const char* key);
void Version(const Value& object, const std::string& path, int* major, int* minor);
/// The array under key, or null if there is none.
const Value* List(const Value& object, const std::string& path, const char* key);
std::vector<unsigned char> Bytes(const Value& value, const std::string& path);

/// A refusal of the tables becomes an error at the entry that caused it.
template <typename F>
auto At(const std::string& path, F&& add) {
    try {
        return add();
    } catch (const std::invalid_argument& e) {
        // The tables' texts may quote names of any length and bytes.
        Fail(path, ZR::Internal::Printable(e.what(), 160));
    }
}

/// By area, under the state's lock.
void ReadServer(State& state, const Value& value, const std::string& path);
void ReadUsers(State& state, Server& server, const Value& list, const std::string& path);
void ReadProjects(State& state, Server& server, const Value& list, const std::string& path);
void ReadStateLogins(State& state, Server& server, const Value& list, const std::string& path);
void ReadMailboxes(State& state, Server& server, const Value& list, const std::string& path);
void ReadFolders(State& state, Server& server, const Value& list, const std::string& path);
void ReadRootFolder(State& state, Server& server, const Value& value, const std::string& path);
void ReadLibraries(State& state, Server& server, const Value& list, const std::string& path);

/// withSecrets: passwords, tokens and picture bytes; without them a picture
/// is "hasPicture": true.
Data WriteServer(const Server& server, bool withSecrets);
Data WriteUsers(const Server& server, bool withSecrets);
Data WriteProjects(const Server& server);
Data WriteStateLogins(const Server& server, bool withSecrets);
Data WriteMailboxes(const Server& server);
Data WriteFolders(const Server& server);
/// The root folder's settings; an empty object if it has none.
Data WriteRootFolder(const Server& server);
Data WriteLibraries(const Server& server);

/// Appends a member known to be new: the ordered object's own insert
/// compares the key with every member first.
void Append(Data& object, const std::string& key, Data value);

}  // namespace Emulator::Internal::Scenario
