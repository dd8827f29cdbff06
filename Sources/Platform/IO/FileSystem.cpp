#include <cerrno>
#include <string>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/Posix.h"

namespace IO {

FileSystem fileSystem;

namespace {

int AddSizes(const std::string& path, std::uint64_t* bytes) {
    struct stat st;
    if (Sys::Lstat(path.c_str(), &st) != 0) return StatusFromErrno(errno);
    if (S_ISREG(st.st_mode)) *bytes += static_cast<std::uint64_t>(st.st_size);
    if (!S_ISDIR(st.st_mode)) return kOk;
    std::vector<std::string> names;
    if (int status = Posix::ListNames(path, &names); status != kOk) return status;
    int first = kOk;
    for (const std::string& name : names) {
        int status = AddSizes(path + "/" + name, bytes);
        // An entry removed while we walk simply no longer counts.
        if (status != kOk && status != kErrNotFound && first == kOk) first = status;
    }
    return first;
}

std::string EnvironmentPath(const char* variable) {
    const char* value = Sys::GetVariable(variable);
    return value && value[0] == '/' ? std::string(value) : std::string();
}

std::string HomePath() {
    std::string home = EnvironmentPath("HOME");
    return home.empty() ? Sys::GetUserHome() : home;
}

}  // namespace

int FileSystem::Contains(const Location& location, bool* contains) const {
    *contains = false;
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    struct stat st;
    if (Sys::Lstat(path.c_str(), &st) == 0) {
        *contains = true;
        return kOk;
    }
    return errno == ENOENT || errno == ENOTDIR ? kOk : StatusFromErrno(errno);
}

int FileSystem::CountSize(const Location& location, std::uint64_t* bytes) const {
    *bytes = 0;
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    return AddSizes(path, bytes);
}

int FileSystem::CreateFolderTree(const Location& location, unsigned int mode) const {
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    struct stat st;
    if (Sys::Stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? kOk : kErrNotAFolder;
    // Each prefix ending before a '/', then the whole path; the root always exists.
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        std::string prefix = end == std::string::npos ? path : path.substr(0, end);
        if (Posix::MakeFolder(prefix, static_cast<mode_t>(mode)) != 0) {
            if (errno != EEXIST) return StatusFromErrno(errno);
            if (Sys::Stat(prefix.c_str(), &st) != 0) return StatusFromErrno(errno);
            if (!S_ISDIR(st.st_mode)) return kErrNotAFolder;
        }
        if (end == std::string::npos) return kOk;
    }
}

int FileSystem::Delete(const Location& location, int /*dataSafety*/, int /*accessDenied*/) const {
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    if (path == "/") return kErrAccessDenied;
    return Posix::DeleteEntry(path);
}

int FileSystem::DeleteFile(const Location& location) const {
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    return Posix::DeleteFileEntry(path);
}

int FileSystem::GetSpecialLocation(int which, Location* location) const {
    std::string path;
    switch (which) {
        case kTemporaryFolder:
            path = EnvironmentPath("TMPDIR");
            if (path.empty()) path = "/tmp";
            break;
        case kHomeFolder:
            path = HomePath();
            break;
        case kUserDataFolder:
            path = EnvironmentPath("XDG_DATA_HOME");
            if (path.empty()) {
                std::string home = HomePath();
                if (!home.empty()) path = home + "/.local/share";
            }
            break;
        case kRoamingProfileFolder:
            path = EnvironmentPath("XDG_CONFIG_HOME");
            if (path.empty()) {
                std::string home = HomePath();
                if (!home.empty()) path = home + "/.config";
            }
            break;
        default:
            return kErrBadLocation;
    }
    if (path.empty()) return kErrNotFound;
    *location = Location(ZR::UniString(path));
    return kOk;
}

int FileSystem::ReadWholeFile(const Location& location, std::string* data,
                              std::size_t maxBytes) const {
    data->clear();
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    // Without blocking: the open of a pipe nobody writes to would wait for one.
    int fd = Sys::Open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return StatusFromErrno(errno);
    struct stat st;
    int status = Sys::Fstat(fd, &st) != 0                            ? StatusFromErrno(errno)
                 : S_ISDIR(st.st_mode)                               ? kErrIsAFolder
                 : !S_ISREG(st.st_mode)                              ? kErrNotAFile
                 : static_cast<std::uint64_t>(st.st_size) > maxBytes ? kErrTooLarge
                                                                     : kOk;
    // Bounded again while reading: the file may grow meanwhile.
    if (status == kOk) status = Posix::ReadAll(fd, data, maxBytes);
    Posix::CloseFd(fd);
    return status;
}

}  // namespace IO
