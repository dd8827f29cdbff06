#include "KRClient/KRClient.h"

#include "IO/File.h"
#include "KRCB/KRClientBase.h"
#include "KRClient/UserInterface/CachedProjectCheckTask.h"
#include "ZR/Debug.h"
#include "ZR/Resources.h"

namespace KRC {
namespace {

// Registers the library with the resource library for as long as it is loaded.
class ModuleRegistration {
public:
    ModuleRegistration() : mHandle(RSInitModuleImageCache(this)) {}
    ~ModuleRegistration() {
        if (mHandle > 0) RSRemoveModuleImageCache(mHandle);
    }

private:
    std::int64_t mHandle;
};

const ModuleRegistration moduleRegistration;

}  // namespace

void InitKRClient(const ZR::PagedArray<ZR::UniString, 8>& arguments) {
    UI::CachedProjectCheckTask::SetEnabled(InitKRClientBase(arguments));
}

void CloseKRClient() {
    CloseKRClientBase();
}

namespace {
void AppendSection(ZR::UniString& out, const ZR::ZRException& e) {
    out += e.GetName();
    if (!e.GetMessage().IsEmpty()) {
        out += ": ";
        out += e.GetMessage();
    }
    out += ZR::UniString::Format("\n\tat %s(%lu)", e.GetFileName() ? e.GetFileName() : "(null)",
                                 e.GetLineNumber());
}
}  // namespace

ZR::UniString ToString(const ZR::ZRException& exception) {
    ZR::UniString out;
    out.Reserve(2048);
    out += "\nException: ";
    AppendSection(out, exception);
    for (const ZR::ZRException* cause = exception.GetCause(); cause; cause = cause->GetCause()) {
        out += "\nCaused by: ";
        AppendSection(out, *cause);
    }
    return out;
}

void DebugPrintEx(const ZR::ZRException& exception) {
    DBPrintf("%s\n", ToString(exception).ToCString());
}

bool FileExist(const IO::Location& location) {
    return IO::File(location, IO::kNotFoundIgnore).GetStatus() == IO::kOk;
}

}  // namespace KRC
