#pragma once
/// @file
/// JSON documents as trees of values that keep the order of object members.
/// Values are shared as ZR::Ref<T, ZR::Counter>: one thread at a time.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "JSON/JSONExport.h"
#include "ZR/Channel.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace JSON {

class Value;
template <typename T>
using Ref = ZR::Ref<T, ZR::Counter>;

class JSON_EXPORT Value {
public:
    enum class Type { Null, Boolean, Number, String, Array, Object };
    virtual ~Value();
    virtual Type GetType() const = 0;
};

/// The typed reference behind value, or an empty one if value is empty or of
/// another type.
template <typename T>
Ref<T> CastTo(const Ref<Value>& value) {
    return Ref<T>(std::dynamic_pointer_cast<T>(value.Std()));
}

class JSON_EXPORT NullValue : public Value {
public:
    Type GetType() const override { return Type::Null; }
};

class JSON_EXPORT BooleanValue : public Value {
public:
    explicit BooleanValue(bool value) : mValue(value) {}
    Type GetType() const override { return Type::Boolean; }
    bool GetValue() const { return mValue; }
    static Ref<BooleanValue> Cast(const Ref<Value>& v) { return CastTo<BooleanValue>(v); }

private:
    bool mValue;
};

/// An integer (kept exactly) or a floating point number.
class JSON_EXPORT NumberValue : public Value {
public:
    explicit NumberValue(std::int64_t value) : mInteger(value), mDouble(double(value)) {}
    explicit NumberValue(double value) : mDouble(value), mIsInteger(false) {}
    Type GetType() const override { return Type::Number; }
    bool IsInteger() const { return mIsInteger; }
    std::int64_t GetInteger() const { return mInteger; }
    double GetDouble() const { return mDouble; }
    static Ref<NumberValue> Cast(const Ref<Value>& v) { return CastTo<NumberValue>(v); }

private:
    std::int64_t mInteger = 0;
    double mDouble;
    bool mIsInteger = true;
};

class JSON_EXPORT StringValue : public Value {
public:
    explicit StringValue(const ZR::UniString& value) : mValue(value) {}
    Type GetType() const override { return Type::String; }
    const ZR::UniString& GetValue() const { return mValue; }
    static Ref<StringValue> Cast(const Ref<Value>& v) { return CastTo<StringValue>(v); }

private:
    ZR::UniString mValue;
};

class JSON_EXPORT ArrayValue : public Value {
public:
    Type GetType() const override { return Type::Array; }
    std::size_t GetSize() const { return mItems.size(); }
    /// Empty for an index past the end.
    Ref<Value> Get(std::size_t index) const;
    void Add(const Ref<Value>& value) { mItems.push_back(value); }
    static Ref<ArrayValue> Cast(const Ref<Value>& v) { return CastTo<ArrayValue>(v); }

private:
    std::vector<Ref<Value>> mItems;
};

/// Members in the order they were added. Names are unique: Add of a name
/// that is there replaces its value in place.
class JSON_EXPORT ObjectValue : public Value {
public:
    Type GetType() const override { return Type::Object; }
    std::size_t GetSize() const { return mMembers.size(); }
    /// Name and value of the member at index; empty past the end.
    ZR::UniString GetName(std::size_t index) const;
    Ref<Value> Get(std::size_t index) const;
    /// The member of that name, or an empty reference.
    Ref<Value> Find(const ZR::UniString& name) const;
    /// The member of that name if it has type T; an empty reference if it is
    /// missing or of another type. A caller that needs the member refuses the
    /// document for an empty answer.
    template <typename T>
    Ref<T> GetMandatoryMember(const ZR::UniString& name) const {
        return CastTo<T>(Find(name));
    }
    void Add(const ZR::UniString& name, const Ref<Value>& value);
    void Add(const ZR::UniString& name, const ZR::UniString& text);
    static Ref<ObjectValue> Cast(const Ref<Value>& v) { return CastTo<ObjectValue>(v); }

private:
    // Names to positions, made once an object is large enough that a walk
    // over its members would cost more.
    static constexpr std::size_t kIndexFrom = 16;
    std::vector<std::pair<ZR::UniString, Ref<Value>>> mMembers;
    std::unordered_map<ZR::UniString, std::size_t> mIndex;
};

/// Reads a whole document. Input larger than the size bound, or nested deeper
/// than the depth bound, is refused by a walk over the bytes before anything
/// is built; so is, for a channel that knows its length, a longer input
/// before it is read.
class JSON_EXPORT JDOMParser {
public:
    static constexpr std::size_t kDefaultMaxBytes = 64u << 20;
    static constexpr int kDefaultMaxDepth = 256;

    explicit JDOMParser(std::size_t maxBytes = kDefaultMaxBytes, int maxDepth = kDefaultMaxDepth)
        : mMaxBytes(maxBytes), mMaxDepth(maxDepth) {}

    /// Everything the channel holds, as one document; an empty reference, with
    /// GetError telling why, for input that is none. allowComments lets /* */
    /// and // comments pass.
    Ref<Value> Parse(ZR::IChannel& channel, bool allowComments);
    Ref<Value> Parse(std::string_view text, bool allowComments);
    /// Why the last Parse gave an empty reference; never quotes the input.
    const ZR::UniString& GetError() const { return mError; }

private:
    std::size_t mMaxBytes;
    int mMaxDepth;
    ZR::UniString mError;
};

/// Writes value as JSON text to channel at construction. pretty indents by
/// indent blanks per level; otherwise the text is compact. Texts that are no
/// valid UTF-8 are written with U+FFFD in place of the bad bytes.
class JSON_EXPORT JDOMWriter {
public:
    JDOMWriter(const Ref<Value>& value, ZR::OChannel& channel, bool pretty, int indent);
    /// 0, or the channel's error; -50 for an empty value.
    int GetStatus() const { return mStatus; }
    static ZR::UniString ToString(const Ref<Value>& value, bool pretty = false, int indent = 2);

private:
    int mStatus = 0;
};

}  // namespace JSON
