#pragma once
/// @file
/// Files and folders over POSIX. Every call answers a status (IO/Errors.h).
///
/// On-not-found modes: 0 fail, 1 create, 2 ignore (status not found, nothing made).
/// Open modes: 0 read, 2 write, 1 hold. Hold takes an exclusive open-file-description
/// lock (F_OFD_SETLK) on the file, so that while it is held a Delete from any other
/// holder or process answers kErrInUse; a file nobody holds is deleted.
///
/// Whatever the umask, every file this layer makes gets mode kNewFileMode and
/// every folder kNewFolderMode: the library's files may hold tokens.

#include <cstdint>
#include <string>
#include <vector>

#include "IO/Errors.h"
#include "IO/IOExport.h"
#include "IO/Location.h"

namespace IO {

inline constexpr unsigned int kNewFileMode = 0600;
inline constexpr unsigned int kNewFolderMode = 0700;

enum OnNotFound : int { kNotFoundFail = 0, kNotFoundCreate = 1, kNotFoundIgnore = 2 };
enum OpenMode : int { kOpenRead = 0, kOpenHold = 1, kOpenWrite = 2 };

class IO_EXPORT File {
public:
    File(const Location& location, int onNotFound = kNotFoundFail);
    ~File();
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Makes a heap File; *file is null unless the status is 0.
    static int New(File** file, const Location& location, int onNotFound);

    int GetStatus() const { return mStatus; }
    const Location& GetLocation() const { return mLocation; }
    /// Modification time on the TIGetTime scale.
    int GetModificationTime(std::int32_t* time) const;
    /// Nanosecond-resolution modification stamp, for callers that must see
    /// two writes within one second apart.
    int GetModificationStamp(std::int64_t* stamp) const;
    int GetDataLength(std::uint64_t* length) const;
    /// Changes with every write or replacement of the file, also within one
    /// second: a mix of modification and change times, inode and size.
    int GetChangeStamp(std::uint64_t* stamp) const;

    /// Answers kErrInUse on a File that is already open.
    int Open(int openMode, int accessDenied = 0);
    int Close();
    bool IsOpen() const { return mFd >= 0; }

    int Read(void* buffer, std::size_t length, std::size_t* got);
    int Write(const void* data, std::size_t length);

private:
    Location mLocation;
    int mStatus = kOk;
    int mFd = -1;
};

class IO_EXPORT Folder {
public:
    struct Item {
        std::string name;
        bool isFolder = false;
    };

    /// Called for each entry; answer false to stop the walk.
    using EnumCallback = bool (*)(const Folder& folder, const Name& name, bool isFolder,
                                  void* argument);

    Folder(const Location& location, int onNotFound = kNotFoundFail);

    int GetStatus() const { return mStatus; }
    const Location& GetLocation() const { return mLocation; }

    int Contains(const Name& name, bool* contains) const;
    bool IsEmpty() const;
    std::size_t CountFolders() const;
    /// One level, entries in name order. linkProcessing 1 follows symbolic
    /// links when telling folders from files, 0 reports links as files.
    /// Flags are reserved.
    int Enumerate(EnumCallback callback, int linkProcessing, int flags, void* argument) const;
    /// The same entries in the same order, from one reading of the folder.
    int List(std::vector<Item>* items, int linkProcessing) const;
    /// Deletes an entry (a folder with all it holds). dataSafety and
    /// accessDenied are accepted for the interface and not used.
    int Delete(const Name& name, int dataSafety, int accessDenied) const;
    /// Deletes a file or link; a folder of that name answers kErrIsAFolder and
    /// stays, with all it holds. A held file answers kErrInUse.
    int DeleteFile(const Name& name) const;
    /// A name not present in the folder: base, else base + "-1", "-2", ...,
    /// each followed by the extension.
    int GenerateUnusedName(Name* name, const ZR::UniString& base,
                           const ZR::UniString& extension) const;

private:
    Location mLocation;
    int mStatus = kOk;
};

enum SpecialLocation : int {
    kTemporaryFolder = 0,
    kHomeFolder = 1,
    kUserDataFolder = 2,
    /// Settings that follow the user: $XDG_CONFIG_HOME or ~/.config.
    kRoamingProfileFolder = 9,
};

class IO_EXPORT FileSystem {
public:
    int Contains(const Location& location, bool* contains) const;
    int CountSize(const Location& location, std::uint64_t* bytes) const;
    /// Makes the folder and any missing parents, each with exactly mode
    /// whatever the umask; folders that exist keep theirs. 0 if it exists
    /// already, kErrNotAFolder if a file is in the way.
    int CreateFolderTree(const Location& location, unsigned int mode = kNewFolderMode) const;
    /// A folder goes with all it holds, except held files: those stay and the
    /// answer is kErrInUse. dataSafety and accessDenied are not used.
    int Delete(const Location& location, int dataSafety, int accessDenied) const;
    /// Deletes a file or link where one is expected: a folder answers
    /// kErrIsAFolder and stays, with all it holds. A held file answers kErrInUse.
    int DeleteFile(const Location& location) const;
    /// Temporary folder ($TMPDIR or /tmp), home, user data ($XDG_DATA_HOME or
    /// ~/.local/share), roaming profile ($XDG_CONFIG_HOME or ~/.config).
    int GetSpecialLocation(int which, Location* location) const;

    /// Stored files: written to a temporary file in the same folder, flushed
    /// and renamed over the old one, so a crash leaves the old or the new file.
    /// The file gets exactly mode, whatever the umask and the old file's mode.
    /// The temporary file is ".NAME.tmp-XXXXXX", held by an open-file-description
    /// lock while it is written; a successful write removes the temporary files
    /// of NAME that nobody holds (left by writers that died). While the rename
    /// happens the new file is held for a moment: never use a stored file itself
    /// as a lock file.
    int WriteFileAtomically(const Location& location, const std::string& data,
                            unsigned int mode = kNewFileMode) const;
    /// entry has the name form of a temporary file of a write of target.
    static bool IsTemporaryFileOf(const Name& entry, const Name& target);
    /// The whole file; kErrTooLarge, with data empty, for one of more than maxBytes.
    int ReadWholeFile(const Location& location, std::string* data,
                      std::size_t maxBytes = SIZE_MAX) const;
};

/// A stored file written in pieces, for contents too large to hold twice in
/// memory: the temporary file, flush and rename of WriteFileAtomically. The
/// target is replaced only by Commit; a writer destroyed before it, or whose
/// write failed, removes its temporary file and leaves the target as it was.
class IO_EXPORT AtomicFileWriter {
public:
    explicit AtomicFileWriter(const Location& location, unsigned int mode = kNewFileMode);
    ~AtomicFileWriter();
    AtomicFileWriter(const AtomicFileWriter&) = delete;
    AtomicFileWriter& operator=(const AtomicFileWriter&) = delete;

    /// 0 while all went well; the first failure otherwise, which every later
    /// call answers too.
    int GetStatus() const { return mStatus; }
    int Write(const void* data, std::size_t length);
    /// Flushes and puts the file in place; once.
    int Commit();

private:
    std::string mPath;
    std::string mFolder;
    std::string mPrefix;
    std::string mTemp;
    int mFd = -1;
    int mStatus = kOk;
};

extern IO_EXPORT FileSystem fileSystem;

}  // namespace IO
