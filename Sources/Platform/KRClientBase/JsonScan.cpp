#include "KRCB/Internal/JsonScan.h"

#include <nlohmann/json.hpp>
#include <unordered_set>

#include "ZR/Internal/Printable.h"

namespace KRCB::Internal {

namespace {

using Json = nlohmann::json;

// The parser's text is "[json.exception.parse_error.101] parse error at line
// 1, column 9: syntax error while parsing value - invalid literal; last read:
// 'tru<U+000A>x'; expected ..."; what it last read stays out.
std::string SyntaxReason(const std::string& what) {
    std::string reason = "syntax error";
    std::size_t context = what.find("while parsing ");
    std::size_t dash = what.find(" - ", context == std::string::npos ? 0 : context);
    if (context != std::string::npos && dash != std::string::npos)
        reason += " " + what.substr(context, dash - context);
    if (dash != std::string::npos) {
        std::size_t end = std::min(what.find("; last read", dash), what.find("; expected ", dash));
        reason += ": " + what.substr(dash + 3, end == std::string::npos ? end : end - dash - 3);
    }
    std::size_t expected = what.rfind("; expected ");
    if (expected != std::string::npos && expected > dash) reason += what.substr(expected);
    return ZR::Internal::Printable(reason, 200);
}

class Scanner : public nlohmann::json_sax<Json> {
public:
    Scanner(JsonScan* result, int maxDepth, bool refuseDuplicateKeys, std::size_t maxValues,
            std::size_t maxKeyBytes)
        : mResult(result),
          mMaxDepth(maxDepth),
          mDuplicates(refuseDuplicateKeys),
          mMaxValues(maxValues),
          mMaxKeyBytes(maxKeyBytes) {}

    bool null() override { return Value(); }
    bool boolean(bool) override { return Value(); }
    bool number_integer(number_integer_t) override { return Value(); }
    bool number_unsigned(number_unsigned_t) override { return Value(); }
    bool number_float(number_float_t, const string_t&) override { return Value(); }
    bool string(string_t&) override { return Value(); }
    bool binary(binary_t&) override { return Value(); }
    bool start_object(std::size_t) override { return Enter(false); }
    bool start_array(std::size_t) override { return Enter(true); }
    bool end_object() override { return Leave(); }
    bool end_array() override { return Leave(); }

    bool key(string_t& key) override {
        ++mResult->keys;
        if (++mResult->values > mMaxValues) return Stop(JsonScan::Outcome::TooMany);
        Frame& frame = mFrames.back();
        if (key.size() > mMaxKeyBytes) {
            frame.key = key.substr(0, mMaxKeyBytes);
            return Stop(JsonScan::Outcome::KeyTooLong);
        }
        if (mDuplicates && !frame.keys.insert(key).second) {
            frame.key = key;
            return Stop(JsonScan::Outcome::DuplicateKey);
        }
        frame.key = key;
        return true;
    }

    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& e) override {
        // Out of range (406) is a number no type holds, such as 1e400.
        bool number = e.id == 406;
        mResult->reason = number ? std::string() : SyntaxReason(e.what());
        mResult->byte = position;
        Describe(false);
        mResult->outcome = number ? JsonScan::Outcome::NumberTooLarge : JsonScan::Outcome::Syntax;
        return false;
    }

private:
    struct Frame {
        bool array = false;
        std::size_t count = 0;  ///< elements of an array begun so far
        std::string key;        ///< the last key of an object
        std::unordered_set<std::string> keys;
    };

    bool Value() {
        if (!mFrames.empty() && mFrames.back().array) ++mFrames.back().count;
        if (++mResult->values > mMaxValues) return Stop(JsonScan::Outcome::TooMany);
        return true;
    }
    bool Enter(bool array) {
        if (!Value()) return false;
        if (static_cast<int>(mFrames.size()) >= mMaxDepth) return Stop(JsonScan::Outcome::TooDeep);
        mFrames.push_back(Frame{array, 0, {}, {}});
        return true;
    }
    bool Leave() {
        mFrames.pop_back();
        return true;
    }
    bool Stop(JsonScan::Outcome outcome) {
        mResult->outcome = outcome;
        Describe(true);
        return false;
    }
    // The place of the value begun last (counted), or of the one about to be.
    void Describe(bool counted) {
        std::string& path = mResult->path;
        for (const Frame& frame : mFrames) {
            if (frame.array) {
                bool next = !counted && &frame == &mFrames.back();
                std::size_t index = next ? frame.count : frame.count - 1;
                path += "[" + std::to_string(index) + "]";
            } else {
                if (!path.empty()) path += ".";
                path += ZR::Internal::Printable(frame.key, 40);
                mResult->pathKeys.push_back(frame.key);
            }
        }
    }

    JsonScan* mResult;
    int mMaxDepth;
    bool mDuplicates;
    std::size_t mMaxValues;
    std::size_t mMaxKeyBytes;
    std::vector<Frame> mFrames;
};

}  // namespace

JsonScan ScanJson(std::string_view text, int maxDepth, bool refuseDuplicateKeys,
                  std::size_t maxValues, std::size_t maxKeyBytes) {
    JsonScan result;
    Scanner scanner(&result, maxDepth, refuseDuplicateKeys, maxValues, maxKeyBytes);
    Json::sax_parse(text.begin(), text.end(), &scanner);
    return result;
}

}  // namespace KRCB::Internal
