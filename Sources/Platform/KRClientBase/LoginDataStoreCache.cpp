#include <chrono>
#include <thread>

#include "IO/File.h"
#include "IO/Internal/Env.h"
#include "KRCB/KRClientBase.h"
#include "KRCB/LoginDataStore.h"
#include "ZR/Logger.h"
#include "ZR/MD5.h"

namespace KRCB::LoginDataStore {

namespace {

// Never log file content: it holds refresh tokens.
const ZR::WarningLogLine kReadFailed("Login data file % could not be read (status %).", "KRCB");
const ZR::WarningLogLine kUnreadable("Login data file % was set aside as % and not used: %",
                                     "KRCB");
const ZR::WarningLogLine kSetAsideFailed(
    "Login data file % is not used (%) and could not be set aside (status %).", "KRCB");
const ZR::WarningLogLine kTooLarge("Login data file % is not used: it is larger than % MiB.",
                                   "KRCB");
const ZR::WarningLogLine kProtectFailed("Login data: could not restrict the permissions of %.",
                                        "KRCB");

// What a look at the file found usable.
enum Readiness { kNotStarted, kNoFolder, kReady };

ZR::UniString PendingKey(const ZR::UniString& url) {
    return NormalizeServerUrl(url).FoldCase();
}

// A folder made by someone else may be too open; one that can't be restricted
// is still used. Files need nothing: the file layer makes them 0600.
void Restrict(const IO::Location& location, mode_t mode) {
    if (IO::Sys::Chmod(location.ToPath().ToCString(), mode) != 0) {
        ZR::FastLogger::LogComposer composer;
        ZR::logger.Append(kProtectFailed, composer);
        composer.Append(location.ToDisplayText());
    }
}

[[noreturn]] void ThrowNoFolder(const char* operation) {
    throw LoginDataStoreException(
        ZR::UniString(std::string("Failed to ") + operation + " the login data. " +
                      KRCB::GetBaseFolderProblem().Std()),
        ZR_HERE);
}

// The lock file beside the login data, held while a save reads, merges and
// writes. It is made when missing and never deleted: deleting it while
// another process waits on it would let two writers in at once.
class WriterLock {
public:
    explicit WriterLock(const IO::Location& folder) {
        IO::Location location = folder + IO::Name(LoginDataStoreCache::kLockFileName);
        auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::milliseconds(LoginDataStoreCache::kLockWaitMillis);
        auto pause = std::chrono::milliseconds(1);
        for (;;) {
            mFile = std::make_unique<IO::File>(location, IO::kNotFoundCreate);
            int status = mFile->GetStatus();
            if (status == IO::kOk) status = mFile->Open(IO::kOpenHold);
            if (status == IO::kOk) return;
            if (status != IO::kErrInUse)
                throw LoginDataStoreException(
                    ZR::UniString::Format("Failed to save the login data. Its lock file \"%s\" "
                                          "can't be used (status %d).",
                                          location.ToDisplayText().ToCString(), status),
                    ZR_HERE, status);
            if (std::chrono::steady_clock::now() >= deadline)
                throw LoginDataStoreException(
                    ZR::UniString::Format("Failed to save the login data. Another writer held "
                                          "its lock \"%s\" for %d s.",
                                          location.ToDisplayText().ToCString(),
                                          LoginDataStoreCache::kLockWaitMillis / 1000),
                    ZR_HERE, status);
            std::this_thread::sleep_for(pause);
            pause = std::min(pause * 2, std::chrono::milliseconds(20));
        }
    }

private:
    std::unique_ptr<IO::File> mFile;
};

// Content-named, so that each damaged file is kept once and no copy ever
// replaces another.
IO::Name SetAsideName(const std::string& text) {
    MD5::Generator md5;
    md5.Update(text.data(), text.size());
    return IO::Name(ZR::UniString(std::string(LoginDataStoreCache::kFileName) + ".bad-" +
                                  md5.GetFingerPrint().GetAsZrString().Std().substr(0, 16)));
}

}  // namespace

LoginDataStoreCache& LoginDataStoreCache::GetInstance() {
    static LoginDataStoreCache instance;
    return instance;
}

LoginDataStoreCache::FileStamp LoginDataStoreCache::StampOf(const IO::Location& file) {
    FileStamp stamp;
    IO::File f(file, IO::kNotFoundFail);
    if (f.GetStatus() == IO::kErrNotFound) return stamp;
    // Something stands there: a stamp that can't be taken never matches, so
    // it is read (or fails to be) at every look.
    stamp.exists = true;
    if (f.GetStatus() != IO::kOk || f.GetChangeStamp(&stamp.change) != IO::kOk ||
        f.GetDataLength(&stamp.length) != IO::kOk)
        stamp.known = false;
    return stamp;
}

IO::Location LoginDataStoreCache::GetFileLocation() const {
    IO::Location folder = KRCB::GetBaseDataFolder();
    return folder.IsEmpty() ? folder : folder + IO::Name(kFileName);
}

int LoginDataStoreCache::RefreshLocked() {
    if (!KRCB::IsStarted()) return kNotStarted;
    IO::Location folder = KRCB::GetBaseDataFolder();
    if (folder.IsEmpty()) return kNoFolder;
    if (folder != mFolder) {
        ResetLocked();
        mFolder = folder;
    }
    IO::Location file = mFolder + IO::Name(kFileName);
    // Stamp before reading: a write in between makes the next look read again.
    FileStamp stamp = StampOf(file);
    if (!mLoaded || !(stamp == mStamp)) ReadLocked(file, stamp);
    return kReady;
}

void LoginDataStoreCache::ReadLocked(const IO::Location& file, const FileStamp& stamp) {
    LoginDataStore data;
    mReadProblem.Clear();
    mSetAside = false;
    if (stamp.exists) {
        std::string text;
        const int maxMiB = static_cast<int>(LoginDataStore::kMaxTextBytes >> 20);
        ZR::FastLogger::LogComposer composer;
        if (stamp.length > LoginDataStore::kMaxTextBytes) {
            ZR::logger.Append(kTooLarge, composer);
            composer.Append(file.ToDisplayText()).Append(maxMiB);
            mReadProblem = ZR::UniString::Format("is larger than %d MiB", maxMiB);
        } else if (int status = IO::fileSystem.ReadWholeFile(file, &text); status != IO::kOk) {
            ZR::logger.Append(kReadFailed, composer);
            composer.Append(file.ToDisplayText()).Append(status);
            mReadProblem = ZR::UniString::Format("can't be read (status %d)", status);
        }
        if (!mReadProblem.IsEmpty()) {
            // Keep what we had, refuse to save over what we never saw, and
            // try again at the next look.
            mStamp.known = false;
            mLoaded = true;
            return;
        }
        try {
            data = LoginDataStore::FromJson(text);
        } catch (const LoginDataStoreException& e) {
            // Kept for whoever wants to recover it; the next save replaces the file.
            SetAsideLocked(text, e.GetMessage());
            mSetAside = true;
        }
    }
    SetDataLocked(std::move(data));
    mStamp = stamp;
    mLoaded = true;
}

void LoginDataStoreCache::SetAsideLocked(const std::string& text, const ZR::UniString& reason) {
    IO::Name name = SetAsideName(text);
    IO::Location aside = mFolder + name;
    bool exists = false;
    int status = IO::fileSystem.Contains(aside, &exists);
    if (status == IO::kOk && !exists) {
        status = IO::fileSystem.WriteFileAtomically(aside, text, 0600);
    }
    ZR::FastLogger::LogComposer composer;
    if (status != IO::kOk) {
        ZR::logger.Append(kSetAsideFailed, composer);
        composer.Append((mFolder + IO::Name(kFileName)).ToDisplayText())
            .Append(reason)
            .Append(status);
        return;
    }
    ZR::logger.Append(kUnreadable, composer);
    composer.Append((mFolder + IO::Name(kFileName)).ToDisplayText())
        .Append(name.GetUniString())
        .Append(reason);
}

void LoginDataStoreCache::SetDataLocked(LoginDataStore data) {
    for (const auto& [url, name] : mPendingNames)
        if (data.ContainsServer(url)) data.SetFriendlyName(url, name);
    data.mOrigin.reset();
    mData = std::make_shared<const LoginDataStore>(std::move(data));
}

void LoginDataStoreCache::WriteLocked(const LoginDataStore& store) {
    if (!mReadProblem.IsEmpty())
        throw LoginDataStoreException(
            ZR::UniString::Format("Failed to save the login data. The file \"%s\" %s; a save "
                                  "would overwrite it unseen.",
                                  (mFolder + IO::Name(kFileName)).ToDisplayText().ToCString(),
                                  mReadProblem.ToCString()),
            ZR_HERE);
    IO::Location file = mFolder + IO::Name(kFileName);
    std::string text = store.ToJson();
    // What no reader would take is not written.
    if (text.size() > LoginDataStore::kMaxTextBytes)
        throw LoginDataStoreException(
            ZR::UniString::Format("Failed to save the login data. It would be larger than %d MiB.",
                                  static_cast<int>(LoginDataStore::kMaxTextBytes >> 20)),
            ZR_HERE);
    int status = IO::fileSystem.WriteFileAtomically(file, text, 0600);
    if (status != IO::kOk)
        throw LoginDataStoreException(
            ZR::UniString::Format(
                "Failed to save the login data. The file can't be written (status %d).", status),
            ZR_HERE, status);
    mStamp = StampOf(file);
    mLoaded = true;
}

void LoginDataStoreCache::PrepareFolderLocked() {
    int status = IO::fileSystem.CreateFolderTree(mFolder, 0700);
    if (status != IO::kOk)
        throw LoginDataStoreException(
            ZR::UniString::Format(
                "Failed to save the login data. The folder can't be made (status %d).", status),
            ZR_HERE, status);
    Restrict(mFolder, 0700);
}

ZR::Ref<LoginDataStore> LoginDataStoreCache::GetLoginDataStoreCopy(int /*openMethod*/) {
    std::lock_guard<std::mutex> lock(mMutex);
    int readiness = RefreshLocked();
    if (readiness == kNotStarted) return ZR::Ref<LoginDataStore>();
    if (readiness == kNoFolder) ThrowNoFolder("read");
    auto copy = ZR::Ref<LoginDataStore>::Make(*mData);
    copy->mOrigin = mData;
    return copy;
}

bool LoginDataStoreCache::SaveToFile(const LoginDataStore& store) {
    std::lock_guard<std::mutex> lock(mMutex);
    int readiness = RefreshLocked();
    if (readiness == kNotStarted) return false;
    if (readiness == kNoFolder) ThrowNoFolder("save");
    PrepareFolderLocked();
    WriterLock writer(mFolder);
    RefreshLocked();  // another writer may have saved since the last look
    LoginDataStore data =
        store.mOrigin ? LoginDataStore::Merge(*store.mOrigin, store, *mData) : store;
    for (const auto& [url, name] : mPendingNames)
        if (data.ContainsServer(url)) data.SetFriendlyName(url, name);
    WriteLocked(data);
    mPendingNames.Clear();
    SetDataLocked(std::move(data));
    return true;
}

void LoginDataStoreCache::CheckSave() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mPendingNames.IsEmpty()) return;
    int readiness = RefreshLocked();
    if (readiness == kNotStarted) return;
    if (readiness == kNoFolder) ThrowNoFolder("save");
    // Re-read under the lock, so that what another process wrote since
    // survives; the pending names are laid over what was read.
    PrepareFolderLocked();
    WriterLock writer(mFolder);
    RefreshLocked();
    LoginDataStore data = *mData;
    WriteLocked(data);
    mPendingNames.Clear();
    SetDataLocked(std::move(data));
}

void LoginDataStoreCache::UpdateFriendlyName(const ZR::UniString& url, const ZR::UniString& name,
                                             bool persist) {
    if (url.IsEmpty() || name.IsEmpty()) return;
    std::lock_guard<std::mutex> lock(mMutex);
    if (RefreshLocked() != kReady || !mData->ContainsServer(url)) return;
    if (mData->GetFriendlyName(url) == name) return;
    // Copies handed out keep the data they were taken from.
    auto changed = std::make_shared<LoginDataStore>(*mData);
    changed->SetFriendlyName(url, name);
    mData = std::move(changed);
    if (persist) mPendingNames.Set(PendingKey(url), name);
}

bool LoginDataStoreCache::GetFriendlyName(const ZR::UniString& url, ZR::UniString& name) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (RefreshLocked() != kReady) return false;
    const Server* server = mData->FindServer(url);
    if (!server || server->GetFriendlyName().IsEmpty()) return false;
    name = server->GetFriendlyName();
    return true;
}

bool LoginDataStoreCache::GetFullName(const ZR::UniString& url, const ZR::UniString& user,
                                      ZR::UniString& fullName) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (RefreshLocked() != kReady) return false;
    const Server* server = mData->FindServer(url);
    const User* found = server ? server->FindUser(user) : nullptr;
    if (!found || found->GetFullName().IsEmpty()) return false;
    fullName = found->GetFullName();
    return true;
}

void LoginDataStoreCache::ResetLocked() {
    mFolder.Clear();
    mLoaded = false;
    mReadProblem.Clear();
    mSetAside = false;
    mStamp = FileStamp();
    mData = std::make_shared<const LoginDataStore>();
    mPendingNames.Clear();
}

void LoginDataStoreCache::ResetForTesting() {
    std::lock_guard<std::mutex> lock(mMutex);
    ResetLocked();
}

}  // namespace KRCB::LoginDataStore
