// The service's calls for the folder tree, libraries and look-ups.
#include <stdexcept>

#include "Emulator/Internal/State.h"
#include "Emulator/Service.h"

namespace Emulator {

std::string Service::AddFolder(const std::string& serverUrl, const FolderSpec& folder) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->AddFolder(mState->RequireServer(serverUrl), folder);
}

std::string Service::GetFolderId(const std::string& serverUrl, const std::string& path) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::Folder* folder = mState->FindFolderByPath(mState->RequireServer(serverUrl), path);
    return folder ? folder->id : std::string();
}

void Service::MoveFolder(const std::string& serverUrl, const std::string& oldPath,
                         const std::string& newPath) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->MoveFolder(mState->RequireServer(serverUrl), oldPath, newPath);
}

std::vector<std::string> Service::GetFolders(const std::string& serverUrl,
                                             const std::string& path) const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    Internal::Server& server = mState->RequireServer(serverUrl);
    Internal::Folder* top = mState->FindFolderByPath(server, path);
    if (!top) throw std::invalid_argument("no folder " + path);
    std::vector<std::string> paths;
    for (const Internal::Folder& f : server.folders)
        if (f.path.size() > top->path.size() && f.path[top->path.size()] == '/' &&
            Internal::SameText(f.path.substr(0, top->path.size()), top->path))
            paths.push_back(f.path);
    return paths;
}

std::string Service::AddLibrary(const std::string& serverUrl, const LibrarySpec& library) {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->AddLibrary(mState->RequireServer(serverUrl), library);
}

std::vector<LookupRecord> Service::GetLookups() const {
    std::lock_guard<std::mutex> lock(mState->mutex);
    return mState->lookups;
}

void Service::ClearLookups() {
    std::lock_guard<std::mutex> lock(mState->mutex);
    mState->lookups.clear();
}

}  // namespace Emulator
