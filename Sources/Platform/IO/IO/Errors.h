#pragma once
/// @file
/// Status codes of the file layer: 0 is success, everything else a failure.

#include "IO/IOExport.h"

namespace IO {

inline constexpr int kOk = 0;
inline constexpr int kErrNotFound = static_cast<int>(0x81010201u);
/// The file is held by another open file description (another process, or
/// another holder in this one); a delete answers this and leaves the file.
inline constexpr int kErrInUse = static_cast<int>(0x81010202u);
inline constexpr int kErrAccessDenied = static_cast<int>(0x81010203u);
inline constexpr int kErrIO = static_cast<int>(0x81010204u);
inline constexpr int kErrExists = static_cast<int>(0x81010205u);
inline constexpr int kErrNotAFolder = static_cast<int>(0x81010206u);
inline constexpr int kErrIsAFolder = static_cast<int>(0x81010207u);
inline constexpr int kErrBadLocation = static_cast<int>(0x81010208u);
inline constexpr int kErrNotOpen = static_cast<int>(0x81010209u);
inline constexpr int kErrNoName = static_cast<int>(0x8101020Au);
/// A file larger than its reader takes; nothing of it was kept.
inline constexpr int kErrTooLarge = static_cast<int>(0x8101020Bu);
/// Neither a regular file nor a folder: a pipe, a device or a socket, whose
/// reading could block or never end.
inline constexpr int kErrNotAFile = static_cast<int>(0x8101020Cu);

/// Maps an errno value to one of the codes above.
IO_EXPORT int StatusFromErrno(int error);

}  // namespace IO
