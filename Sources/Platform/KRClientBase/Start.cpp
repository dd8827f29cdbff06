#include <mutex>

#include "IO/File.h"
#include "IO/Internal/Env.h"
#include "KRCB/KRClientBase.h"

namespace KRCB {
namespace {

struct StartState {
    std::mutex mutex;
    IO::Location baseFolder;
    bool started = false;
};

StartState& State() {
    static StartState state;
    return state;
}

IO::Location DefaultBaseFolder() {
    if (const char* xdg = IO::Sys::GetVariable("XDG_DATA_HOME"); xdg && *xdg)
        return IO::Location(ZR::UniString(std::string(xdg) + "/KRClientBase"));
    if (const char* home = IO::Sys::GetVariable("HOME"); home && *home)
        return IO::Location(ZR::UniString(std::string(home) + "/.local/share/KRClientBase"));
    return IO::Location(ZR::UniString("/tmp/KRClientBase"));
}

}  // namespace

IO::Location GetBaseDataFolder() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().baseFolder;
}

bool IsStarted() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().started;
}

}  // namespace KRCB

bool InitKRClientBase(const ZR::PagedArray<ZR::UniString, 8>& arguments) {
    IO::Location folder;
    for (const ZR::UniString& arg : arguments) {
        const std::string& text = arg.Std();
        if (text.rfind("BaseFolder=", 0) == 0)
            folder = IO::Location(ZR::UniString(text.substr(11)));
    }
    if (folder.IsEmpty()) folder = KRCB::DefaultBaseFolder();

    auto& state = KRCB::State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.baseFolder = folder;
    // The folder holds tokens: only its owner may look inside.
    state.started = IO::fileSystem.CreateFolderTree(folder) == IO::kOk &&
                    IO::Folder(folder, IO::kNotFoundFail).GetStatus() == IO::kOk;
    return state.started;
}

void CloseKRClientBase() {
    auto& state = KRCB::State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.started = false;
}
