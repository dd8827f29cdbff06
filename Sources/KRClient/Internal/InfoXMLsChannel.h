#pragma once
// Holders of an XML channel on one small stored file. A file that can't be
// opened is tried again for about a second: another process may hold it at
// that moment. A file that opens but is not a document of the expected kind
// is damaged, and no wait mends that, so it is reported at once.

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

    // Null if the file is missing (at once), damaged (at once, IsDamaged then
    // answers true), can't be opened in ten tries 100 ms apart, or if the wait
    // is interrupted.
    ZR::XMLIChannel* Open();
    void Close();
    bool IsDamaged() const { return damaged; }

private:
    IO::Location location;
    ZR::String rootName;
    ZR::XMLIChannel* channel = nullptr;
    bool damaged = false;
};

class InfoXMLsOChannel {
public:
    InfoXMLsOChannel(const IO::Location& location, const ZR::String& rootName);
    ~InfoXMLsOChannel() { Close(); }
    InfoXMLsOChannel(const InfoXMLsOChannel&) = delete;
    InfoXMLsOChannel& operator=(const InfoXMLsOChannel&) = delete;

    // Null if the file's folder is missing, or as for reading. Nothing is
    // created here: the channel puts the whole file in place at its end.
    ZR::XMLOChannel* Open();
    void Close();

private:
    IO::Location location;
    ZR::String rootName;
    ZR::XMLOChannel* channel = nullptr;
};

}  // namespace KRC
