#pragma once
// Helpers of the file classes over the system calls of IO::Sys. Not part of
// the public interface of IO.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "IO/Internal/Env.h"
#include "IO/Location.h"

namespace IO::Posix {

// The path of a local location; false for an empty or server location.
bool LocalPath(const Location& location, std::string* path);

// A name that may stand for one entry of a folder: not empty, no '/', not "." or "..".
int CheckEntryName(const Name& name);

// Takes an open-file-description lock of the whole file without waiting.
// Answers kErrInUse if another open file description holds a conflicting one.
int TryLock(int fd, short type);

// True if path still names the file open at fd.
bool SameFile(int fd, const std::string& path, bool followLink);

// What stands at a location: kOk if an entry of the wanted kind, kErrIsAFolder
// or kErrNotAFolder if one of the other kind, kErrNotFound if nothing; *path
// gets the local path.
int Probe(const Location& location, bool wantFolder, std::string* path);

// Names of a folder's entries, without "." and "..".
int ListNames(const std::string& path, std::vector<std::string>* names);

int ReadAll(int fd, std::string* data, std::size_t maxBytes = SIZE_MAX);
void CloseFd(int fd);

// Opens path with flags (an access mode, O_TRUNC, ...). A missing file is
// made with exactly mode, whatever the umask; an existing one keeps its own.
// *fd gets the descriptor.
int OpenOrCreate(const std::string& path, int flags, mode_t mode, int* fd);

// Makes one folder with exactly mode, whatever the umask. Answers -1 with
// errno as mkdir does; an existing entry is EEXIST.
int MakeFolder(const std::string& path, mode_t mode);

// Removes a file, link or folder tree. A regular file held by an open file
// description elsewhere is left in place and the answer is kErrInUse; the
// rest of a tree is still removed.
int DeleteEntry(const std::string& path);

// Removes a file or link, never a folder: a folder answers kErrIsAFolder and
// stays. A held regular file answers kErrInUse and stays.
int DeleteFileEntry(const std::string& path);

}  // namespace IO::Posix
