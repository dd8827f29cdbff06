#include <cerrno>

#include "IO/File.h"
#include "IO/Internal/Env.h"
#include "IO/Internal/StampedFile.h"

namespace IO {

int File::GetChangeStamp(std::uint64_t* stamp) const {
    *stamp = 0;
    struct stat st {};
    if (!mLocation.IsLocal()) return kErrBadLocation;
    if (Sys::Stat(mLocation.ToPath().ToCString(), &st) != 0) return StatusFromErrno(errno);
    *stamp = StampOf(st).changeStamp;
    return kOk;
}

}  // namespace IO
