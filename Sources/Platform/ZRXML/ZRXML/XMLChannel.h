#pragma once
/// @file
/// XML channels: a flat or nested sequence of elements under one root, each a
/// key with a text value. The output channel builds the document in memory and
/// stores it at EndDocument (through a temporary file and a rename); the input
/// channel loads the file once and hands out elements in order: a read takes
/// the next element and fails if its name is not the key asked for.
/// Booleans are spelled "true"/"false". Every call answers 0 or an error code.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "IO/Location.h"
#include "ZR/UniString.h"
#include "ZRXML/ZRXMLExport.h"

namespace ZR {

inline constexpr int kXMLErrNotFound = -40;  ///< no next element, or another name
inline constexpr int kXMLErrBadValue = -41;  ///< the value is not of the asked type or range
inline constexpr int kXMLErrState = -42;     ///< call out of order (end without start, ...)
inline constexpr int kXMLErrIO = -43;        ///< the file could not be stored
/// The largest file an input channel reads; a larger one is refused unread.
/// The library's XML files are a few kilobytes.
inline constexpr std::size_t kXMLMaxFileBytes = 16u << 20;

class ZRXML_EXPORT XMLOChannel {
public:
    virtual ~XMLOChannel() = default;
    virtual int StartDocument() = 0;
    virtual int EndDocument() = 0;
    virtual int StartElement(const char* name) = 0;
    virtual int EndElement() = 0;
    virtual int Write(const char* key, const UniString& value) = 0;
    /// Plain character text; the last argument is reserved (0).
    virtual int Write(const char* key, const char* text, int reserved) = 0;
    virtual int Write(const char* key, std::uint32_t value) = 0;
    virtual int Write(const char* key, std::int32_t value) = 0;
    virtual int Write(const char* key, std::uint16_t value) = 0;
    virtual int Write(const char* key, std::int16_t value) = 0;
    virtual int Write(const char* key, bool value) = 0;
};

class ZRXML_EXPORT XMLIChannel {
public:
    virtual ~XMLIChannel() = default;
    virtual int Read(const char* key, UniString* value) = 0;
    virtual int Read(const char* key, std::uint32_t* value) = 0;
    virtual int Read(const char* key, std::int32_t* value) = 0;
    virtual int Read(const char* key, std::uint16_t* value) = 0;
    virtual int Read(const char* key, std::int16_t* value) = 0;
    virtual int Read(const char* key, bool* value) = 0;
    /// Name of the next element at the current level, without taking it.
    virtual int GetNextElementName(UniString* name) = 0;
    /// Takes the next element, which must be called name, and goes inside it.
    /// The level ends with its last child; reads then fail until LeaveElement.
    virtual int EnterElement(const char* name) = 0;
    virtual int LeaveElement() = 0;
};

}  // namespace ZR

namespace ZRXML {

class IChannel;

/// An input channel over bytes in memory, loaded again for each of many small
/// documents, so that one document and its memory serve a whole walk.
class ZRXML_EXPORT XMLBufferReader {
public:
    XMLBufferReader();
    ~XMLBufferReader();
    XMLBufferReader(const XMLBufferReader&) = delete;
    XMLBufferReader& operator=(const XMLBufferReader&) = delete;

    /// Parses data in place: the bytes are changed, and must stay as they are
    /// while the channel is read. Null if they are not a document with this
    /// root; else the channel, valid until the next Load.
    ZR::XMLIChannel* Load(char* data, std::size_t size, const char* rootName);

private:
    std::unique_ptr<IChannel> mChannel;
};

/// Null if the file can't be read or parsed, or its root element has another name.
ZRXML_EXPORT ZR::XMLIChannel* CreateXMLIChannel(const IO::Location& location, const char* rootName,
                                                int exceptionPolicy);
/// Null if the folder of the file doesn't exist. Nothing is written before EndDocument.
ZRXML_EXPORT ZR::XMLOChannel* CreateXMLOChannel(const IO::Location& location, const char* rootName,
                                                int exceptionPolicy);
ZRXML_EXPORT void DisposeXMLIChannel(ZR::XMLIChannel* channel);
ZRXML_EXPORT void DisposeXMLOChannel(ZR::XMLOChannel* channel);

}  // namespace ZRXML
