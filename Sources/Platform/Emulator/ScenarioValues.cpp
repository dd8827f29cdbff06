// The values of a scenario file and their checks.
#include <limits>

#include "Emulator/Internal/Scenario.h"
#include "KRCB/Internal/JsonScan.h"

namespace Emulator::Internal::Scenario {

namespace {

using KRCB::Internal::JsonScan;

std::string Range(std::int64_t low, std::int64_t high) {
    return "an integer from " + std::to_string(low) + " to " + std::to_string(high);
}

// What may stand where the scan found a number that no type holds.
std::string AllowedAt(const std::vector<std::string>& keys) {
    const std::string last = keys.empty() ? std::string() : keys.back();
    const bool inLogin = keys.size() >= 2 && keys[keys.size() - 2] == "stateLogins";
    if (last == "version") return Range(0, 0xffff);
    if (last == "userId") return Range(1, INT16_MAX);
    if (last == "sslVerifyResult" || (last == "state" && !inLogin))
        return Range(INT32_MIN, INT32_MAX);
    if (last == "down" || last == "ssl" || last == "companyMember") return "true or false";
    return "no number";
}

// The line and column of the byte the parser stopped at, counted from 1.
void Locate(const std::string& text, std::size_t byte, int* line, int* column) {
    std::size_t at = byte == 0 ? 0 : std::min<std::size_t>(byte - 1, text.size());
    *line = 1;
    std::size_t lineStart = 0;
    for (std::size_t i = 0; i < at; ++i)
        if (text[i] == '\n') {
            ++*line;
            lineStart = i + 1;
        }
    *column = static_cast<int>(at - lineStart) + 1;
}

}  // namespace

std::string Child(const std::string& path, std::string_view key) {
    std::string name = ZR::Internal::Printable(key, 40);
    return path.empty() ? name : path + "." + name;
}

std::string Index(const std::string& path, std::size_t i) {
    return path + "[" + std::to_string(i) + "]";
}

void Fail(const std::string& path, const std::string& what) {
    throw ScenarioError((path.empty() ? std::string("scenario") : path) + ": " + what);
}

// Members of the document's objects, all levels (at most kMaxDepth deep).
std::size_t CountMembers(const Value& value) {
    std::size_t count = value.is_object() ? value.size() : 0;
    if (value.is_structured())
        for (const Value& child : value) count += CountMembers(child);
    return count;
}

Value Parse(const std::string& text) {
    if (text.size() > kMaxBytes) Fail("", "larger than 64 MiB");
    // The parser keeps one of two equal keys without a word; the document
    // shows it by fewer members than the text has keys, and only then does a
    // second walk look for the place with a set of each object's keys.
    JsonScan scan = KRCB::Internal::ScanJson(text, kMaxDepth, false, kMaxValues, kMaxKeyBytes);
    if (scan.outcome == JsonScan::Outcome::Fine) {
        Value document = Value::parse(text, nullptr, false);
        if (document.is_discarded()) Fail("", "not JSON");
        if (CountMembers(document) == scan.keys) return document;
        scan = KRCB::Internal::ScanJson(text, kMaxDepth, true, kMaxValues, kMaxKeyBytes);
    }
    switch (scan.outcome) {
        case JsonScan::Outcome::Fine:
            break;
        case JsonScan::Outcome::TooDeep:
            Fail(scan.path, "nested deeper than " + std::to_string(kMaxDepth) + " levels");
        case JsonScan::Outcome::TooMany:
            Fail(scan.path, "more than " + std::to_string(kMaxValues) + " values and keys in all");
        case JsonScan::Outcome::KeyTooLong:
            Fail(scan.path, "a key longer than " + std::to_string(kMaxKeyBytes) + " bytes");
        case JsonScan::Outcome::NumberTooLarge:
            Fail(scan.path, "a number beyond any type; expected " + AllowedAt(scan.pathKeys));
        case JsonScan::Outcome::DuplicateKey:
            Fail(scan.path, "given twice");
        case JsonScan::Outcome::Syntax: {
            int line = 0, column = 0;
            Locate(text, scan.byte, &line, &column);
            throw ScenarioError("line " + std::to_string(line) + ", column " +
                                    std::to_string(column) + ": " + scan.reason,
                                line, column);
        }
    }
    Fail("", "not JSON");
}

const Value& Object(const Value& value, const std::string& path,
                    std::initializer_list<std::string_view> keys) {
    if (!value.is_object()) Fail(path, "expected an object");
    for (const auto& [key, member] : value.items()) {
        bool known = false;
        for (std::string_view k : keys) known = known || k == key;
        if (!known) Fail(Child(path, key), "unknown key");
    }
    return value;
}

const Value* Member(const Value& object, const char* key) {
    auto it = object.find(key);
    return it == object.end() ? nullptr : &*it;
}

std::string Text(const Value& object, const std::string& path, const char* key, bool required) {
    const Value* value = Member(object, key);
    if (!value) {
        if (required) Fail(path, std::string("missing key \"") + key + "\"");
        return std::string();
    }
    if (!value->is_string()) Fail(Child(path, key), "expected a text");
    return value->get<std::string>();
}

std::int64_t Integer(const Value& value, const std::string& path, std::int64_t low,
                     std::int64_t high) {
    // As stored: an unsigned one may lie beyond every signed value, and a
    // float is no integer whatever its value.
    bool fits = false;
    std::int64_t number = 0;
    if (value.is_number_unsigned()) {
        std::uint64_t u = value.get<std::uint64_t>();
        fits = high >= 0 && u <= static_cast<std::uint64_t>(high);
        number = fits ? static_cast<std::int64_t>(u) : 0;
    } else if (value.is_number_integer()) {
        number = value.get<std::int64_t>();
        fits = true;
    }
    if (!fits || number < low || number > high) Fail(path, "expected " + Range(low, high));
    return number;
}

std::int64_t Integer(const Value& object, const std::string& path, const char* key,
                     std::int64_t otherwise, std::int64_t low, std::int64_t high) {
    const Value* value = Member(object, key);
    return value ? Integer(*value, Child(path, key), low, high) : otherwise;
}

bool Boolean(const Value& object, const std::string& path, const char* key) {
    const Value* value = Member(object, key);
    if (!value) return false;
    if (!value->is_boolean()) Fail(Child(path, key), "expected true or false");
    return value->get<bool>();
}

void Version(const Value& object, const std::string& path, int* major, int* minor) {
    const Value* value = Member(object, "version");
    if (!value) return;
    std::string at = Child(path, "version");
    if (!value->is_array() || value->size() != 2) Fail(at, "expected [major, minor]");
    *major = static_cast<int>(Integer((*value)[0], Index(at, 0), 0, 0xffff));
    *minor = static_cast<int>(Integer((*value)[1], Index(at, 1), 0, 0xffff));
}

const Value* List(const Value& object, const std::string& path, const char* key) {
    const Value* value = Member(object, key);
    if (value && !value->is_array()) Fail(Child(path, key), "expected an array");
    return value;
}

std::vector<unsigned char> Bytes(const Value& value, const std::string& path) {
    std::vector<unsigned char> bytes;
    if (!value.is_string() || !DecodeBase64(value.get<std::string>(), &bytes))
        Fail(path, "expected base64 text");
    return bytes;
}

void Append(Data& object, const std::string& key, Data value) {
    object.get_ref<Data::object_t&>().emplace_back(key, std::move(value));
}

}  // namespace Emulator::Internal::Scenario
