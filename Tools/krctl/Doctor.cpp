#include "Doctor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <pugixml.hpp>
#include <sstream>

#include "DataFolder.h"
#include "IO/File.h"
#include "KRCB/LoginDataStore.h"
#include "KRCB/Paths.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "KRClient/MailClient/MailClient.h"
#include "KRClient/RegisteredProjects.h"
#include "KRClient/UserInterface/Login/UILoginDataStore.h"
#include "RegistryLock.h"
#include "ZR/MD5.h"

namespace krctl {
namespace {

namespace fs = std::filesystem;

const char* const kLockFileName = KRC::RegisteredProjects::Synchronizer::kLockFileName;
const char* const kLoginDataName = KRCB::LoginDataStore::LoginDataStoreCache::kFileName;

// Someone holds the file by an open-file-description lock. Only looks: no lock is taken.
bool IsHeld(const std::string& path) {
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    if (fd < 0) return false;
    struct flock probe = {};
    probe.l_type = F_WRLCK;
    probe.l_whence = SEEK_SET;
    bool held = fcntl(fd, F_OFD_GETLK, &probe) == 0 && probe.l_type != F_UNLCK;
    close(fd);
    return held;
}

bool IsRegularFile(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

// Temporary files beside folder/target that nobody is writing: left by writers that died.
void FindLeftovers(const std::string& folder, const std::string& target, Json& leftovers) {
    std::error_code ec;
    for (const auto& entry : fs::directory_iterator(folder, ec)) {
        std::string name = entry.path().filename().string();
        std::string path = entry.path().string();
        if (IO::FileSystem::IsTemporaryFileOf(IO::Name(ZR::UniString(name)),
                                              IO::Name(ZR::UniString(target))) &&
            IsRegularFile(path) && !IsHeld(path))
            leftovers.push_back(path);
    }
}

// Where an XML parser stops in a damaged file, as line and column from 1.
bool XmlStop(const std::string& path, Json& where) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    pugi::xml_document document;
    pugi::xml_parse_result result = document.load_buffer(bytes.data(), bytes.size());
    if (result) return false;
    std::size_t offset = std::min(
        static_cast<std::size_t>(std::max<std::ptrdiff_t>(result.offset, 0)), bytes.size());
    std::size_t line =
        1 + static_cast<std::size_t>(std::count(
                bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(offset), '\n'));
    std::size_t lineStart = bytes.rfind('\n', offset == 0 ? 0 : offset - 1);
    std::size_t column =
        lineStart == std::string::npos || offset == 0 ? offset + 1 : offset - lineStart;
    where["line"] = line;
    where["column"] = column;
    where["reason"] = result.description();
    return true;
}

std::string Reason(const std::string& path, const char* what) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return std::strerror(errno);
    if (st.st_size == 0) return "empty file";
    return what;
}

bool Inside(const std::string& folder, const std::string& root) {
    fs::path f = fs::path(folder).lexically_normal(), r = fs::path(root).lexically_normal();
    auto rel = f.lexically_relative(r);
    return !rel.empty() && *rel.begin() != "..";
}

Json ExamineOptions(const std::string& dataFolder, std::string* localDataFolder) {
    const std::string file = dataFolder + "/" + KRC::KRDataOptions::kFileName;
    Json json{{"file", file}};
    *localDataFolder = dataFolder;
    if (!fs::exists(fs::symlink_status(file))) {
        json["state"] = "absent";
        return json;
    }
    // The library's reader would try an unopenable file again and again.
    if (std::string problem = RecordOpenProblem(file); !problem.empty()) {
        json["state"] = "unreadable";
        json["reason"] = problem;
        return json;
    }
    KRC::KRDataOptions::Values values;
    try {
        KRC::KRDataOptions::ReadFileAt(IO::Location(ZR::UniString(file)), &values);
    } catch (const KRC::FileOpeningError&) {
        json["state"] = "unreadable";
        json["reason"] = Reason(file, "cannot be opened");
        return json;
    } catch (const KRC::ErrorReadingFile&) {
        json["state"] = "damaged";
        if (!XmlStop(file, json)) json["reason"] = Reason(file, "values missing or out of range");
        return json;
    }
    json["state"] = "readable";
    json["form"] = values.olderForm ? "older" : "current";
    const std::string local = values.dataFolder.ToPath().Std();
    json["localDataFolder"] = local;
    // A relative path would be taken from whatever folder a process runs in:
    // nothing is looked for there.
    struct stat st {};
    if (local.empty() || local[0] != '/') {
        json["state"] = "unusable";
        json["reason"] = "LocalDataFolderPath '" + Printable(local) + "' is not an absolute path";
        localDataFolder->clear();
        return json;
    }
    if (stat(local.c_str(), &st) == 0 && !S_ISDIR(st.st_mode)) {
        json["state"] = "unusable";
        json["reason"] = "LocalDataFolderPath '" + Printable(local) + "' is not a folder";
        localDataFolder->clear();
        return json;
    }
    *localDataFolder = fs::path(local).lexically_normal().string();
    while (localDataFolder->size() > 1 && localDataFolder->back() == '/')
        localDataFolder->pop_back();
    // A copied data folder still points at the original: changes made through
    // the copy land there.
    json["outside"] = !Inside(*localDataFolder, dataFolder) && *localDataFolder != dataFolder;
    return json;
}

Json ExamineLock(const std::string& localDataFolder) {
    if (localDataFolder.empty()) return Json{{"file", ""}, {"state", "not looked for"}};
    const std::string file = localDataFolder + "/" + kLockFileName;
    Json json{{"file", file}};
    struct stat st {};
    if (lstat(file.c_str(), &st) != 0)
        json["state"] = "absent";
    else if (!S_ISREG(st.st_mode))
        json["state"] = "not a file";
    else
        json["state"] = IsHeld(file) ? "held" : "stale";
    return json;
}

struct Record {
    std::string folder, server, path, user;
};

Json ExamineCacheFolder(const fs::path& folder, std::vector<Record>& records, Json& leftovers) {
    const std::string file = (folder / KRC::kCacheInfoFileName).string();
    Json json{{"folder", folder.string()}};
    FindLeftovers(folder.string(), KRC::kCacheInfoFileName, leftovers);
    if (!fs::exists(fs::symlink_status(file))) {
        json["state"] = "no record";
        return json;
    }
    if (std::string problem = RecordOpenProblem(file); !problem.empty()) {
        json["state"] = "unreadable";
        json["reason"] = problem;
        return json;
    }
    try {
        KRC::CachedProjectInfo info{IO::Location(ZR::UniString(folder.string()))};
        json["state"] = "readable";
        json["dataVersion"] = info.GetXMLVersion();
        Record r{folder.string(), info.GetPortalServerUrl().Std(), info.GetProjectPath().Std(),
                 info.GetLoginName().Std()};
        std::string name =
            MD5::Of(ZR::UniString(r.server + "_" + r.path + "_" + r.user)).GetAsZrString().Std();
        json["md5Name"] = folder.filename().string() == name;
        if (!json["md5Name"].get<bool>()) json["expectedName"] = name;
        json["server"] = r.server;
        json["path"] = r.path;
        json["user"] = r.user;
        records.push_back(std::move(r));
    } catch (const KRC::FileOpeningError&) {
        json["state"] = "unreadable";
        json["reason"] = Reason(file, "cannot be opened");
    } catch (const KRC::ErrorReadingFile&) {
        json["state"] = "damaged";
        if (!XmlStop(file, json)) json["reason"] = Reason(file, "values missing or out of range");
    }
    return json;
}

// The mail files of a cache folder: a damaged one is reported with the
// offset where reading stopped; leftovers of their writes join the others.
void ExamineMailFiles(const fs::path& folder, Json& json, Json& leftovers) {
    Json damaged = Json::array();
    for (const char* name : {KRC::MailClient::kMailsFileName, KRC::Outbox::kFileName}) {
        FindLeftovers(folder.string(), name, leftovers);
        const std::string file = (folder / name).string();
        if (!IsRegularFile(file)) continue;
        std::uint64_t stoppedAt = 0;
        int status = 0;
        if (name == std::string(KRC::MailClient::kMailsFileName)) {
            KRC::Internal::MailsFileContent content;
            status = KRC::Internal::ReadMailsFile(IO::Location(ZR::UniString(file)), content,
                                                  &stoppedAt);
        } else {
            std::string data;
            status = IO::fileSystem.ReadWholeFile(IO::Location(ZR::UniString(file)), &data);
            if (status == 0) {
                ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails;
                std::size_t used = 0;
                status = KRC::Outbox::ReadMails(reinterpret_cast<const unsigned char*>(data.data()),
                                                data.size(), mails, &used);
                stoppedAt = used;
                // Bytes behind the mails the count names: the outbox would not keep them.
                if (status == 0 && used != data.size()) status = ZR::kErrBadData;
            }
        }
        if (status == 0) continue;
        char error[16];
        std::snprintf(error, sizeof error, "0x%08x", static_cast<unsigned int>(status));
        damaged.push_back({{"file", file},
                           {"state", "damaged"},
                           {"stoppedAt", stoppedAt},
                           {"error", status == -7003 ? std::string("-7003") : error}});
    }
    if (!damaged.empty()) json["mailFiles"] = damaged;
}

// Groups of two or more records of one project: same path and user, and the
// same server strictly, or only loosely (same host, another scheme, port or path).
Json FindDuplicates(const std::vector<Record>& records) {
    std::map<std::string, std::vector<const Record*>> byKey;
    for (const Record& r : records)
        byKey[ZR::UniString(r.path + "\n" + r.user).ToLowerCase().Std()].push_back(&r);
    Json strictGroups = Json::array(), looseGroups = Json::array();
    for (const auto& [key, candidates] : byKey) {
        std::vector<bool> taken(candidates.size(), false);
        for (bool strict : {true, false}) {
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                if (taken[i]) continue;
                Json folders = Json::array({candidates[i]->folder});
                std::vector<std::size_t> members{i};
                for (std::size_t j = i + 1; j < candidates.size(); ++j)
                    if (!taken[j] &&
                        KRCB::IsEqualServerUrls(ZR::UniString(candidates[i]->server),
                                                ZR::UniString(candidates[j]->server), strict)) {
                        folders.push_back(candidates[j]->folder);
                        members.push_back(j);
                    }
                if (members.size() < 2) continue;
                for (std::size_t m : members) taken[m] = true;
                (strict ? strictGroups : looseGroups)
                    .push_back(Json{{"match", strict ? "strict" : "loose"},
                                    {"server", candidates[i]->server},
                                    {"path", candidates[i]->path},
                                    {"user", candidates[i]->user},
                                    {"folders", folders}});
            }
        }
    }
    for (Json& g : looseGroups) strictGroups.push_back(std::move(g));
    return strictGroups;
}

Json FindUnknownUsers(const GlobalOptions& options, const std::vector<Record>& records,
                      Json& report) {
    Json unknown = Json::array();
    if (options.baseFolder.empty()) {
        report["loginData"] = Json{{"state", "not checked (no --base-folder)"}};
        return unknown;
    }
    const std::string file = LoginDataFile(options.baseFolder);
    Json& loginData = report["loginData"] = Json{{"file", file}};
    struct stat st {};
    if (lstat(file.c_str(), &st) != 0 && errno == ENOENT) {
        // No login data: no user is known.
        loginData["state"] = "absent";
        for (const Record& r : records)
            unknown.push_back(Json{{"folder", r.folder}, {"server", r.server}, {"user", r.user}});
        return unknown;
    }
    // Read first by krctl: the library would set a refused file aside.
    if (std::string problem = LoginDataProblem(options.baseFolder); !problem.empty()) {
        loginData["state"] = "refused";
        loginData["reason"] = problem;
        return unknown;
    }
    loginData["state"] = "readable";
    KRC::UI::Login::UILoginDataStore store(KRC::UI::Login::UILoginDataStore::ForReading);
    for (const Record& r : records)
        if (!store.ContainsServer(r.server) || !store.ContainsUser(r.server, r.user))
            unknown.push_back(Json{{"folder", r.folder}, {"server", r.server}, {"user", r.user}});
    return unknown;
}

std::size_t CountProblems(const Json& report) {
    std::size_t problems = 0;
    const Json& opts = report["options"];
    if (opts["state"] == "damaged" || opts["state"] == "unreadable" || opts["state"] == "unusable")
        ++problems;
    if (report["loginData"]["state"] == "refused") ++problems;
    if (opts.value("outside", false)) ++problems;
    if (report["lock"]["state"] == "stale" || report["lock"]["state"] == "not a file") ++problems;
    for (const Json& c : report["cacheFolders"])
        if (c["state"] == "damaged" || c["state"] == "unreadable") ++problems;
    for (const Json& c : report["cacheFolders"])
        if (c.contains("mailFiles")) problems += c["mailFiles"].size();
    problems +=
        report["duplicates"].size() + report["leftovers"].size() + report["unknownUsers"].size();
    return problems;
}

std::string Summary(const Json& report) {
    std::size_t damaged = 0;
    for (const Json& c : report["cacheFolders"])
        if (c["state"] == "damaged" || c["state"] == "unreadable") ++damaged;
    std::ostringstream text;
    std::size_t problems = report["problems"];
    if (problems == 0)
        text << "clean: ";
    else
        text << problems << " problem(s): ";
    text << report["cacheFolders"].size() << " cache folder(s), " << damaged << " damaged, "
         << report["duplicates"].size() << " duplicate group(s), " << report["leftovers"].size()
         << " leftover(s), lock " << report["lock"]["state"].get<std::string>() << ", options "
         << report["options"]["state"].get<std::string>()
         << (report["options"].value("outside", false) ? " (pointing outside)" : "");
    return text.str();
}

// Text of a report value: names on disc may hold any byte but '/' and NUL.
std::string Text(const Json& value) {
    return Printable(value.get<std::string>(), 4096);
}

void PrintReport(const Json& report) {
    const Json& opts = report["options"];
    std::printf("options      %s: %s", Text(opts["file"]).c_str(), Text(opts["state"]).c_str());
    if (opts.contains("form"))
        std::printf(", %s form, local data folder %s%s", Text(opts["form"]).c_str(),
                    Text(opts["localDataFolder"]).c_str(),
                    opts.value("outside", false) ? " (OUTSIDE the data folder)" : "");
    if (opts.contains("reason")) std::printf(" (%s)", Text(opts["reason"]).c_str());
    std::printf("\nlock         %s: %s\n", Text(report["lock"]["file"]).c_str(),
                Text(report["lock"]["state"]).c_str());
    const Json& login = report["loginData"];
    std::printf("login data   %s%s%s", login.contains("file") ? Text(login["file"]).c_str() : "",
                login.contains("file") ? ": " : "", Text(login["state"]).c_str());
    if (login.contains("reason")) std::printf(" (%s)", Text(login["reason"]).c_str());
    std::printf("\n");
    for (const Json& c : report["cacheFolders"]) {
        std::printf("cache folder %s: %s", Text(c["folder"]).c_str(), Text(c["state"]).c_str());
        if (c.contains("dataVersion"))
            std::printf(", data version %d", c["dataVersion"].get<int>());
        if (c.contains("md5Name") && !c["md5Name"].get<bool>())
            std::printf(", name is not the MD5 name %s", Text(c["expectedName"]).c_str());
        if (c.contains("line"))
            std::printf(" (%s at line %zu, column %zu)", Text(c["reason"]).c_str(),
                        c["line"].get<std::size_t>(), c["column"].get<std::size_t>());
        else if (c.contains("reason"))
            std::printf(" (%s)", Text(c["reason"]).c_str());
        std::printf("\n");
        for (const Json& m : c.value("mailFiles", Json::array()))
            std::printf("mail file    %s: damaged, reading stopped at byte %zu (error %s)\n",
                        Text(m["file"]).c_str(), m["stoppedAt"].get<std::size_t>(),
                        Text(m["error"]).c_str());
    }
    for (const Json& d : report["duplicates"]) {
        std::printf("duplicate    (%s match) %s %s %s:", Text(d["match"]).c_str(),
                    Text(d["server"]).c_str(), Text(d["user"]).c_str(), Text(d["path"]).c_str());
        for (const Json& f : d["folders"]) std::printf(" %s", Text(f).c_str());
        std::printf("\n");
    }
    for (const Json& l : report["leftovers"]) std::printf("leftover     %s\n", Text(l).c_str());
    for (const Json& u : report["unknownUsers"])
        std::printf("unknown user %s on %s, record %s\n", Text(u["user"]).c_str(),
                    Text(u["server"]).c_str(), Text(u["folder"]).c_str());
    std::printf("%s\n", Text(report["summary"]).c_str());
}

std::string QuarantineName() {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char name[64];
    std::strftime(name, sizeof name, "Quarantine-%Y%m%dT%H%M%SZ", &utc);
    return name;
}

int RunDoctor(const GlobalOptions& options, bool repair) {
    if (options.dataFolder.empty()) throw UsageError("doctor needs --data-folder DIR");
    Json actions = Json::array(), left = Json::array();
    if (repair) actions = Repair(options, left);
    Json report = Examine(options);
    if (repair) {
        report["repairs"] = actions;
        report["leftOutside"] = left;
    }
    if (options.json) {
        PrintJson(report);
    } else {
        for (const Json& a : actions) std::printf("repaired     %s\n", Text(a).c_str());
        for (const Json& l : left) std::printf("left         %s\n", Text(l).c_str());
        PrintReport(report);
    }
    return report["problems"].get<std::size_t>() == 0 ? kExitDone : kExitFailed;
}

}  // namespace

Json Examine(const GlobalOptions& options) {
    Json report{{"dataFolder", options.dataFolder}};
    std::string localDataFolder;
    report["options"] = ExamineOptions(options.dataFolder, &localDataFolder);
    report["lock"] = ExamineLock(localDataFolder);
    Json leftovers = Json::array();
    FindLeftovers(options.dataFolder, KRC::KRDataOptions::kFileName, leftovers);
    if (!options.baseFolder.empty()) FindLeftovers(options.baseFolder, kLoginDataName, leftovers);

    std::vector<Record> records;
    Json folders = Json::array();
    std::vector<fs::path> names;
    std::error_code ec;
    if (!localDataFolder.empty())
        for (const auto& entry :
             fs::directory_iterator(fs::path(localDataFolder) / options.projectCache, ec))
            if (entry.is_directory(ec) && !entry.is_symlink(ec)) names.push_back(entry.path());
    std::sort(names.begin(), names.end());
    for (const fs::path& folder : names) {
        folders.push_back(ExamineCacheFolder(folder, records, leftovers));
        ExamineMailFiles(folder, folders.back(), leftovers);
    }
    report["cacheFolders"] = folders;
    report["duplicates"] = FindDuplicates(records);
    report["leftovers"] = leftovers;
    report["unknownUsers"] = FindUnknownUsers(options, records, report);
    report["problems"] = CountProblems(report);
    report["summary"] = Summary(report);
    return report;
}

Json Repair(const GlobalOptions& options, Json& left) {
    Json actions = Json::array();
    Json report = Examine(options);
    const Json& opts = report["options"];
    const std::string localDataFolder = opts.contains("localDataFolder")
                                            ? opts["localDataFolder"].get<std::string>()
                                            : options.dataFolder;
    // What lies outside the given folder is someone else's: a copy's options
    // still pointing at the original must not lead a repair there.
    const bool registryHere =
        (opts["state"] == "readable" || opts["state"] == "absent") && !opts.value("outside", false);
    const std::string why = opts.value("outside", false)
                                ? "outside the data folder"
                                : "the options file is " + opts["state"].get<std::string>();
    auto here = [&](const std::string& path) {
        return Inside(path, options.dataFolder) ||
               (!options.baseFolder.empty() && Inside(path, options.baseFolder));
    };
    std::optional<RegistryLock> lock;
    if (registryHere) {
        // The lock's own file: a stale one is taken over by the guard and
        // goes when it is let go.
        if (report["lock"]["state"] == "stale")
            actions.push_back("removed the stale lock file " + localDataFolder + "/" +
                              kLockFileName);
        KRC::RegisteredProjects::Init(IO::Location(ZR::UniString(options.dataFolder)),
                                      ZR::UniString(options.projectCache),
                                      ZR::UniString(options.libCache));
        lock.emplace(options);
        report = Examine(options);
    } else if (report["lock"]["state"] == "stale") {
        left.push_back("the stale lock file " + report["lock"]["file"].get<std::string>() + " (" +
                       why + ")");
    }
    fs::path quarantine;
    for (const Json& c : report["cacheFolders"]) {
        if (c["state"] != "damaged" && c["state"] != "unreadable") continue;
        fs::path from = c["folder"].get<std::string>();
        if (!registryHere || !here(from.string())) {
            left.push_back("the " + c["state"].get<std::string>() + " cache folder " +
                           from.string() + " (" + (registryHere ? "outside the data folder" : why) +
                           ")");
            continue;
        }
        if (quarantine.empty()) {
            quarantine = fs::path(options.dataFolder) / QuarantineName();
            if (mkdir(quarantine.c_str(), 0700) != 0 && errno != EEXIST)
                throw Failure(FileFailure("cannot make", quarantine.string(), errno));
        }
        fs::path to = quarantine / from.filename();
        if (rename(from.c_str(), to.c_str()) != 0)
            throw Failure(FileFailure("cannot move " + from.string() + " to", to.string(), errno));
        actions.push_back("moved the " + c["state"].get<std::string>() + " cache folder " +
                          from.string() + " to " + to.string());
    }
    // A damaged mail file goes to the quarantine alone, named after its folder;
    // the mail client would write it anew at its next end.
    for (const Json& c : report["cacheFolders"]) {
        if (c["state"] == "damaged" || c["state"] == "unreadable") continue;  // moved whole
        for (const Json& m : c.value("mailFiles", Json::array())) {
            fs::path from = m["file"].get<std::string>();
            if (!registryHere || !here(from.string())) {
                left.push_back("the damaged mail file " + from.string() + " (" +
                               (registryHere ? "outside the data folder" : why) + ")");
                continue;
            }
            if (quarantine.empty()) {
                quarantine = fs::path(options.dataFolder) / QuarantineName();
                if (mkdir(quarantine.c_str(), 0700) != 0 && errno != EEXIST)
                    throw Failure(FileFailure("cannot make", quarantine.string(), errno));
            }
            fs::path to = quarantine /
                          (from.parent_path().filename().string() + "-" + from.filename().string());
            if (rename(from.c_str(), to.c_str()) != 0)
                throw Failure(
                    FileFailure("cannot move " + from.string() + " to", to.string(), errno));
            actions.push_back("moved the damaged mail file " + from.string() + " to " +
                              to.string());
        }
    }
    for (const Json& l : report["leftovers"]) {
        std::string path = l.get<std::string>();
        if (!here(path)) {
            left.push_back("the leftover " + path + " (outside the data folder)");
            continue;
        }
        // Looked at again: a writer may have started on it since.
        if (IsHeld(path)) continue;
        if (unlink(path.c_str()) != 0 && errno != ENOENT)
            throw Failure(FileFailure("cannot remove", path, errno));
        actions.push_back("removed the leftover " + path);
    }
    return actions;
}

void AddDoctorCommand(CLI::App& app, const GlobalOptions& options, Action* action) {
    auto repair = std::make_shared<bool>(false);
    CLI::App* doctor = app.add_subcommand(
        "doctor",
        "report what is wrong with --data-folder (options, lock, cache folders and their mail\n"
        "files, duplicates,\n"
        "leftovers of interrupted writes, records of unknown users, login data), reading only\n"
        "and changing nothing; exit 1 if anything was found");
    doctor->add_flag("--repair", *repair,
                     "under the registry lock: move damaged and unreadable cache folders, and "
                     "damaged mail files, into a quarantine folder, remove a stale lock file and "
                     "leftovers (nothing is "
                     "deleted otherwise; duplicates are only reported, and nothing outside "
                     "--data-folder is touched)");
    doctor->callback([&options, action, repair] {
        // Even a repair only reads the login data: an absent base folder stays absent.
        options.readsOnly = true;
        *action = [&options, repair] { return RunDoctor(options, *repair); };
    });
}

}  // namespace krctl
