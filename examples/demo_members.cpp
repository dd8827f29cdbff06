// The demo's project members: the host builds a ProjectMembers for the open
// project; the list comes from the server on a thread of the object's own and
// lands on the message loop, where the host's observer prints it. A member
// who joins on the server later arrives the same way, after the server's
// "members changed" signal.

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "Emulator/Service.h"
#include "KRCB/Entities.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/ProjectConnectionProvider.h"
#include "KRClient/ProjectMembers.h"
#include "ZR/MessageLoop.h"

namespace {

// Ample for the emulator; a demo must not hang on a list that never comes.
constexpr int kListTimeoutMs = 5000;

// The host's member list: it reads the tables again at each change.
class MemberList : public KRC::ProjectMembersObserver {
public:
    explicit MemberList(const KRC::ProjectMembers& members) : mMembers(members) {}

    int changes = 0;

protected:
    void ProjectMembersContentChanged() override {
        ++changes;
        std::vector<short> ids;
        for (const auto& entry : mMembers.GetUserDataTable()) ids.push_back(entry.first);
        std::sort(ids.begin(), ids.end());
        std::printf("     [members] %zu members\n", ids.size());
        for (short id : ids) {
            const KRC::UserData* data = *mMembers.GetUserDataTable().Find(id);
            std::printf("       %2d %-6s %-12s %s  %s\n", id, data->GetLoginName().ToCString(),
                        data->GetFullName().ToCString(),
                        data->GetUserColor().ToString().ToCString(), Permissions(id).c_str());
        }
    }

private:
    std::string Permissions(short id) const {
        const KRCB::UserAttributes* attributes = nullptr;
        if (!mMembers.GetUserAttributesFromId(id, &attributes)) return "-";
        std::vector<KRCB::PermissionID> ids(attributes->GetPermissions().begin(),
                                            attributes->GetPermissions().end());
        std::sort(ids.begin(), ids.end());
        std::string text;
        for (KRCB::PermissionID permission : ids) {
            text += text.empty() ? "" : ", ";
            text += KRCB::Management::Entities::PermissionIDMapper::GetInstance()
                        .GetPermissionString(permission)
                        .Std();
        }
        return text.empty() ? "-" : text;
    }

    const KRC::ProjectMembers& mMembers;
};

// Pumps the loop until the observer heard of the nth list.
void WaitForList(const MemberList& list, int nth) {
    if (!ZR::MessageLoop::RunUntil([&list, nth] { return list.changes >= nth; }, kListTimeoutMs))
        std::printf("     (no member list within %d seconds)\n", kListTimeoutMs / 1000);
}

}  // namespace

// The project is open on manager; its members are shown, then one joins on
// the server. The caller's thread has the message loop attached.
void RunMembersDemo(Emulator::Service& service, KRC::ClientProjectConnectionManager& manager,
                    const char* server, const char* path) {
    std::printf(
        "   The host builds the project's members; the list is fetched on a thread of "
        "its own\n   and arrives on the message loop.\n");
    KRC::ConnectionManagerBasedConnectionProvider provider(&manager);
    KRC::ProjectMembers members(*manager.GetSignalClient(), &manager, &provider);
    MemberList list(members);
    members.Attach(list);
    members.Init();
    WaitForList(list, 1);

    std::printf(
        "   Carla joins the project on the server; its signal reaches DESK-ANNA on the\n"
        "   emulator's delivery thread, and the list is fetched again.\n");
    service.AddMember(server, path, {"carla", 0});
    WaitForList(list, 2);
    // Before the manager and its signal client go.
    members.Stop();
}
