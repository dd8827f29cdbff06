#pragma once
/// @file
/// Text types of the foundation. UniString holds UTF-8; comparisons that ignore
/// case use Unicode full case folding, with an ASCII fast path.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>

#include "ZR/ZRRootExport.h"

namespace ZR {

enum class CaseComparison : int { Sensitive = 0, Insensitive = 1 };
inline constexpr CaseComparison kIgnoreCase = CaseComparison::Insensitive;

/// 8-bit text, no encoding implied.
class ZRROOT_EXPORT String {
public:
    String() = default;
    String(const char* text) : mText(text ? text : "") {}
    String(std::string text) : mText(std::move(text)) {}
    String(std::string_view text) : mText(text) {}

    const char* GetBuffer() const { return mText.c_str(); }
    const std::string& Std() const { return mText; }
    std::size_t GetLength() const { return mText.size(); }
    bool IsEmpty() const { return mText.empty(); }
    bool operator==(const String& other) const = default;

private:
    std::string mText;
};

class ZRROOT_EXPORT UniString {
public:
    static constexpr std::size_t npos = std::numeric_limits<std::size_t>::max();

    UniString() = default;
    UniString(const char* utf8) : mText(utf8 ? utf8 : "") {}
    UniString(std::string utf8) : mText(std::move(utf8)) {}
    UniString(std::string_view utf8) : mText(utf8) {}
    UniString(const String& text) : mText(text.Std()) {}

    /// Exact, byte-wise equality.
    bool operator==(const UniString& other) const { return mText == other.mText; }
    bool operator==(const char* other) const { return mText == (other ? other : ""); }
    bool operator<(const UniString& other) const { return mText < other.mText; }

    bool IsEqual(const UniString& other, CaseComparison cc = CaseComparison::Sensitive) const;
    /// 0 less, 1 equal, 2 greater.
    int Compare(const UniString& other, CaseComparison cc = CaseComparison::Sensitive) const;
    /// Byte offset of the first occurrence, or npos.
    std::size_t FindFirst(const UniString& what, std::size_t from = 0) const;
    bool BeginsWith(const UniString& prefix, CaseComparison cc = CaseComparison::Sensitive) const;

    UniString ToLowerCase() const;
    UniString ToUpperCase() const;
    /// Full case fold; the key for hashing case-insensitively.
    UniString FoldCase() const;

    bool IsEmpty() const { return mText.empty(); }
    std::size_t GetLength() const { return mText.size(); }
    void Clear() { mText.clear(); }
    void Reserve(std::size_t n) { mText.reserve(n); }

    UniString& Append(const UniString& other) {
        mText += other.mText;
        return *this;
    }
    UniString& operator+=(const UniString& other) {
        mText += other.mText;
        return *this;
    }
    UniString& operator+=(const char* other) {
        mText += other;
        return *this;
    }
    friend UniString operator+(UniString a, const UniString& b) {
        a += b;
        return a;
    }

    /// Text in the default character code (UTF-8).
    const char* ToCString() const { return mText.c_str(); }
    const std::string& Std() const { return mText; }
    String ToString() const { return String(mText); }

    static UniString Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

private:
    std::string mText;
};

}  // namespace ZR

template <>
struct std::hash<ZR::UniString> {
    std::size_t operator()(const ZR::UniString& s) const noexcept {
        return std::hash<std::string>()(s.Std());
    }
};
template <>
struct std::hash<ZR::String> {
    std::size_t operator()(const ZR::String& s) const noexcept {
        return std::hash<std::string>()(s.Std());
    }
};
