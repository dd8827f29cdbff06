// krctl emulate SCENARIO members: opens the project as a host does, builds a
// ProjectMembers on the open manager and prints the tables its first fetch
// fills. The fetch runs on the object's own thread and comes back through
// this thread's message loop, so the command pumps the loop until the
// observer hears of it.

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Emulate.h"
#include "KRCB/Entities.h"
#include "KRClient/ClientProjectConnectionManager.h"
#include "KRClient/ProjectConnection.h"
#include "KRClient/ProjectConnectionBase.h"
#include "KRClient/ProjectConnectionProvider.h"
#include "KRClient/ProjectMembers.h"
#include "ZR/Exceptions.h"
#include "ZR/Internal/Printable.h"
#include "ZR/MessageLoop.h"

namespace krctl {

namespace {

// A fetch against the emulator takes milliseconds; this bound is for a
// server that never answers.
constexpr int kFetchTimeoutMs = 5000;

struct MembersArgs {
    ProjectArgs project;
};

struct Member {
    short userId = 0;
    std::string loginName, fullName, guid, color;
    std::vector<std::string> permissions;
};

class FirstChange : public KRC::ProjectMembersObserver {
public:
    bool heard = false;

protected:
    void ProjectMembersContentChanged() override { heard = true; }
};

// A permission id the mapper doesn't know is shown as its number.
std::string PermissionText(KRCB::PermissionID id) {
    try {
        return KRCB::Management::Entities::PermissionIDMapper::GetInstance()
            .GetPermissionString(id)
            .Std();
    } catch (const ZR::ZRException&) {
        return std::to_string(id);
    }
}

std::vector<Member> Collect(const KRC::ProjectMembers& members) {
    std::vector<Member> out;
    for (const auto& [userId, data] : members.GetUserDataTable()) {
        Member member;
        member.userId = userId;
        member.loginName = data->GetLoginName().Std();
        member.fullName = data->GetFullName().Std();
        member.guid = data->GetUserGuid().ToString().Std();
        member.color = data->GetUserColor().ToString().Std();
        const KRCB::UserAttributes* attributes = nullptr;
        if (members.GetUserAttributesFromId(userId, &attributes)) {
            // A hash set has no order of its own; ids give a stable one.
            std::vector<KRCB::PermissionID> ids(attributes->GetPermissions().begin(),
                                                attributes->GetPermissions().end());
            std::sort(ids.begin(), ids.end());
            for (KRCB::PermissionID id : ids) member.permissions.push_back(PermissionText(id));
        }
        out.push_back(std::move(member));
    }
    return out;
}

void Print(const GlobalOptions& options, const std::vector<Member>& members) {
    if (options.json) {
        Json list = Json::array();
        for (const Member& m : members)
            list.push_back({{"userId", m.userId},
                            {"loginName", m.loginName},
                            {"fullName", m.fullName},
                            {"guid", m.guid},
                            {"color", m.color},
                            {"permissions", m.permissions}});
        PrintJson(list);
        return;
    }
    if (members.empty()) std::printf("no members\n");
    for (const Member& m : members) {
        std::string permissions;
        for (const std::string& p : m.permissions)
            permissions += (permissions.empty() ? "" : ",") + p;
        std::printf("member %d %s \"%s\" guid %s color %s permissions %s\n", m.userId,
                    ZR::Internal::Printable(m.loginName).c_str(),
                    ZR::Internal::Printable(m.fullName).c_str(), m.guid.c_str(), m.color.c_str(),
                    permissions.empty() ? "(none)" : permissions.c_str());
    }
}

int RunMembers(const GlobalOptions& options, const MembersArgs& args, const std::string& scenario,
               bool update) {
    std::unique_ptr<Emulator::Service> service = LoadScenario(scenario);
    const IO::Location location = ProjectLocation(*service, args.project);
    std::vector<Member> listed;
    {
        Installed installed(*service);
        StartRegistry(options);
        RememberLogin(*service, args.project);
        // Before the members: its notifier needs a loop to land on.
        ZR::MessageLoop::Scope loop;
        KRC::ClientProjectConnectionManager manager(location, true);
        ZR::Ref<KRC::ReadProjectConnection> connection(
            new KRC::ReadProjectConnection(&manager, true));
        const auto result = connection->GetCheckResult();
        if (result != KRC::ProjectConnectionBase::CheckOnline)
            throw Failure(std::string("the project did not open: ") +
                          KRC::ProjectConnectionBase::GetCheckResultName(result));
        // The fetch asks the project server under the manager's session.
        if (manager.GetSessionId().IsEmpty() || manager.GetProjectId().IsEmpty())
            throw Failure("the project opened without a session or project id");
        KRCB::SignalClient* signals = manager.GetSignalClient();
        if (!signals) throw Failure("the project's connection has no signal client");

        KRC::ConnectionManagerBasedConnectionProvider provider(&manager);
        KRC::ProjectMembers members(*signals, &manager, &provider);
        FirstChange observer;
        members.Attach(observer);
        members.Init();
        const bool heard =
            ZR::MessageLoop::RunUntil([&observer] { return observer.heard; }, kFetchTimeoutMs);
        members.Stop();
        if (!heard)
            throw Failure("no member list came from the server within " +
                          std::to_string(kFetchTimeoutMs / 1000) + " seconds");
        listed = Collect(members);
    }
    if (update) service->SaveScenarioFile(scenario);
    Print(options, listed);
    return kExitDone;
}

}  // namespace

void AddEmulateMembersCommand(CLI::App* emulate, const GlobalOptions& options, Action* action,
                              const std::string& scenario, const bool& update) {
    auto args = std::make_shared<MembersArgs>();
    CLI::App* members = emulate->add_subcommand(
        "members",
        "open the project as a host does and print its members as ProjectMembers fetches them: "
        "short id, login name, full name, guid, colour and permissions (with --json the keys "
        "userId, loginName, fullName, guid, color, permissions). Exit 0 with the list, 1 if the "
        "project does not open or no list comes within 5 seconds");
    AddProjectOptions(members, args->project);
    members->callback([&options, action, args, &scenario, &update] {
        *action = [&options, args, &scenario, &update] {
            return RunMembers(options, *args, scenario, update);
        };
    });
}

}  // namespace krctl
