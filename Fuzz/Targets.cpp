#include "Targets.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "IO/Location.h"
#include "KRCB/LoginDataStore.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"
#include "ZRXML/XMLChannel.h"

namespace krfuzz {
namespace {

// Readers of files get their input as a file: one scratch folder for the
// process, removed at exit. In memory where there is a place for it: on a disc
// file system each rewrite of a file waits for the one before to be written.
class Scratch {
public:
    Scratch() {
        for (std::string root :
             {std::string("/dev/shm"), std::filesystem::temp_directory_path().string()}) {
            std::string base = root + "/krc-fuzz-XXXXXX";
            if (mkdtemp(base.data())) {
                mPath = base;
                return;
            }
        }
        std::abort();
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    // Puts data into NAME in FOLDER, replacing what an earlier input left
    // there, and answers the folder.
    IO::Location Put(const std::string& folder, const char* name, const std::uint8_t* data,
                     std::size_t size) const {
        std::string dir = mPath + "/" + folder;
        std::filesystem::create_directories(dir);
        std::ofstream out(dir + "/" + name, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        if (!out) std::abort();
        return IO::Location(ZR::UniString(dir));
    }

private:
    std::string mPath;
};

const Scratch& TheScratch() {
    static Scratch scratch;
    return scratch;
}

// Walks a channel the way a reader that knows no schema would: every element,
// entered where it has children, read as the type its name picks otherwise.
void Walk(ZR::XMLIChannel& in, int depth) {
    ZR::UniString name;
    for (int guard = 0; guard < 100000 && in.GetNextElementName(&name) == 0; ++guard) {
        const char* key = name.ToCString();
        if (depth < 64 && in.EnterElement(key) == 0) {
            Walk(in, depth + 1);
            in.LeaveElement();
            continue;
        }
        ZR::UniString text;
        std::uint32_t u32;
        std::int32_t i32;
        std::uint16_t u16;
        std::int16_t i16;
        bool flag;
        int status = 0;
        switch (name.Std().size() % 6) {
            case 0:
                status = in.Read(key, &text);
                break;
            case 1:
                status = in.Read(key, &u32);
                break;
            case 2:
                status = in.Read(key, &i32);
                break;
            case 3:
                status = in.Read(key, &u16);
                break;
            case 4:
                status = in.Read(key, &i16);
                break;
            default:
                status = in.Read(key, &flag);
                break;
        }
        // A value that doesn't parse is consumed; one that was not taken ends the walk.
        if (status != 0 && status != ZR::kXMLErrBadValue) break;
    }
}

}  // namespace

int FuzzXmlChannel(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = TheScratch().Put("xml", "In.xml", data, size);
    ZR::XMLIChannel* in = ZRXML::CreateXMLIChannel(folder + IO::Name("In.xml"), "Root", 0);
    if (!in) return 0;
    Walk(*in, 0);
    ZRXML::DisposeXMLIChannel(in);
    return 0;
}

int FuzzCacheInfo(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = TheScratch().Put("record", KRC::kCacheInfoFileName, data, size);
    try {
        KRC::CachedProjectInfo info(folder);
        IO::Location location;
        info.GetPortalServerUrl();
        info.GetProjectPath();
        info.GetPermissions();
        info.GetXMLVersion();
    } catch (const KRC::FileException&) {
        // A file the record can't take: what a reader reports.
    }
    return 0;
}

int FuzzDataOptions(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = TheScratch().Put("options", KRC::KRDataOptions::kFileName, data, size);
    KRC::KRDataOptions& options = KRC::dataOptions;
    options.ResetForTesting();
    options.SetOptionsFolder(folder);
    options.SetProjectCacheFolderName("Projects");
    options.SetLibCacheFolderName("Libraries");
    options.Read();
    IO::Location location;
    options.GetDataFolder(&location, false);
    options.GetMainProjectCacheFolder(&location, false);
    options.GetPeriodTime();
    return 0;
}

int FuzzLoginData(const std::uint8_t* data, std::size_t size) {
    using KRCB::LoginDataStore::LoginDataStore;
    LoginDataStore store;
    try {
        store = LoginDataStore::FromJson(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const KRCB::LoginDataStore::LoginDataStoreException&) {
        return 0;
    }
    // What was read is written back and read again unchanged, and every server
    // is found by its own URL.
    if (!(LoginDataStore::FromJson(store.ToJson()) == store)) std::abort();
    for (const auto& server : store.Servers())
        if (!store.FindServer(server.GetUniqueURL())) std::abort();
    return 0;
}

int FuzzLocation(const std::uint8_t* data, std::size_t size) {
    ZR::UniString text(std::string(reinterpret_cast<const char*>(data), size));
    IO::Location location;
    if (location.Set(text)) {
        IO::Location back;
        if (!back.Set(location.ToText()) || back != location) std::abort();
        location.ToDisplayText();
        location.ToPath();
    }
    IO::Location obsolete;
    if (obsolete.SetObsolete(text)) obsolete.ToObsoleteText();
    return 0;
}

const Target* FindTarget(std::string_view name) {
    static const Target kTargets[] = {
        {"xml_channel", &FuzzXmlChannel},   {"cache_info", &FuzzCacheInfo},
        {"data_options", &FuzzDataOptions}, {"login_data", &FuzzLoginData},
        {"location", &FuzzLocation},
    };
    for (const Target& target : kTargets)
        if (name == target.name) return &target;
    return nullptr;
}

const char* TargetNames() {
    return "xml_channel, cache_info, data_options, login_data, location";
}

}  // namespace krfuzz
