#include "ZRXML/XMLChannel.h"

#include <charconv>
#include <limits>
#include <pugixml.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "IO/File.h"

namespace ZRXML {
namespace {

// Stored documents may carry project locations, and with them tokens, so a
// new file is readable by its owner only.
constexpr unsigned int kNewFileMode = 0600;

// Line ends and blank values must come back exactly as written: no line-end
// conversion, and a blank text that is an element's only child is kept.
constexpr unsigned int kParseFlags =
    (pugi::parse_default & ~pugi::parse_eol) | pugi::parse_ws_pcdata_single;

bool IsNameStart(unsigned char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c >= 0x80;
}

bool IsValidName(const char* name) {
    if (!name || !IsNameStart(static_cast<unsigned char>(name[0]))) return false;
    for (const char* p = name + 1; *p; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (!IsNameStart(c) && !(c >= '0' && c <= '9') && c != '-' && c != '.') return false;
    }
    return true;
}

std::string_view Trim(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r\n";
    std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

template <typename T>
bool ParseInteger(std::string_view text, T* value) {
    text = Trim(text);
    long long parsed = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), parsed);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return false;
    if (parsed < static_cast<long long>(std::numeric_limits<T>::min()) ||
        parsed > static_cast<long long>(std::numeric_limits<T>::max()))
        return false;
    *value = static_cast<T>(parsed);
    return true;
}

class OChannel final : public ZR::XMLOChannel {
public:
    OChannel(const IO::Location& location, const char* rootName)
        : mLocation(location), mRootName(rootName) {}

    int StartDocument() override {
        if (mState != State::Fresh) return ZR::kXMLErrState;
        pugi::xml_node declaration = mDocument.append_child(pugi::node_declaration);
        declaration.append_attribute("version") = "1.0";
        declaration.append_attribute("encoding") = "UTF-8";
        mCurrent = mDocument.append_child(mRootName.c_str());
        mState = State::Open;
        return 0;
    }

    int EndDocument() override {
        if (mState != State::Open || mCurrent != mDocument.document_element())
            return ZR::kXMLErrState;
        mState = State::Done;
        std::ostringstream text;
        mDocument.save(text, "  ", pugi::format_indent, pugi::encoding_utf8);
        if (!text) return ZR::kXMLErrIO;
        return IO::fileSystem.WriteFileAtomically(mLocation, text.str(), kNewFileMode) == IO::kOk
                   ? 0
                   : ZR::kXMLErrIO;
    }

    int StartElement(const char* name) override {
        if (mState != State::Open) return ZR::kXMLErrState;
        if (!IsValidName(name)) return ZR::kXMLErrBadValue;
        mCurrent = mCurrent.append_child(name);
        return 0;
    }

    int EndElement() override {
        if (mState != State::Open || mCurrent == mDocument.document_element())
            return ZR::kXMLErrState;
        mCurrent = mCurrent.parent();
        return 0;
    }

    int Write(const char* key, const ZR::UniString& value) override {
        return Add(key, value.Std());
    }
    int Write(const char* key, const char* text, int /*reserved*/) override {
        return Add(key, text ? text : "");
    }
    int Write(const char* key, std::uint32_t value) override {
        return Add(key, std::to_string(value));
    }
    int Write(const char* key, std::int32_t value) override {
        return Add(key, std::to_string(value));
    }
    int Write(const char* key, std::uint16_t value) override {
        return Add(key, std::to_string(value));
    }
    int Write(const char* key, std::int16_t value) override {
        return Add(key, std::to_string(value));
    }
    int Write(const char* key, bool value) override { return Add(key, value ? "true" : "false"); }

private:
    enum class State { Fresh, Open, Done };

    int Add(const char* key, const std::string& value) {
        if (mState != State::Open) return ZR::kXMLErrState;
        // XML text cannot carry a NUL character.
        if (!IsValidName(key) || value.find('\0') != std::string::npos) return ZR::kXMLErrBadValue;
        mCurrent.append_child(key).append_child(pugi::node_pcdata).set_value(value.c_str());
        return 0;
    }

    IO::Location mLocation;
    std::string mRootName;
    pugi::xml_document mDocument;
    pugi::xml_node mCurrent;
    State mState = State::Fresh;
};

}  // namespace

class IChannel final : public ZR::XMLIChannel {
public:
    // False if the file cannot be read or parsed, or its root has another name.
    bool Load(const IO::Location& location, const char* rootName) {
        if (!location.IsLocal() || !rootName) return false;
        // Read through the file layer, so the one seam to the system sees it too.
        std::string bytes;
        if (IO::fileSystem.ReadWholeFile(location, &bytes, ZR::kXMLMaxFileBytes) != IO::kOk)
            return false;
        return LoadInPlace(bytes.data(), bytes.size(), rootName, false);
    }

    // The bytes are parsed where they are unless copy; a document loaded
    // before goes.
    bool LoadInPlace(char* data, std::size_t size, const char* rootName, bool inPlace = true) {
        mLevels.clear();
        if (!rootName) return false;
        pugi::xml_parse_result parsed =
            inPlace ? mDocument.load_buffer_inplace(data, size, kParseFlags, pugi::encoding_utf8)
                    : mDocument.load_buffer(data, size, kParseFlags, pugi::encoding_utf8);
        if (!parsed) return false;
        pugi::xml_node root = mDocument.document_element();
        if (!root || std::string_view(root.name()) != rootName) return false;
        mLevels.push_back({root, NextElement(root.first_child())});
        return true;
    }

    int Read(const char* key, ZR::UniString* value) override {
        const char* text = nullptr;
        int status = Take(key, &text);
        if (status == 0) *value = ZR::UniString(std::string_view(text));
        return status;
    }
    int Read(const char* key, std::uint32_t* value) override { return ReadInteger(key, value); }
    int Read(const char* key, std::int32_t* value) override { return ReadInteger(key, value); }
    int Read(const char* key, std::uint16_t* value) override { return ReadInteger(key, value); }
    int Read(const char* key, std::int16_t* value) override { return ReadInteger(key, value); }

    int Read(const char* key, bool* value) override {
        const char* text = nullptr;
        if (int status = Take(key, &text); status != 0) return status;
        std::string_view t = Trim(text);
        if (t == "true" || t == "1")
            *value = true;
        else if (t == "false" || t == "0")
            *value = false;
        else
            return ZR::kXMLErrBadValue;
        return 0;
    }

    int GetNextElementName(ZR::UniString* name) override {
        pugi::xml_node next = mLevels.back().next;
        if (!next) return ZR::kXMLErrNotFound;
        *name = ZR::UniString(next.name());
        return 0;
    }

    int EnterElement(const char* name) override {
        Level& level = mLevels.back();
        if (!level.next || !name || std::string_view(level.next.name()) != name)
            return ZR::kXMLErrNotFound;
        pugi::xml_node entered = level.next;
        level.next = NextElement(entered.next_sibling());
        mLevels.push_back({entered, NextElement(entered.first_child())});
        return 0;
    }

    int LeaveElement() override {
        if (mLevels.size() <= 1) return ZR::kXMLErrState;
        mLevels.pop_back();
        return 0;
    }

private:
    struct Level {
        pugi::xml_node parent;
        pugi::xml_node next;  // the next element to hand out; null at the end
    };

    static pugi::xml_node NextElement(pugi::xml_node node) {
        while (node && node.type() != pugi::node_element) node = node.next_sibling();
        return node;
    }

    // Takes the next element if it is called key. A name mismatch leaves it
    // for the next call; a bad value still consumes it.
    int Take(const char* key, const char** text) {
        if (mLevels.empty()) return ZR::kXMLErrState;
        Level& level = mLevels.back();
        if (!level.next || !key || std::string_view(level.next.name()) != key)
            return ZR::kXMLErrNotFound;
        pugi::xml_node element = level.next;
        level.next = NextElement(element.next_sibling());
        if (NextElement(element.first_child()))
            return ZR::kXMLErrBadValue;  // not a value but a group
        *text = element.text().get();
        return 0;
    }

    template <typename T>
    int ReadInteger(const char* key, T* value) {
        const char* text = nullptr;
        if (int status = Take(key, &text); status != 0) return status;
        return ParseInteger(text, value) ? 0 : ZR::kXMLErrBadValue;
    }

    pugi::xml_document mDocument;
    std::vector<Level> mLevels;
};

XMLBufferReader::XMLBufferReader() : mChannel(std::make_unique<IChannel>()) {}
XMLBufferReader::~XMLBufferReader() = default;

ZR::XMLIChannel* XMLBufferReader::Load(char* data, std::size_t size, const char* rootName) {
    return mChannel->LoadInPlace(data, size, rootName) ? mChannel.get() : nullptr;
}

ZR::XMLIChannel* CreateXMLIChannel(const IO::Location& location, const char* rootName,
                                   int /*exceptionPolicy*/) {
    auto* channel = new IChannel;
    if (!channel->Load(location, rootName)) {
        delete channel;
        return nullptr;
    }
    return channel;
}

ZR::XMLOChannel* CreateXMLOChannel(const IO::Location& location, const char* rootName,
                                   int /*exceptionPolicy*/) {
    if (!location.IsLocal() || !IsValidName(rootName)) return nullptr;
    IO::Location parent = location.GetParent();
    if (!parent.IsEmpty() && IO::Folder(parent).GetStatus() != IO::kOk) return nullptr;
    return new OChannel(location, rootName);
}

void DisposeXMLIChannel(ZR::XMLIChannel* channel) {
    delete channel;
}

void DisposeXMLOChannel(ZR::XMLOChannel* channel) {
    delete channel;
}

}  // namespace ZRXML
