#include "KRCB/SignalClient.h"

#include <atomic>
#include <mutex>
#include <string>
#include <unordered_map>

#include "KRCB/Internal/Transport.h"
#include "Kerrow/Exceptions.h"

namespace KRCB {

SignalObserver::~SignalObserver() = default;
bool SignalObserver::CheckSignalType(const SignalId&) const {
    return true;
}
void SignalObserver::PrimarySignalReceived(SignalClient* client, const Signal& signal) {
    if (CheckSignalType(signal.GetId())) SignalReceived(client, signal);
}
void SignalObserver::SignalReceived(SignalClient*, const Signal&) {}

PresenceObserver::~PresenceObserver() = default;
void PresenceObserver::PrimaryPresenceStateChanged(const PresenceState& state) {
    PresenceStateChanged(state);
}
void PresenceObserver::PresenceStateChanged(const PresenceState&) {}
void PresenceObserver::OnlineUserListChanged() {}

namespace Internal {

namespace {

template <typename Observer>
class ObserverList : public ZR::TS::EventSource {
public:
    ~ObserverList() override { DetachObservers(); }
    template <typename F>
    void Send(F&& f) {
        ForEachObserver([&](ZR::TS::EventObserver* o) { f(static_cast<Observer*>(o)); });
    }
};

// Where pushes find their client. The receiver's lock is held for a whole
// delivery, so a client being destroyed waits for the one under way and no
// push reaches it afterwards.
struct Receiver {
    std::mutex mutex;
    SignalClient* client = nullptr;
};

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::unordered_map<std::string, std::shared_ptr<Receiver>>& Registry() {
    static std::unordered_map<std::string, std::shared_ptr<Receiver>> registry;
    return registry;
}

}  // namespace

// The parts of a signal client that change after it is made, under one lock,
// and the last known answers for when the server can't be asked.
class SignalChannel {
public:
    mutable std::mutex mutex;
    ZR::UniString refreshToken;  // never logged
    ZR::UniString projectId;
    ZR::UniString clientId;
    IO::Location location;
    std::mutex reconnectMutex;
    mutable std::atomic<PresenceState> presence{0};
    mutable std::atomic<bool> forcedOffline{false};

    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>();
    ObserverList<SignalObserver> signalObservers;
    ObserverList<PresenceObserver> presenceObservers;

    void Register(const std::string& clientId) {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        Registry()[clientId] = receiver;
    }
    static void Unregister(const std::string& clientId) {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        Registry().erase(clientId);
    }

    static void Dispatch(SignalClient& client, const Push& push) {
        SignalChannel& channel = *client.mChannel;
        switch (push.kind) {
            case Push::Kind::Signal: {
                const Signal signal(push.signalId, ZR::UniString(push.text),
                                    ZR::UniString(push.sender));
                channel.signalObservers.Send(
                    [&](SignalObserver* o) { o->PrimarySignalReceived(&client, signal); });
                break;
            }
            case Push::Kind::PresenceState:
                channel.presence = push.presenceState;
                channel.presenceObservers.Send([&](PresenceObserver* o) {
                    o->PrimaryPresenceStateChanged(push.presenceState);
                });
                break;
            case Push::Kind::OnlineUsers:
                channel.presenceObservers.Send(
                    [](PresenceObserver* o) { o->OnlineUserListChanged(); });
                break;
        }
    }
};

void Deliver(const Push& push) {
    std::shared_ptr<Receiver> receiver;
    {
        std::lock_guard<std::mutex> lock(RegistryMutex());
        auto it = Registry().find(push.clientId);
        if (it == Registry().end()) return;
        receiver = it->second;
    }
    std::lock_guard<std::mutex> lock(receiver->mutex);
    if (!receiver->client) return;
    try {
        SignalChannel::Dispatch(*receiver->client, push);
    } catch (const ZR::ZRException& e) {
        // One failing observer must not end the delivery of the others' pushes.
        Kerrow::Common::DebugPrintEx(e);
    } catch (...) {
    }
}

}  // namespace Internal

namespace {

Internal::Request MakeRequest(const SignalClient& client, const char* op,
                              Internal::Data params = Internal::Data::object()) {
    Internal::Request request;
    request.serverUrl = client.GetServerUrl().Std();
    request.op = op;
    request.user = client.GetUserName().Std();
    params["clientId"] = client.GetClientId().Std();
    request.params = std::move(params);
    return request;
}

// The channel's calls never throw: a signal that can't be sent is lost, as
// it would be on a broken connection.
bool TryCall(const Internal::Request& request, Internal::Data* result = nullptr) {
    try {
        Internal::Data data = Internal::Call(request);
        if (result) *result = std::move(data);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace

SignalClient::SignalClient(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                           const ZR::UniString& refreshToken)
    : mServerUrl(serverUrl), mUserName(userName), mChannel(new Internal::SignalChannel) {
    mChannel->refreshToken = refreshToken;
    // Set once, before any push can find the client; cleared by the destructor.
    mChannel->receiver->client = this;
    Reconnect();
}

SignalClient::~SignalClient() {
    {
        std::lock_guard<std::mutex> lock(mChannel->receiver->mutex);
        mChannel->receiver->client = nullptr;
    }
    const ZR::UniString clientId = GetClientId();
    if (!clientId.IsEmpty()) {
        Internal::SignalChannel::Unregister(clientId.Std());
        TryCall(MakeRequest(*this, Internal::Op::kSignalDisconnect));
    }
}

void SignalClient::Attach(SignalObserver& observer) {
    mChannel->signalObservers.Attach(observer);
}
void SignalClient::Detach(SignalObserver& observer) {
    mChannel->signalObservers.Detach(observer);
}
void SignalClient::Attach(PresenceObserver& observer) {
    mChannel->presenceObservers.Attach(observer);
}
void SignalClient::Detach(PresenceObserver& observer) {
    mChannel->presenceObservers.Detach(observer);
}

void SignalClient::Reconnect() {
    // One registration at a time: checks on several threads may ask for one.
    std::lock_guard<std::mutex> reconnecting(mChannel->reconnectMutex);
    ZR::UniString token, projectId, oldId;
    {
        std::lock_guard<std::mutex> lock(mChannel->mutex);
        token = mChannel->refreshToken;
        projectId = mChannel->projectId;
        oldId = mChannel->clientId;
    }
    if (!oldId.IsEmpty()) {
        Internal::SignalChannel::Unregister(oldId.Std());
        TryCall(MakeRequest(*this, Internal::Op::kSignalDisconnect));
    }
    SetClientId(ZR::UniString());
    Internal::Data result;
    if (!TryCall(MakeRequest(*this, Internal::Op::kSignalConnect, {{"refreshToken", token.Std()}}),
                 &result))
        return;
    ZR::UniString newId;
    if (result.is_object() && result.contains("clientId") && result["clientId"].is_string())
        newId = ZR::UniString(result["clientId"].get<std::string>());
    SetClientId(newId);
    if (!newId.IsEmpty()) mChannel->Register(newId.Std());
    if (!projectId.IsEmpty()) JoinProject(projectId);
}

ZR::UniString SignalClient::GetClientId() const {
    std::lock_guard<std::mutex> lock(mChannel->mutex);
    return mChannel->clientId;
}

void SignalClient::SetClientId(const ZR::UniString& clientId) {
    std::lock_guard<std::mutex> lock(mChannel->mutex);
    mChannel->clientId = clientId;
}

void SignalClient::JoinProject(const ZR::UniString& projectId) {
    {
        std::lock_guard<std::mutex> lock(mChannel->mutex);
        mChannel->projectId = projectId;
    }
    TryCall(MakeRequest(*this, Internal::Op::kSignalJoinProject, {{"projectId", projectId.Std()}}));
}

ZR::UniString SignalClient::GetProjectId() const {
    std::lock_guard<std::mutex> lock(mChannel->mutex);
    return mChannel->projectId;
}

IO::Location SignalClient::GetProjectLocation() const {
    std::lock_guard<std::mutex> lock(mChannel->mutex);
    return mChannel->location;
}

void SignalClient::SetProjectLocation(const IO::Location& location) {
    std::lock_guard<std::mutex> lock(mChannel->mutex);
    mChannel->location = location;
    if (location.IsServer()) mChannel->refreshToken = location.GetPassword();
}

void SignalClient::SendInternalSignal(const SignalId& signal, const ZR::UniString& text) {
    TryCall(
        MakeRequest(*this, Internal::Op::kSendInternalSignal,
                    {{"projectId", GetProjectId().Std()}, {"id", signal}, {"text", text.Std()}}));
}

void SignalClient::SendSignal(const SignalId& signal, const ZR::UniString& text) {
    TryCall(
        MakeRequest(*this, Internal::Op::kSendSignal,
                    {{"projectId", GetProjectId().Std()}, {"id", signal}, {"text", text.Std()}}));
}

PresenceState SignalClient::GetPresenceState() const {
    Internal::Data result;
    if (TryCall(MakeRequest(*this, Internal::Op::kGetPresenceState), &result) &&
        result.is_number_integer())
        mChannel->presence = result.get<PresenceState>();
    return mChannel->presence;
}

void SignalClient::SetPresenceState(PresenceState state) {
    mChannel->presence = state;
    TryCall(MakeRequest(*this, Internal::Op::kSetPresenceState, {{"state", state}}));
}

bool SignalClient::IsOnline() const {
    if (GetClientId().IsEmpty()) return false;
    Internal::Data result;
    return TryCall(MakeRequest(*this, Internal::Op::kIsOnline), &result) && result.is_boolean() &&
           result.get<bool>();
}

bool SignalClient::IsForcedOffline() const {
    Internal::Data result;
    if (TryCall(MakeRequest(*this, Internal::Op::kIsForcedOffline), &result) && result.is_boolean())
        mChannel->forcedOffline = result.get<bool>();
    return mChannel->forcedOffline;
}

void SignalClient::SetForcedOffline(bool offline) {
    mChannel->forcedOffline = offline;
    TryCall(MakeRequest(*this, Internal::Op::kSetForcedOffline, {{"offline", offline}}));
}

void SignalClient::GetOnlineUsers(ZR::Array<ZR::UniString>& users) const {
    Internal::Data result;
    if (!TryCall(MakeRequest(*this, Internal::Op::kGetOnlineUsers), &result) || !result.is_array())
        return;
    for (const Internal::Data& user : result)
        if (user.is_string()) users.Add(ZR::UniString(user.get<std::string>()));
}

bool SignalClient::IsOnline(const ZR::UniString& userName) const {
    ZR::Array<ZR::UniString> users;
    GetOnlineUsers(users);
    for (const ZR::UniString& user : users)
        if (user.IsEqual(userName, ZR::kIgnoreCase)) return true;
    return false;
}

}  // namespace KRCB
