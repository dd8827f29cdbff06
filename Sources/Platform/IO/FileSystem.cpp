#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/Posix.h"

namespace IO {

FileSystem fileSystem;

namespace {

int AddSizes(const std::string& path, std::uint64_t* bytes) {
    struct stat st;
    if (lstat(path.c_str(), &st) != 0) return StatusFromErrno(errno);
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
    const char* value = std::getenv(variable);
    return value && value[0] == '/' ? std::string(value) : std::string();
}

std::string HomePath() {
    std::string home = EnvironmentPath("HOME");
    if (!home.empty()) return home;
    std::vector<char> buffer(16384);
    struct passwd entry, *found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_dir)
        return found->pw_dir;
    return std::string();
}

// Makes a rename in the folder durable.
void SyncFolder(const std::string& folder) {
    int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    fsync(fd);
    Posix::CloseFd(fd);
}

}  // namespace

int FileSystem::Contains(const Location& location, bool* contains) const {
    *contains = false;
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    struct stat st;
    if (lstat(path.c_str(), &st) == 0) {
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
    // Each prefix ending before a '/', then the whole path; the root always exists.
    for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        std::string prefix = end == std::string::npos ? path : path.substr(0, end);
        if (mkdir(prefix.c_str(), static_cast<mode_t>(mode)) != 0) {
            if (errno != EEXIST) return StatusFromErrno(errno);
            struct stat st;
            if (stat(prefix.c_str(), &st) != 0) return StatusFromErrno(errno);
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
        default:
            return kErrBadLocation;
    }
    if (path.empty()) return kErrNotFound;
    *location = Location(ZR::UniString(path));
    return kOk;
}

int FileSystem::WriteFileAtomically(const Location& location, const std::string& data,
                                    unsigned int mode) const {
    std::string path;
    Name name;
    if (!Posix::LocalPath(location, &path) || !location.GetLastLocalName(&name))
        return kErrBadLocation;
    Location parent = location.GetParent();
    std::string folder = parent.IsEmpty() ? std::string(".") : parent.ToPath().Std();

    struct stat st;
    if (stat(path.c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) return kErrIsAFolder;
        mode = st.st_mode & 07777;
    } else if (errno != ENOENT) {
        return StatusFromErrno(errno);
    }

    // Hidden, and short enough that the suffix never overflows a name.
    std::string temp = folder + "/." + name.ToString().Std().substr(0, 200) + ".tmp-XXXXXX";
    int fd = mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0) return StatusFromErrno(errno);
    int status = Posix::WriteAll(fd, data.data(), data.size());
    if (status == kOk && fsync(fd) != 0) status = StatusFromErrno(errno);
    if (status == kOk && fchmod(fd, static_cast<mode_t>(mode)) != 0)
        status = StatusFromErrno(errno);
    if (close(fd) != 0 && status == kOk && errno != EINTR) status = StatusFromErrno(errno);
    if (status == kOk && rename(temp.c_str(), path.c_str()) != 0) status = StatusFromErrno(errno);
    if (status != kOk) {
        unlink(temp.c_str());
        return status;
    }
    SyncFolder(folder);
    return kOk;
}

int FileSystem::ReadWholeFile(const Location& location, std::string* data) const {
    data->clear();
    std::string path;
    if (!Posix::LocalPath(location, &path)) return kErrBadLocation;
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return StatusFromErrno(errno);
    struct stat st;
    int status = fstat(fd, &st) != 0   ? StatusFromErrno(errno)
                 : S_ISDIR(st.st_mode) ? kErrIsAFolder
                                       : kOk;
    if (status == kOk) status = Posix::ReadAll(fd, data);
    Posix::CloseFd(fd);
    return status;
}

}  // namespace IO
