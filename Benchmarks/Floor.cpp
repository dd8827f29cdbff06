#include "Floor.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <pugixml.hpp>

#include "KRCB/Paths.h"
#include "ZR/UniString.h"

namespace bench {
namespace {

std::vector<std::string> ListFolders(const std::string& projects) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(projects.c_str());
    if (!dir) return names;
    while (dirent* entry = ::readdir(dir)) {
        if (entry->d_type != DT_DIR || entry->d_name[0] == '.') continue;
        names.emplace_back(entry->d_name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

std::vector<FloorRecord> FloorInit(const std::string& projects) {
    std::vector<std::string> names = ListFolders(projects);
    std::vector<FloorRecord> records;
    records.reserve(names.size());
    std::vector<char> buffer(4096);
    pugi::xml_document document;
    std::string path;
    for (const std::string& name : names) {
        path.assign(projects).append(1, '/').append(name).append("/CacheInfo.xml");
        int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) continue;
        struct stat st;
        if (::fstat(fd, &st) != 0) {
            ::close(fd);
            continue;
        }
        std::size_t size = static_cast<std::size_t>(st.st_size);
        if (buffer.size() < size + 1) buffer.resize(size + 1);
        ssize_t got = ::read(fd, buffer.data(), size + 1);
        ::close(fd);
        if (got < 0) continue;
        if (!document.load_buffer_inplace(buffer.data(), static_cast<std::size_t>(got))) continue;
        FloorRecord record;
        pugi::xml_node root = document.document_element();
        record.texts.reserve(32);
        for (pugi::xml_node element : root.children())
            record.texts.emplace_back(element.text().get());
        record.mtime = st.st_mtim.tv_sec;
        record.stamp = static_cast<std::uint64_t>(st.st_ctim.tv_nsec) ^ st.st_ino;
        records.push_back(std::move(record));
    }
    return records;
}

std::size_t FloorRecheck(const std::string& projects) {
    std::vector<std::string> names = ListFolders(projects);
    std::size_t present = 0;
    std::string path;
    for (const std::string& name : names) {
        path.assign(projects).append(1, '/').append(name).append("/CacheInfo.xml");
        struct stat st;
        if (::stat(path.c_str(), &st) == 0) ++present;
    }
    return present;
}

FoldedKeys::FoldedKeys(const Corpus& corpus) {
    keys.reserve(corpus.files.size());
    for (std::size_t i = 0; i < corpus.files.size(); ++i)
        keys.push_back({ZR::UniString(corpus.paths[i]).FoldCase().Std(),
                        ZR::UniString(corpus.users[i]).FoldCase().Std(), corpus.server,
                        corpus.files[i]});
}

long FoldedKeys::Find(const IO::Location& location, bool withStat) const {
    // The query's keys come from the location and are folded once.
    const std::string user = location.GetUserName().FoldCase().Std();
    const ZR::UniString server = KRCB::GetPortalServerUrl(location);
    const std::string path = KRCB::GetProjectPath(location).FoldCase().Std();
    long strict = -1, loose = -1;
    int looseCount = 0;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        const Key& key = keys[i];
        if (key.path != path || key.user != user) continue;
        const ZR::UniString keyServer(key.server);
        if (KRCB::IsEqualServerUrls(keyServer, server, true)) {
            strict = static_cast<long>(i);
            break;
        }
        if (KRCB::IsEqualServerUrls(keyServer, server, false) && looseCount++ == 0)
            loose = static_cast<long>(i);
    }
    long found = strict >= 0 ? strict : (looseCount == 1 ? loose : -1);
    if (found >= 0 && withStat) {
        struct stat st;
        if (::stat(keys[static_cast<std::size_t>(found)].file.c_str(), &st) != 0) return -1;
    }
    return found;
}

}  // namespace bench
