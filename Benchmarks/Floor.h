#pragma once
// Baselines: the least work that gives the registry's results, written
// straight against the system and pugixml, with nothing of the library's.

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "BenchSupport.h"

namespace bench {

// The values of one "CacheInfo.xml", copied out, with the file's times.
struct FloorRecord {
    std::vector<std::string> texts;  // every element's value, in file order
    std::int64_t mtime = 0;
    std::uint64_t stamp = 0;
};

// List the folder once (sorted, as the registry walks it), then per folder:
// open, fstat, read, close, parse with one reused document, copy the values.
std::vector<FloorRecord> FloorInit(const std::string& projects);

// One listing and one stat per folder's info file.
std::size_t FloorRecheck(const std::string& projects);

// Look-up keys folded once, scanned with the registry's tests.
class FoldedKeys {
public:
    explicit FoldedKeys(const Corpus& corpus);
    // The record of the location, or -1; withStat adds the one stat of the
    // found record's file that a look-up without the lock makes.
    long Find(const IO::Location& location, bool withStat) const;

private:
    struct Key {
        std::string path;
        std::string user;
        std::string server;
        std::string file;
    };
    std::vector<Key> keys;
};

}  // namespace bench
