#include <mutex>

#include "IO/File.h"
#include "KRCB/KRClientBase.h"

namespace KRCB {
namespace {

struct StartState {
    std::mutex mutex;
    IO::Location baseFolder;
    ZR::UniString problem;
    bool started = false;
};

StartState& State() {
    static StartState state;
    return state;
}

// Empty if the user has no data folder: the caller goes on without one.
IO::Location DefaultBaseFolder() {
    IO::Location userData;
    if (IO::fileSystem.GetSpecialLocation(IO::kUserDataFolder, &userData) != IO::kOk)
        return IO::Location();
    return userData + IO::Name("KRClientBase");
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

ZR::UniString GetBaseFolderProblem() {
    std::lock_guard<std::mutex> lock(State().mutex);
    return State().problem;
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

    ZR::UniString problem;
    if (folder.IsEmpty()) {
        problem = "There is no base folder: give BaseFolder=DIR, or set HOME or XDG_DATA_HOME.";
    } else {
        // Made owner-only from the start: it will hold tokens.
        int status = IO::fileSystem.CreateFolderTree(folder, 0700);
        if (status == IO::kOk) status = IO::Folder(folder, IO::kNotFoundFail).GetStatus();
        if (status != IO::kOk)
            problem =
                ZR::UniString::Format("The base folder \"%s\" can't be made or used (status %d).",
                                      folder.ToDisplayText().ToCString(), status);
    }

    auto& state = KRCB::State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.started = true;
    state.problem = problem;
    state.baseFolder = problem.IsEmpty() ? folder : IO::Location();
    return problem.IsEmpty();
}

void CloseKRClientBase() {
    auto& state = KRCB::State();
    std::lock_guard<std::mutex> lock(state.mutex);
    state.started = false;
}
