#pragma once
// Holders of an XML channel on one small stored file, opened with retries:
// another process may be replacing the file at the very moment.

#include "IO/Location.h"
#include "ZR/UniString.h"
#include "ZRXML/XMLChannel.h"

namespace KRC {

class InfoXMLsIChannel {
public:
    InfoXMLsIChannel(const IO::Location& location, const ZR::String& rootName);
    ~InfoXMLsIChannel() { Close(); }
    InfoXMLsIChannel(const InfoXMLsIChannel&) = delete;
    InfoXMLsIChannel& operator=(const InfoXMLsIChannel&) = delete;

    // Null if the file is missing (at once) or can't be read in ten tries
    // 100 ms apart, or if the wait is interrupted.
    ZR::XMLIChannel* Open();
    void Close();

private:
    IO::Location location;
    ZR::String rootName;
    ZR::XMLIChannel* channel = nullptr;
};

class InfoXMLsOChannel {
public:
    InfoXMLsOChannel(const IO::Location& location, const ZR::String& rootName);
    ~InfoXMLsOChannel() { Close(); }
    InfoXMLsOChannel(const InfoXMLsOChannel&) = delete;
    InfoXMLsOChannel& operator=(const InfoXMLsOChannel&) = delete;

    // Creates a missing file first; null if that fails, or as for reading.
    ZR::XMLOChannel* Open();
    void Close();

private:
    IO::Location location;
    ZR::String rootName;
    ZR::XMLOChannel* channel = nullptr;
};

}  // namespace KRC
