#include "JSON/JSON.h"

#include <nlohmann/json.hpp>
#include <string>

#include "ZR/Internal/ReadBounded.h"

namespace JSON {

namespace {

using Json = nlohmann::ordered_json;

// Depth of the deepest nesting, stopping as soon as it passes maxDepth; one
// pass, nothing allocated. Syntax is the parser's business.
bool DepthWithin(std::string_view text, int maxDepth) {
    int depth = 0;
    bool inString = false, escaped = false;
    for (char c : text) {
        if (inString) {
            if (escaped)
                escaped = false;
            else if (c == '\\')
                escaped = true;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth) return false;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return true;
}

// Builds the tree straight from the parser's events.
class Builder : public nlohmann::json_sax<Json> {
public:
    Ref<Value> root;

    bool null() override { return Put(Ref<Value>(new NullValue)); }
    bool boolean(bool v) override { return Put(Ref<Value>(new BooleanValue(v))); }
    bool number_integer(number_integer_t v) override {
        return Put(Ref<Value>(new NumberValue(static_cast<std::int64_t>(v))));
    }
    bool number_unsigned(number_unsigned_t v) override {
        if (v <= static_cast<number_unsigned_t>(INT64_MAX))
            return Put(Ref<Value>(new NumberValue(static_cast<std::int64_t>(v))));
        return Put(Ref<Value>(new NumberValue(static_cast<double>(v))));
    }
    bool number_float(number_float_t v, const string_t&) override {
        return Put(Ref<Value>(new NumberValue(static_cast<double>(v))));
    }
    bool string(string_t& v) override { return Put(Ref<Value>(new StringValue(std::move(v)))); }
    bool binary(binary_t&) override { return false; }
    bool start_object(std::size_t) override { return Open(Ref<Value>(new ObjectValue)); }
    bool start_array(std::size_t) override { return Open(Ref<Value>(new ArrayValue)); }
    bool end_object() override { return Close(); }
    bool end_array() override { return Close(); }
    bool key(string_t& k) override {
        mKey = std::move(k);
        return true;
    }
    bool parse_error(std::size_t position, const std::string&,
                     const nlohmann::detail::exception& e) override {
        mError = "Failed to parse JSON: syntax error at byte " + std::to_string(position) +
                 (e.id == 406 ? " (number out of range)" : "");
        return false;
    }
    const std::string& GetError() const { return mError; }

private:
    bool Put(const Ref<Value>& value) {
        if (mStack.empty()) {
            root = value;
        } else if (auto array = ArrayValue::Cast(mStack.back())) {
            array->Add(value);
        } else {
            ObjectValue::Cast(mStack.back())->Add(ZR::UniString(std::move(mKey)), value);
        }
        return true;
    }
    bool Open(const Ref<Value>& value) {
        Put(value);
        mStack.push_back(value);
        return true;
    }
    bool Close() {
        mStack.pop_back();
        return true;
    }

    std::vector<Ref<Value>> mStack;
    std::string mKey;
    std::string mError;
};

Json ToJson(const Value& value) {
    switch (value.GetType()) {
        case Value::Type::Null:
            return nullptr;
        case Value::Type::Boolean:
            return static_cast<const BooleanValue&>(value).GetValue();
        case Value::Type::Number: {
            const auto& n = static_cast<const NumberValue&>(value);
            return n.IsInteger() ? Json(n.GetInteger()) : Json(n.GetDouble());
        }
        case Value::Type::String:
            return static_cast<const StringValue&>(value).GetValue().Std();
        case Value::Type::Array: {
            const auto& a = static_cast<const ArrayValue&>(value);
            Json out = Json::array();
            for (std::size_t i = 0; i < a.GetSize(); ++i) {
                Ref<Value> item = a.Get(i);
                out.push_back(item ? ToJson(*item) : Json());
            }
            return out;
        }
        case Value::Type::Object: {
            const auto& o = static_cast<const ObjectValue&>(value);
            Json out = Json::object();
            for (std::size_t i = 0; i < o.GetSize(); ++i) {
                Ref<Value> item = o.Get(i);
                out[o.GetName(i).Std()] = item ? ToJson(*item) : Json();
            }
            return out;
        }
    }
    return nullptr;
}

}  // namespace

Value::~Value() = default;

Ref<Value> ArrayValue::Get(std::size_t index) const {
    return index < mItems.size() ? mItems[index] : Ref<Value>();
}

ZR::UniString ObjectValue::GetName(std::size_t index) const {
    return index < mMembers.size() ? mMembers[index].first : ZR::UniString();
}

Ref<Value> ObjectValue::Get(std::size_t index) const {
    return index < mMembers.size() ? mMembers[index].second : Ref<Value>();
}

Ref<Value> ObjectValue::Find(const ZR::UniString& name) const {
    if (!mIndex.empty()) {
        auto it = mIndex.find(name);
        return it == mIndex.end() ? Ref<Value>() : mMembers[it->second].second;
    }
    for (const auto& member : mMembers)
        if (member.first == name) return member.second;
    return Ref<Value>();
}

void ObjectValue::Add(const ZR::UniString& name, const Ref<Value>& value) {
    if (!mIndex.empty()) {
        auto [it, added] = mIndex.emplace(name, mMembers.size());
        if (!added) {
            mMembers[it->second].second = value;
            return;
        }
    } else {
        for (auto& member : mMembers)
            if (member.first == name) {
                member.second = value;
                return;
            }
    }
    mMembers.emplace_back(name, value);
    if (mIndex.empty() && mMembers.size() >= kIndexFrom)
        for (std::size_t i = 0; i < mMembers.size(); ++i) mIndex.emplace(mMembers[i].first, i);
}

void ObjectValue::Add(const ZR::UniString& name, const ZR::UniString& text) {
    Add(name, Ref<Value>(new StringValue(text)));
}

Ref<Value> JDOMParser::Parse(ZR::IChannel& channel, bool allowComments) {
    std::uint64_t remaining = channel.GetRemaining();
    if (remaining != ZR::IChannel::kUnknownRemaining && remaining > mMaxBytes) {
        mError = ZR::UniString::Format("Failed to parse JSON: more than %zu bytes", mMaxBytes);
        return Ref<Value>();
    }
    std::string text;
    if (remaining != ZR::IChannel::kUnknownRemaining) {
        int status = ZR::Internal::ReadBounded(
            [&](void* buffer, std::size_t n) { return channel.Read(buffer, n); }, remaining,
            remaining, text);
        if (status) {
            mError = ZR::UniString::Format("Failed to read JSON: channel error %d", status);
            return Ref<Value>();
        }
    } else {
        // Unknown length: read in steps until the end, never past the bound.
        char buffer[8192];
        while (true) {
            std::size_t got = 0;
            for (; got < sizeof buffer; ++got)
                if (channel.Read(buffer + got, 1)) break;
            text.append(buffer, got);
            if (text.size() > mMaxBytes) {
                mError =
                    ZR::UniString::Format("Failed to parse JSON: more than %zu bytes", mMaxBytes);
                return Ref<Value>();
            }
            if (got < sizeof buffer) break;
        }
    }
    return Parse(std::string_view(text), allowComments);
}

Ref<Value> JDOMParser::Parse(std::string_view text, bool allowComments) {
    mError.Clear();
    if (text.size() > mMaxBytes) {
        mError = ZR::UniString::Format("Failed to parse JSON: more than %zu bytes", mMaxBytes);
        return Ref<Value>();
    }
    if (!DepthWithin(text, mMaxDepth)) {
        mError = ZR::UniString::Format("Failed to parse JSON: nested deeper than %d", mMaxDepth);
        return Ref<Value>();
    }
    Builder builder;
    bool ok = Json::sax_parse(text, &builder, nlohmann::detail::input_format_t::json, true,
                              allowComments);
    if (!ok || !builder.root) {
        mError = builder.GetError().empty() ? "Failed to parse JSON" : builder.GetError();
        return Ref<Value>();
    }
    return builder.root;
}

JDOMWriter::JDOMWriter(const Ref<Value>& value, ZR::OChannel& channel, bool pretty, int indent) {
    if (!value) {
        mStatus = ZR::kIllegalArgumentCode;
        return;
    }
    std::string text = ToJson(*value).dump(pretty ? indent : -1, ' ', false,
                                           nlohmann::detail::error_handler_t::replace);
    mStatus = channel.Write(text.data(), text.size());
}

ZR::UniString JDOMWriter::ToString(const Ref<Value>& value, bool pretty, int indent) {
    if (!value) return ZR::UniString();
    return ZR::UniString(ToJson(*value).dump(pretty ? indent : -1, ' ', false,
                                             nlohmann::detail::error_handler_t::replace));
}

}  // namespace JSON
