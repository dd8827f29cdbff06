#include "DataFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "IO/File.h"
#include "KRCB/LoginDataStore.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"
#include "ZR/Internal/Printable.h"

namespace krctl {
namespace {

namespace fs = std::filesystem;

const char* const kDamagedOptions =
    ": the file is damaged; it was left as it is (repair or remove it)";

bool IsFolder(const std::string& path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// A folder this process can list and enter, and for a change also write in.
void CheckFolderAccess(const std::string& folder, Access access) {
    int mode = R_OK | X_OK | (access == Access::Change ? W_OK : 0);
    if (faccessat(AT_FDCWD, folder.c_str(), mode, AT_EACCESS) != 0)
        throw Failure(FileFailure(access == Access::Change ? "cannot change" : "cannot open",
                                  Printable(folder), errno));
}

bool Inside(const std::string& folder, const std::string& root) {
    if (folder == root) return true;
    auto rel = fs::path(folder).lexically_relative(fs::path(root));
    return !rel.empty() && *rel.begin() != "..";
}

std::string Normal(const std::string& path) {
    std::string normal = fs::path(path).lexically_normal().string();
    while (normal.size() > 1 && normal.back() == '/') normal.pop_back();
    return normal;
}

}  // namespace

std::string Printable(const std::string& text, std::size_t max) {
    return ZR::Internal::Printable(text, max);
}

std::string RecordOpenProblem(const std::string& file) {
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) return std::strerror(errno);
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return std::strerror(errno);
    close(fd);
    return std::string();
}

DataFolderView CheckDataFolderBeforeStart(const GlobalOptions& options, Access access) {
    if (options.dataFolder.empty()) throw UsageError("this command needs --data-folder DIR");
    const std::string folder = Normal(options.dataFolder);
    CheckFolderAccess(folder, access);

    DataFolderView view;
    view.optionsFile = folder + "/" + KRC::KRDataOptions::kFileName;
    view.localDataFolder = folder;
    const std::string file = Printable(view.optionsFile);
    struct stat st {};
    if (stat(view.optionsFile.c_str(), &st) != 0) {
        if (errno != ENOENT) throw Failure(FileFailure("cannot open", file, errno));
    } else if (!S_ISREG(st.st_mode)) {
        throw Failure("cannot open " + file + ": not a regular file");
    } else if (st.st_size > 0) {
        // The library would try an unopenable file again and again: seconds per look.
        std::string problem = RecordOpenProblem(view.optionsFile);
        if (!problem.empty()) throw Failure("cannot open " + file + ": " + problem);
        KRC::KRDataOptions::Values& values = view.values;
        try {
            KRC::KRDataOptions::ReadFileAt(IO::Location(ZR::UniString(view.optionsFile)), &values);
        } catch (const KRC::FileOpeningError&) {
            throw Failure("cannot open " + file);
        } catch (const KRC::ErrorReadingFile&) {
            throw Failure("cannot read " + file + kDamagedOptions);
        }
        view.optionsPresent = true;
        const std::string local = values.dataFolder.ToPath().Std();
        // A relative path would be taken from whatever folder krctl runs in.
        if (local.empty() || local[0] != '/')
            throw Failure(file + ": LocalDataFolderPath '" + Printable(local) +
                          "' is not an absolute path");
        view.localDataFolder = Normal(local);
    }

    view.outside = !Inside(view.localDataFolder, folder);
    const std::string local = Printable(view.localDataFolder);
    if (view.outside) {
        if (access == Access::Change && !options.followOptions)
            throw Failure("the options of " + Printable(folder) + " point outside it, at " + local +
                          "; nothing changed (give --follow-options to work there)");
        Note(options, std::string(access == Access::Read ? "reading from " : "changing ") + local +
                          ", where the options of " + Printable(folder) + " point");
    }
    if (stat(view.localDataFolder.c_str(), &st) == 0) {
        if (!S_ISDIR(st.st_mode))
            throw Failure(file + ": LocalDataFolderPath '" + local + "' is not a folder");
        view.localPresent = true;
        CheckFolderAccess(view.localDataFolder, access);
    } else if (errno != ENOENT) {
        throw Failure(FileFailure("cannot open", local, errno));
    }
    view.projectsFolder = view.localDataFolder + "/" + options.projectCache;
    if (view.localPresent && IsFolder(view.projectsFolder))
        CheckFolderAccess(view.projectsFolder, access);
    return view;
}

RecordWalk WalkRecords(const std::string& projectsFolder) {
    RecordWalk walk;
    std::vector<fs::path> folders;
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(projectsFolder, ec))
        if (entry.is_directory(ec) && !entry.is_symlink(ec)) folders.push_back(entry.path());
    std::sort(folders.begin(), folders.end());
    for (const fs::path& folder : folders) {
        const std::string file = (folder / KRC::kCacheInfoFileName).string();
        struct stat st {};
        if (lstat(file.c_str(), &st) != 0 && errno == ENOENT) continue;  // no record
        if (!RecordOpenProblem(file).empty()) {
            walk.unreadable.push_back(folder.string());
            continue;
        }
        try {
            walk.records.push_back(
                std::make_unique<KRC::CachedProjectInfo>(IO::Location(ZR::UniString(folder))));
        } catch (const KRC::FileException&) {
            walk.unreadable.push_back(folder.string());
        }
    }
    return walk;
}

RecordWalk ReadRecords(const GlobalOptions& options) {
    DataFolderView view = CheckDataFolderBeforeStart(options, Access::Read);
    RecordWalk walk;
    if (view.localPresent) walk = WalkRecords(view.projectsFolder);
    if (!walk.unreadable.empty())
        Note(options,
             std::to_string(walk.unreadable.size()) + " damaged record(s): run krctl doctor");
    return walk;
}

std::string LoginDataFile(const std::string& baseFolder) {
    return baseFolder + "/" + KRCB::LoginDataStore::LoginDataStoreCache::kFileName;
}

std::string LoginDataProblem(const std::string& baseFolder) {
    const std::string file = LoginDataFile(baseFolder);
    struct stat st {};
    if (stat(file.c_str(), &st) != 0) return errno == ENOENT ? std::string() : std::strerror(errno);
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    if (static_cast<std::uint64_t>(st.st_size) >
        KRCB::LoginDataStore::LoginDataStore::kMaxTextBytes)
        return "larger than " +
               std::to_string(KRCB::LoginDataStore::LoginDataStore::kMaxTextBytes >> 20) + " MiB";
    std::string problem = RecordOpenProblem(file);
    if (!problem.empty()) return problem;
    std::ifstream in(file, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    try {
        KRCB::LoginDataStore::LoginDataStore::FromJson(text);
    } catch (const KRCB::LoginDataStore::LoginDataStoreException& e) {
        // The reader's own text, in the form of the reasons above.
        std::string text = e.GetMessage().Std();
        for (const std::string prefix : {"Login data: ", "the file is "})
            if (text.rfind(prefix, 0) == 0) text.erase(0, prefix.size());
        if (!text.empty() && text.back() == '.') text.pop_back();
        return text;
    }
    return std::string();
}

bool LibraryNeeded(const GlobalOptions& options) {
    if (!options.readsOnly) return true;
    IO::Location base(ZR::UniString(options.baseFolder));
    if (options.baseFolder.empty() &&
        IO::fileSystem.GetSpecialLocation(IO::kUserDataFolder, &base) == IO::kOk)
        base.AppendName(IO::Name("KRClientBase"));
    return !base.IsEmpty() && IsFolder(base.ToPath().Std());
}

}  // namespace krctl
