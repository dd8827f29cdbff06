#include "IO/Errors.h"

#include <cerrno>

namespace IO {

int StatusFromErrno(int error) {
    switch (error) {
        case 0:
            return kOk;
        case ENOENT:
            return kErrNotFound;
        case EACCES:
        case EPERM:
        case EROFS:
            return kErrAccessDenied;
        case EEXIST:
            return kErrExists;
        case ENOTDIR:
            return kErrNotAFolder;
        case EISDIR:
            return kErrIsAFolder;
        case EAGAIN:
        case EBUSY:
            return kErrInUse;
        case ENAMETOOLONG:
        case EINVAL:
            return kErrBadLocation;
        default:
            return kErrIO;
    }
}

}  // namespace IO
