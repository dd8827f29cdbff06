// The server side of the transport: counts, gates and scripted faults, then
// the handler of the operation, found in a table made from the operations'
// list.
#include <algorithm>
#include <string_view>
#include <unordered_map>

#include "Emulator/Internal/Handlers.h"
#include "KRCB/Paths.h"

namespace Emulator::Internal {

namespace {

using KRCB::Internal::OpArea;

struct Handler {
    Answer (*handle)(CallContext&);
    OpArea area;
};

const std::unordered_map<std::string_view, Handler>& Handlers() {
    static const std::unordered_map<std::string_view, Handler> table = {
#define EMULATOR_HANDLER_ENTRY(name, area) {#name, Handler{&Handle##name, OpArea::area}},
        KRCB_OPERATIONS(EMULATOR_HANDLER_ENTRY)
#undef EMULATOR_HANDLER_ENTRY
    };
    return table;
}

bool InArea(const std::string& op, OpArea area) {
    const KRCB::Internal::OperationInfo* info = KRCB::Internal::FindOperation(op);
    return info && info->area == area;
}

}  // namespace

Reply Ok(Data result) {
    Reply reply;
    reply.result = std::move(result);
    return reply;
}

Reply Refuse(FK kind, const std::string& message) {
    Reply reply;
    reply.fault = KRCB::Internal::Fault{kind, message};
    return reply;
}

void Throw(FK kind, const std::string& message) {
    throw Refusal{Refuse(kind, message)};
}

KRCB::Internal::Fault ToTransportFault(const Fault& fault) {
    KRCB::Internal::Fault out;
    out.kind = fault.kind;
    out.message = fault.message;
    out.major = fault.major;
    out.minor = fault.minor;
    out.clientMajor = fault.clientMajor;
    out.clientMinor = fault.clientMinor;
    out.handshakeDepth = fault.handshakeDepth;
    return out;
}

bool IsSignalOperation(const std::string& op) {
    return InArea(op, OpArea::Signals);
}

bool IsLoginOperation(const std::string& op) {
    return InArea(op, OpArea::Logins);
}

std::string CallContext::Text(const char* key) const {
    auto it = params.find(key);
    return it != params.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int CallContext::Number(const char* key, int otherwise) const {
    auto it = params.find(key);
    return it != params.end() && it->is_number_integer() ? it->get<int>() : otherwise;
}

bool CallContext::Flag(const char* key) const {
    auto it = params.find(key);
    return it != params.end() && it->is_boolean() && it->get<bool>();
}

Project& CallContext::RequireProject() const {
    Project* project = state.FindProjectById(server, Text("projectId"));
    if (!project) Throw(FK::EntityNotFound, "No project of id " + Text("projectId"));
    return *project;
}

Session& CallContext::RequireSession(Project& project) const {
    const std::string id = Text("sessionId");
    for (Session& session : project.sessions)
        if (session.id == id) return session;
    Throw(FK::EntityNotFound, "No session " + id + " in " + project.path);
}

UserSummary Summarize(const User& user) {
    return UserSummary{user.spec.id,   user.spec.login, user.spec.fullName,
                       user.spec.guid, user.spec.color, !user.spec.picture.empty()};
}

Data UserData(const UserSummary& user) {
    return Data{{"id", user.id},     {"login", user.login}, {"fullName", user.fullName},
                {"guid", user.guid}, {"color", user.color}, {"hasImage", user.hasImage}};
}

Reply State::Call(const Request& request) {
    std::shared_ptr<GateImpl> gate;
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++counts[request.op];
        if (InArea(request.op, OpArea::Mail)) RecordMailRequest(request);
        auto it = gates.find(request.op);
        if (it != gates.end() && !it->second.empty()) {
            gate = it->second.front();
            it->second.pop_front();
        }
    }
    // A blocked call holds no lock: the test that releases it may call in.
    if (gate) {
        {
            std::lock_guard<std::mutex> lock(mutex);
            held.push_back(&request);
        }
        const bool released = gate->Hold();
        std::lock_guard<std::mutex> lock(mutex);
        held.erase(std::find(held.begin(), held.end(), &request));
        if (!released) return Refuse(FK::InterruptedIO, "The call was interrupted");
    }

    std::function<Reply()> later;
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (auto it = faults.find(request.op); it != faults.end()) {
            std::vector<FaultRule>& rules = it->second;
            std::optional<Fault> fired;
            for (auto rule = rules.begin(); rule != rules.end();) {
                if (--rule->countdown == 0) {
                    if (!fired) fired = rule->fault;
                    rule = rules.erase(rule);
                } else {
                    ++rule;
                }
            }
            if (fired) {
                Reply reply;
                reply.fault = ToTransportFault(*fired);
                return reply;
            }
        }
        if (auto it = permanentFaults.find(request.op); it != permanentFaults.end()) {
            Reply reply;
            reply.fault = ToTransportFault(it->second);
            return reply;
        }
        Server* server = FindServer(request.serverUrl);
        if (!server || server->down)
            return Refuse(FK::ConnectionFailed, "The server " +
                                                    KRCB::WithoutUserInfo(request.serverUrl).Std() +
                                                    " can't be reached");
        auto handler = Handlers().find(request.op);
        if (handler == Handlers().end())
            return Refuse(FK::PortalServerClient, "Unknown operation " + request.op);

        CallContext call{*this, *server, request, request.params};
        try {
            if (handler->second.area == OpArea::Signals) {
                call.user = FindUser(*server, request.user);
                if (!call.user)
                    return Refuse(FK::EntityNotFound, "No user \"" + request.user + "\"");
            } else if (handler->second.area != OpArea::Logins) {
                // Everything else runs under a login the server gave.
                auto login = server->logins.find(request.loginId);
                call.user =
                    login == server->logins.end() ? nullptr : FindUser(*server, login->second);
                if (!call.user || !SameText(call.user->spec.login, request.user))
                    return Refuse(FK::SessionRequired, "No session for this login");
            }
            Answer answer = handler->second.handle(call);
            if (!answer.later) return std::move(answer.reply);
            later = std::move(answer.later);
        } catch (Refusal& refusal) {
            return std::move(refusal.reply);
        }
    }
    return later();
}

}  // namespace Emulator::Internal
