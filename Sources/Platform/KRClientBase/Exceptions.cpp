#include "Kerrow/Exceptions.h"

#include "ZR/Debug.h"
#include "ZR/Logger.h"

namespace Kerrow::Common {

ZR::UniString ToString(const ZR::ZRException& exception) {
    ZR::UniString out = exception.GetName();
    out += ": ";
    out += exception.GetMessage();
    for (const ZR::ZRException* cause = exception.GetCause(); cause; cause = cause->GetCause()) {
        out += "\n\tcaused by: ";
        out += cause->GetName();
        out += ": ";
        out += cause->GetMessage();
    }
    return out;
}

void DebugPrintEx(const ZR::ZRException& exception) {
    DBPrintf("%s\n", ToString(exception).ToCString());
}

}  // namespace Kerrow::Common

namespace KRCB {

void LogException(const ZR::ZRException& exception) {
    static const ZR::ErrorLogLine line("%", "KRClientBase");
    ZR::FastLogger::LogComposer composer;
    ZR::logger.Append(line, composer);
    composer.Append(Kerrow::Common::ToString(exception));
}

ZR::UniString IncompatibleModelServerVersionException::ToString() const {
    return ZR::UniString::Format("Incompatible model server version: server %d.%d, client %d.%d",
                                 mServerMajor, mServerMinor, mClientMajor, mClientMinor);
}

}  // namespace KRCB
