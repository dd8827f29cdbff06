#include "KRClient/Internal/CacheInfoReader.h"

#include <string_view>

#include "KRClient/KRClientExceptions.h"

namespace KRC {
namespace {

constexpr std::string_view kInfoFileSuffix = "/CacheInfo.xml";

std::vector<std::string> InfoFilePaths(const IO::Location& mainFolder,
                                       const std::vector<IO::Folder::Item>& items) {
    std::string base = mainFolder.GetLocalPath().Std();
    if (base == "/") base.clear();
    std::vector<std::string> paths;
    paths.reserve(items.size());
    for (const IO::Folder::Item& item : items) {
        if (!item.isFolder) continue;
        std::string path;
        path.reserve(base.size() + 1 + item.name.size() + kInfoFileSuffix.size());
        path.append(base).append(1, '/').append(item.name).append(kInfoFileSuffix);
        paths.push_back(std::move(path));
    }
    return paths;
}

}  // namespace

CacheInfoReader::CacheInfoReader(const IO::Location& mainFolder,
                                 const std::vector<IO::Folder::Item>& items)
    : files(InfoFilePaths(mainFolder, items), ZR::kXMLMaxFileBytes) {}

std::string_view CacheInfoReader::GetFolderPath(std::size_t index) const {
    std::string_view path = files.GetPath(index);
    path.remove_suffix(kInfoFileSuffix.size());
    return path;
}

IO::Location CacheInfoReader::GetFolder(std::size_t index) const {
    return IO::Location(ZR::UniString(GetFolderPath(index)));
}

std::unique_ptr<CachedProjectInfo> CacheInfoReader::Read(std::size_t index) {
    IO::FileStamp stamp;
    int status = files.Read(index, &stamp);
    if (status == IO::kErrNotFound || status == IO::kErrNotAFolder) return nullptr;
    if (status == IO::kErrIsAFolder) throw FileOpeningError(GetFolder(index));
    if (status == IO::kErrTooLarge) throw ErrorReadingFile(GetFolder(index));
    // Anything else (no access, too many open files, ...) may pass: the
    // reading of a single record tries again as it always does.
    if (status != IO::kOk) return std::make_unique<CachedProjectInfo>(GetFolder(index));

    auto record = std::unique_ptr<CachedProjectInfo>(
        new CachedProjectInfo(GetFolder(index), CachedProjectInfo::Unread{}));
    ZR::XMLIChannel* in = xml.Load(files.GetData(), files.GetSize(), "Cache");
    if (!in || record->ReadFields(*in) != 0) {
        IO::Location file;
        throw ErrorReadingFile(record->GetCacheInfoFileLocation(&file));
    }
    record->TakeFileStamp(true, stamp.modificationTime, stamp.changeStamp);
    return record;
}

}  // namespace KRC
