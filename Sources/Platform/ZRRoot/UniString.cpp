#include "ZR/UniString.h"

#include <unicode/ucasemap.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>
#include <vector>

namespace ZR {
namespace {

bool IsAscii(const std::string& s) {
    for (unsigned char c : s)
        if (c >= 0x80) return false;
    return true;
}

struct CaseMapDeleter {
    void operator()(UCaseMap* m) const { ucasemap_close(m); }
};

UCaseMap* CaseMap() {
    // One per thread: UCaseMap is not safe to share across threads.
    thread_local std::unique_ptr<UCaseMap, CaseMapDeleter> map = [] {
        UErrorCode status = U_ZERO_ERROR;
        return std::unique_ptr<UCaseMap, CaseMapDeleter>(
            ucasemap_open("", U_FOLD_CASE_DEFAULT, &status));
    }();
    return map.get();
}

using MapFn = int32_t (*)(const UCaseMap*, char*, int32_t, const char*, int32_t, UErrorCode*);

std::string MapCase(const std::string& in, MapFn fn) {
    if (in.empty()) return in;
    std::string out(in.size() + 8, '\0');
    UErrorCode status = U_ZERO_ERROR;
    int32_t n = fn(CaseMap(), out.data(), static_cast<int32_t>(out.size()), in.data(),
                   static_cast<int32_t>(in.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR) {
        out.assign(static_cast<std::size_t>(n), '\0');
        status = U_ZERO_ERROR;
        n = fn(CaseMap(), out.data(), n, in.data(), static_cast<int32_t>(in.size()), &status);
    }
    if (U_FAILURE(status)) return in;  // invalid UTF-8: fall back to the bytes as they are
    out.resize(static_cast<std::size_t>(n));
    return out;
}

int32_t FoldFn(const UCaseMap* m, char* d, int32_t dc, const char* s, int32_t sl, UErrorCode* e) {
    return ucasemap_utf8FoldCase(m, d, dc, s, sl, e);
}
int32_t LowerFn(const UCaseMap* m, char* d, int32_t dc, const char* s, int32_t sl, UErrorCode* e) {
    return ucasemap_utf8ToLower(m, d, dc, s, sl, e);
}
int32_t UpperFn(const UCaseMap* m, char* d, int32_t dc, const char* s, int32_t sl, UErrorCode* e) {
    return ucasemap_utf8ToUpper(m, d, dc, s, sl, e);
}

char AsciiLower(char c) {
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c;
}

int Order(int c) {
    return c < 0 ? 0 : (c == 0 ? 1 : 2);
}

}  // namespace

UniString UniString::FoldCase() const {
    if (IsAscii(mText)) {
        std::string out(mText);
        for (char& c : out) c = AsciiLower(c);
        return UniString(std::move(out));
    }
    return UniString(MapCase(mText, FoldFn));
}

UniString UniString::ToLowerCase() const {
    if (IsAscii(mText)) {
        std::string out(mText);
        for (char& c : out) c = AsciiLower(c);
        return UniString(std::move(out));
    }
    return UniString(MapCase(mText, LowerFn));
}

UniString UniString::ToUpperCase() const {
    if (IsAscii(mText)) {
        std::string out(mText);
        for (char& c : out)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        return UniString(std::move(out));
    }
    return UniString(MapCase(mText, UpperFn));
}

bool UniString::IsEqual(const UniString& other, CaseComparison cc) const {
    if (cc == CaseComparison::Sensitive) return mText == other.mText;
    if (IsAscii(mText) && IsAscii(other.mText)) {
        if (mText.size() != other.mText.size()) return false;
        for (std::size_t i = 0; i < mText.size(); ++i)
            if (AsciiLower(mText[i]) != AsciiLower(other.mText[i])) return false;
        return true;
    }
    return FoldCase().mText == other.FoldCase().mText;
}

int UniString::Compare(const UniString& other, CaseComparison cc) const {
    if (cc == CaseComparison::Sensitive) return Order(mText.compare(other.mText));
    if (IsAscii(mText) && IsAscii(other.mText)) {
        // Sorting calls this per pair: no folded copies for plain text.
        const std::size_t n = std::min(mText.size(), other.mText.size());
        for (std::size_t i = 0; i < n; ++i) {
            const auto a = static_cast<unsigned char>(AsciiLower(mText[i]));
            const auto b = static_cast<unsigned char>(AsciiLower(other.mText[i]));
            if (a != b) return a < b ? 0 : 2;
        }
        return Order(mText.size() < other.mText.size() ? -1 : (mText.size() > n ? 1 : 0));
    }
    return Order(FoldCase().mText.compare(other.FoldCase().mText));
}

std::size_t UniString::FindFirst(const UniString& what, std::size_t from) const {
    std::size_t at = mText.find(what.mText, from);
    return at == std::string::npos ? npos : at;
}

bool UniString::BeginsWith(const UniString& prefix, CaseComparison cc) const {
    if (prefix.mText.size() > mText.size() && cc == CaseComparison::Sensitive) return false;
    if (cc == CaseComparison::Sensitive)
        return mText.compare(0, prefix.mText.size(), prefix.mText) == 0;
    std::string folded = FoldCase().mText;
    std::string p = prefix.FoldCase().mText;
    return folded.compare(0, p.size(), p) == 0;
}

UniString UniString::Format(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, fmt, copy);
    va_end(copy);
    std::string out(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(out.data(), out.size() + 1, fmt, args);
    va_end(args);
    return UniString(std::move(out));
}

}  // namespace ZR
