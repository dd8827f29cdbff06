#include "KRClient/UserInterface/LocalCache/CacheProject.h"

#include <limits>

#include "KRCB/Paths.h"

namespace KRC::UI::LocalCache {

namespace {

// Reads "%u.%u.%u / %u" as scanf would: a blank in the pattern takes any run
// of blanks, a number may follow blanks. Stops at the first mismatch, and at
// a number too large for its field, which keeps 0; no error either way.
void ScanVersion(const std::string& text, unsigned int* out[4]) {
    static const char kPattern[] = "#.#.# / #";
    std::size_t at = 0;
    int field = 0;
    auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    for (const char* p = kPattern; *p; ++p) {
        if (*p == ' ') {
            while (at < text.size() && isBlank(text[at])) ++at;
        } else if (*p == '#') {
            while (at < text.size() && isBlank(text[at])) ++at;
            if (at >= text.size() || text[at] < '0' || text[at] > '9') return;
            unsigned long long value = 0;
            for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
                value = value * 10 + static_cast<unsigned>(text[at] - '0');
                if (value > std::numeric_limits<unsigned int>::max()) return;
            }
            *out[field++] = static_cast<unsigned int>(value);
        } else {
            if (at >= text.size() || text[at] != *p) return;
            ++at;
        }
    }
}

}  // namespace

CacheProject::CacheProject(const ProjectInfo& info, const ZR::Ref<Project>& existing)
    : mProjectInfo(info) {
    const auto* wrapper = dynamic_cast<const CacheProject*>(existing.Get());
    mServerProject = wrapper ? wrapper->mServerProject : existing;
    ParseVersion();
}

CacheProject::CacheProject(const ProjectInfo& info, const ZR::UniString& parentFolderId)
    : mProjectInfo(info), mParentFolderId(parentFolderId) {
    ParseVersion();
}

void CacheProject::ParseVersion() {
    std::string text = mProjectInfo.version.Std();
    // A remark in parentheses may stand anywhere; it is cut out, not parsed.
    const std::size_t open = text.find('(');
    if (open != std::string::npos) {
        const std::size_t close = text.find(')');
        text = close == std::string::npos || close < open
                   ? text.substr(0, open)
                   : text.substr(0, open) + text.substr(close + 1);
    }
    unsigned int* fields[4] = {&mMajorVersion, &mMinorVersion, &mThirdVersionNumber, &mBuildNumber};
    ScanVersion(text, fields);
}

#define KRC_FORWARD(call, local) return mServerProject ? mServerProject->call : (local)

ZR::UniString CacheProject::GetId() const {
    KRC_FORWARD(GetId(), mProjectInfo.id);
}
ZR::UniString CacheProject::GetName() const {
    KRC_FORWARD(GetName(), KRCB::Management::GetProjectName(mProjectInfo.path));
}
ZR::UniString CacheProject::GetPath() const {
    KRC_FORWARD(GetPath(), mProjectInfo.path);
}
ZR::UniString CacheProject::GetParentFolderId() const {
    KRC_FORWARD(GetParentFolderId(), mParentFolderId);
}
ZR::UniString CacheProject::GetModelServerId() const {
    KRC_FORWARD(GetModelServerId(), ZR::UniString());
}
CacheProject::ResourceStatus::Status CacheProject::GetState() const {
    KRC_FORWARD(GetState(), ResourceStatus::Available);
}
CacheProject::SyncStatus::Status CacheProject::GetSyncState() const {
    KRC_FORWARD(GetSyncState(), SyncStatus::InSync);
}
CacheProject::HostStatus::Status CacheProject::GetHostState() const {
    KRC_FORWARD(GetHostState(), HostStatus::Hosted);
}
CacheProject::VisibilityStatus::Status CacheProject::GetVisibilityState() const {
    KRC_FORWARD(GetVisibilityState(), VisibilityStatus::Visible);
}
ZR::UniString CacheProject::GetModelServerPath() const {
    KRC_FORWARD(GetModelServerPath(), ZR::UniString());
}
int CacheProject::GetModifiedTimeUtc() const {
    KRC_FORWARD(GetModifiedTimeUtc(), mProjectInfo.modifiedTimeUtc);
}
std::uint64_t CacheProject::GetSize() const {
    KRC_FORWARD(GetSize(), mProjectInfo.size);
}
void CacheProject::GetJoinedUsers(ZR::HashSet<ZR::UniString>& users) const {
    if (mServerProject) mServerProject->GetJoinedUsers(users);
}
bool CacheProject::IsUserJoined(const ZR::UniString& userName) const {
    KRC_FORWARD(IsUserJoined(userName), false);
}
ZR::UniString CacheProject::GetProjectVersion() const {
    KRC_FORWARD(GetProjectVersion(), mProjectInfo.version);
}
unsigned int CacheProject::GetProjectMajorVersion() const {
    KRC_FORWARD(GetProjectMajorVersion(), mMajorVersion);
}
unsigned int CacheProject::GetProjectMinorVersion() const {
    KRC_FORWARD(GetProjectMinorVersion(), mMinorVersion);
}
unsigned int CacheProject::GetProjectBuildNumber() const {
    KRC_FORWARD(GetProjectBuildNumber(), mBuildNumber);
}
bool CacheProject::IsCompatible() const {
    KRC_FORWARD(IsCompatible(), Project::IsCompatible(mMajorVersion, mMinorVersion, mBuildNumber));
}
bool CacheProject::IsReadable() const {
    KRC_FORWARD(IsReadable(), Project::IsReadable(mMajorVersion, mMinorVersion, mBuildNumber));
}
bool CacheProject::IsSameVersion() const {
    KRC_FORWARD(IsSameVersion(), Project::IsSameVersion(mMajorVersion));
}

#undef KRC_FORWARD

}  // namespace KRC::UI::LocalCache
