#include "Kerrow/Exceptions.h"

#include "ZR/Debug.h"

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

ZR::UniString IncompatibleModelServerVersionException::ToString() const {
    return ZR::UniString::Format("Incompatible model server version: server %d.%d, client %d.%d",
                                 mServerMajor, mServerMinor, mClientMajor, mClientMinor);
}

}  // namespace KRCB
