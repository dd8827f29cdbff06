// The lock file that lets several processes of one user take turns with the
// shared registry and options. Whether another process holds it is told by
// the file system: a held file can't be deleted (IO::kErrInUse), and a file
// left by a process that died has nobody behind it, so the test removes it.

#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/RegisteredProjects.h"
#include "ZR/Thread.h"

namespace KRC {
namespace {

constexpr int kLockTries = 10;
constexpr int kLockPollMs = 50;

// Open failures that say another process is in the middle of taking or
// leaving the lock, as opposed to a file that can't be held here at all.
bool IsContention(int status) {
    return status == IO::kErrInUse || status == IO::kErrNotFound;
}

}  // namespace

IO::File* RegisteredProjects::Synchronizer::mLockFile = nullptr;
ZR::Array<const RegisteredProjects::Synchronizer*>
    RegisteredProjects::Synchronizer::mOwnLockCounter;

RegisteredProjects::Synchronizer::Synchronizer() {
    if (mOwnLockCounter.IsEmpty()) {
        WaitForLock();
        // Read once the wait is over, not before it: a record that another
        // process made meanwhile must be in the registry, or a guarded
        // CreateCachedProjectInfo would make its cache folder a second time.
        try {
            registeredProjects.RefreshData(true, nullptr);
        } catch (...) {
            RemoveLock();
            throw;
        }
    }
    // Counted whether or not the lock was got.
    mOwnLockCounter.Add(this);
}

RegisteredProjects::Synchronizer::~Synchronizer() {
    if (mOwnLockCounter.IsEmpty()) {
        // Reset emptied the counter under this guard.
        RemoveLock();
        return;
    }
    for (std::size_t i = 0; i < mOwnLockCounter.GetSize(); ++i) {
        if (mOwnLockCounter[i] == this) {
            mOwnLockCounter.Remove(i);
            break;
        }
    }
    if (mOwnLockCounter.IsEmpty()) RemoveLock();
}

bool RegisteredProjects::Synchronizer::IsLocked() {
    return mLockFile != nullptr;
}

IO::Location RegisteredProjects::Synchronizer::GetLockFileLoc() {
    IO::Location location;
    dataOptions.GetDataFolder(&location, mOwnLockCounter.IsEmpty());
    // With no data folder the name alone would be a path in the working folder.
    if (location.IsEmpty()) return location;
    return location + IO::Name(kLockFileName);
}

bool RegisteredProjects::Synchronizer::IsLockedByOthers() {
    if (mLockFile) return false;
    IO::Location location = GetLockFileLoc();
    IO::Name name;
    if (!location.MoveLastLocalName(&name)) return false;
    IO::Folder folder(location, IO::kNotFoundFail);
    if (folder.GetStatus() != IO::kOk) return false;
    // A missing file or a failure of any other kind reads as free. Only a
    // file goes: a folder that stands where the lock file belongs is not the
    // library's to delete, whatever it holds, and the lock is then not taken.
    return folder.DeleteFile(name) == IO::kErrInUse;
}

void RegisteredProjects::Synchronizer::WaitForLock() {
    int tries = kLockTries;
    bool done = false;
    while (tries >= 1) {
        // No bound of its own: it ends when the other process lets go, or
        // when this thread is interrupted, which leaves the guard's constructor.
        while (IsLockedByOthers()) ZR::Thread::Sleep(kLockPollMs, true);

        if (IO::File::New(&mLockFile, GetLockFileLoc(), IO::kNotFoundCreate) != IO::kOk ||
            !mLockFile) {
            mLockFile = nullptr;
            --tries;  // no wait between these tries
            continue;
        }
        done = true;
        int status = mLockFile->Open(IO::kOpenHold, 2);
        if (status != IO::kOk) {
            delete mLockFile;
            mLockFile = nullptr;
            // Another process held the file at this very moment, or removed
            // it as stale between our making and our opening it: wait again,
            // even if it let go already. Going on without the lock is only
            // for a file that can't be held here at all.
            done = !IsContention(status);
        }
        dataOptions.Refresh();
        if (done) return;
    }
}

void RegisteredProjects::Synchronizer::RemoveLock() {
    try {
        if (!mLockFile) return;
        // Options changed while the lock was held are written only here, and
        // while it is still held: written after the release, they could land
        // on top of what the next holder wrote, and undo it.
        if (dataOptions.NeedsWrite()) dataOptions.Write();
        mLockFile->Close();
        // The file's own location: after SetKRDataFolder under the lock, the
        // lock file of the old folder is the one that goes.
        IO::fileSystem.DeleteFile(mLockFile->GetLocation());
        delete mLockFile;
        mLockFile = nullptr;
    } catch (...) {
        mLockFile = nullptr;
    }
}

void RegisteredProjects::Synchronizer::Reset() {
    mOwnLockCounter.Clear();
    RemoveLock();
}

}  // namespace KRC
