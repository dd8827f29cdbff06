#include "IO/File.h"
#include "IO/Internal/Env.h"
#include "KRCB/KRClientBase.h"
#include "KRCB/LoginDataStore.h"
#include "ZR/Logger.h"

namespace KRCB::LoginDataStore {

namespace {

// Never log file content: it holds refresh tokens.
const ZR::WarningLogLine kReadFailed("Login data file % could not be read (status %).", "KRCB");
const ZR::WarningLogLine kUnreadable("Login data file % was set aside as % and not used: %",
                                     "KRCB");
const ZR::WarningLogLine kProtectFailed("Login data: could not restrict the permissions of %.",
                                        "KRCB");

const char* const kSetAsideName = "LoginData.json.bad";

ZR::UniString PendingKey(const ZR::UniString& url) {
    return NormalizeServerUrl(url).FoldCase();
}

// A folder or file that can't be restricted is still used.
void Restrict(const IO::Location& location, mode_t mode) {
    if (IO::Sys::Chmod(location.ToPath().ToCString(), mode) != 0) {
        ZR::FastLogger::LogComposer composer;
        ZR::logger.Append(kProtectFailed, composer);
        composer.Append(location.ToDisplayText());
    }
}

}  // namespace

LoginDataStoreCache& LoginDataStoreCache::GetInstance() {
    static LoginDataStoreCache instance;
    return instance;
}

LoginDataStoreCache::FileStamp LoginDataStoreCache::StampOf(const IO::Location& file) {
    FileStamp stamp;
    IO::File f(file, IO::kNotFoundFail);
    if (f.GetStatus() != IO::kOk) return stamp;
    stamp.exists = true;
    // A stamp that can't be taken never matches, so the file is read again.
    if (f.GetChangeStamp(&stamp.change) != IO::kOk) stamp.known = false;
    return stamp;
}

IO::Location LoginDataStoreCache::GetFileLocation() const {
    IO::Location folder = KRCB::GetBaseDataFolder();
    return folder.IsEmpty() ? folder : folder + IO::Name(kFileName);
}

bool LoginDataStoreCache::RefreshLocked() {
    if (!KRCB::IsStarted()) return false;
    IO::Location folder = KRCB::GetBaseDataFolder();
    if (folder.IsEmpty()) return false;
    if (folder != mFolder) {
        mFolder = folder;
        mLoaded = false;
        mStamp = FileStamp();
        mData = LoginDataStore();
        mPendingNames.Clear();
        mDirty = false;
    }

    IO::Location file = mFolder + IO::Name(kFileName);
    // Stamp before reading: a write in between makes the next look read again.
    FileStamp stamp = StampOf(file);
    if (mLoaded && stamp == mStamp) return true;

    LoginDataStore data;
    if (stamp.exists) {
        std::string text;
        int status = IO::fileSystem.ReadWholeFile(file, &text);
        if (status != IO::kOk) {
            ZR::FastLogger::LogComposer composer;
            ZR::logger.Append(kReadFailed, composer);
            composer.Append(file.ToDisplayText()).Append(status);
            // Keep what we had and try again next time.
            mLoaded = true;
            mStamp.known = false;
            return true;
        }
        try {
            data = LoginDataStore::FromJson(text);
        } catch (const LoginDataStoreException& e) {
            // Keep the bytes for whoever wants to recover them; the next save
            // replaces the file.
            IO::Location aside = mFolder + IO::Name(kSetAsideName);
            IO::fileSystem.WriteFileAtomically(aside, text, 0600);
            Restrict(aside, 0600);
            ZR::FastLogger::LogComposer composer;
            ZR::logger.Append(kUnreadable, composer);
            composer.Append(file.ToDisplayText()).Append(kSetAsideName).Append(e.GetMessage());
        }
    }
    mData = std::move(data);
    mStamp = stamp;
    mLoaded = true;
    ApplyPendingLocked();
    return true;
}

void LoginDataStoreCache::ApplyPendingLocked() {
    for (const auto& [url, name] : mPendingNames)
        if (mData.ContainsServer(url)) mData.SetFriendlyName(url, name);
}

void LoginDataStoreCache::WriteLocked(const LoginDataStore& store) {
    int status = IO::fileSystem.CreateFolderTree(mFolder, 0700);
    if (status != IO::kOk)
        throw LoginDataStoreException(
            ZR::UniString::Format(
                "Failed to save the login data. The folder can't be made (status %d).", status),
            ZR_HERE, status);
    Restrict(mFolder, 0700);
    IO::Location file = mFolder + IO::Name(kFileName);
    status = IO::fileSystem.WriteFileAtomically(file, store.ToJson(), 0600);
    if (status != IO::kOk)
        throw LoginDataStoreException(
            ZR::UniString::Format(
                "Failed to save the login data. The file can't be written (status %d).", status),
            ZR_HERE, status);
    // An existing file keeps its mode through the rename; tokens need 0600.
    Restrict(file, 0600);
    mStamp = StampOf(file);
    mLoaded = true;
}

ZR::Ref<LoginDataStore> LoginDataStoreCache::GetLoginDataStoreCopy(int /*openMethod*/) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!RefreshLocked()) return ZR::Ref<LoginDataStore>();
    return ZR::Ref<LoginDataStore>::Make(mData);
}

bool LoginDataStoreCache::SaveToFile(const LoginDataStore& store) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!RefreshLocked()) return false;
    LoginDataStore data = store;
    for (const auto& [url, name] : mPendingNames)
        if (data.ContainsServer(url)) data.SetFriendlyName(url, name);
    WriteLocked(data);
    mData = std::move(data);
    mPendingNames.Clear();
    mDirty = false;
    return true;
}

void LoginDataStoreCache::CheckSave() {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!mDirty) return;
    // Re-read first, so that what another process wrote since survives.
    if (!RefreshLocked() || !mDirty) return;
    WriteLocked(mData);
    mPendingNames.Clear();
    mDirty = false;
}

void LoginDataStoreCache::UpdateFriendlyName(const ZR::UniString& url, const ZR::UniString& name,
                                             bool persist) {
    if (url.IsEmpty() || name.IsEmpty()) return;
    std::lock_guard<std::mutex> lock(mMutex);
    if (!RefreshLocked() || !mData.ContainsServer(url)) return;
    if (mData.GetFriendlyName(url) == name) return;
    mData.SetFriendlyName(url, name);
    if (persist) {
        mPendingNames.Set(PendingKey(url), name);
        mDirty = true;
    }
}

bool LoginDataStoreCache::GetFriendlyName(const ZR::UniString& url, ZR::UniString& name) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!RefreshLocked()) return false;
    const Server* server = mData.FindServer(url);
    if (!server || server->GetFriendlyName().IsEmpty()) return false;
    name = server->GetFriendlyName();
    return true;
}

bool LoginDataStoreCache::GetFullName(const ZR::UniString& url, const ZR::UniString& user,
                                      ZR::UniString& fullName) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (!RefreshLocked()) return false;
    const Server* server = mData.FindServer(url);
    const User* found = server ? server->FindUser(user) : nullptr;
    if (!found || found->GetFullName().IsEmpty()) return false;
    fullName = found->GetFullName();
    return true;
}

void LoginDataStoreCache::ResetForTesting() {
    std::lock_guard<std::mutex> lock(mMutex);
    mFolder.Clear();
    mLoaded = false;
    mStamp = FileStamp();
    mData = LoginDataStore();
    mPendingNames.Clear();
    mDirty = false;
}

}  // namespace KRCB::LoginDataStore
