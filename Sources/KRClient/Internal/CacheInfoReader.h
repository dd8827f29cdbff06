#pragma once
// Reads the records of many cache folders in one walk. Per folder: the path
// is built once, the file opened once and stamped by the fstat of what was
// read, and the values parsed from the bytes straight into the record's
// fields, with one buffer and one XML document serving every folder.

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "IO/File.h"
#include "IO/Internal/StampedFile.h"
#include "KRClient/CachedProjectInfo.h"
#include "ZRXML/XMLChannel.h"

namespace KRC {

class CacheInfoReader {
public:
    // The cache folders of one main folder's listing, in walk order.
    CacheInfoReader(const IO::Location& mainFolder, const std::vector<IO::Folder::Item>& items);

    std::size_t GetCount() const { return files.GetCount(); }
    // The folder of record index, as the location a record keeps, and its path.
    IO::Location GetFolder(std::size_t index) const;
    std::string_view GetFolderPath(std::size_t index) const;

    // Record index, read in ascending order. Null if the folder has no info
    // file. An unreadable file throws as the constructor from a folder does.
    std::unique_ptr<CachedProjectInfo> Read(std::size_t index);

private:
    IO::StampedReader files;
    ZRXML::XMLBufferReader xml;
};

}  // namespace KRC
