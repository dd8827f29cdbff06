#include <cerrno>

#include "IO/File.h"
#include "IO/Internal/Env.h"

namespace IO {

int File::GetChangeStamp(std::uint64_t* stamp) const {
    *stamp = 0;
    struct stat st {};
    if (!mLocation.IsLocal()) return kErrBadLocation;
    if (Sys::Stat(mLocation.ToPath().ToCString(), &st) != 0) return StatusFromErrno(errno);
    // FNV-1a over the fields that a replacement or a write changes.
    const std::uint64_t parts[] = {static_cast<std::uint64_t>(st.st_mtim.tv_sec),
                                   static_cast<std::uint64_t>(st.st_mtim.tv_nsec),
                                   static_cast<std::uint64_t>(st.st_ctim.tv_sec),
                                   static_cast<std::uint64_t>(st.st_ctim.tv_nsec),
                                   static_cast<std::uint64_t>(st.st_ino),
                                   static_cast<std::uint64_t>(st.st_size)};
    std::uint64_t h = 1469598103934665603ull;
    for (std::uint64_t p : parts)
        for (int i = 0; i < 8; ++i) {
            h ^= (p >> (8 * i)) & 0xFF;
            h *= 1099511628211ull;
        }
    *stamp = h == 0 ? 1 : h;
    return kOk;
}

}  // namespace IO
