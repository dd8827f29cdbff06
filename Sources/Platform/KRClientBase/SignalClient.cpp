#include "KRCB/SignalClient.h"

#include <atomic>
#include <mutex>

#include "KRCB/Internal/Transport.h"

namespace KRCB {
namespace Internal {

// The parts of a signal client that change after it is made, under one lock,
// and the last known answers for when the server can't be asked.
class SignalChannel {
public:
    mutable std::mutex mutex;
    ZR::UniString refreshToken;  // never logged
    ZR::UniString projectId;
    IO::Location location;
    mutable std::atomic<PresenceState> presence{0};
    mutable std::atomic<bool> forcedOffline{false};
};

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
    Reconnect();
}

SignalClient::~SignalClient() {
    if (!mClientId.IsEmpty()) TryCall(MakeRequest(*this, Internal::Op::kSignalDisconnect));
}

void SignalClient::Reconnect() {
    ZR::UniString token, projectId;
    {
        std::lock_guard<std::mutex> lock(mChannel->mutex);
        token = mChannel->refreshToken;
        projectId = mChannel->projectId;
    }
    if (!mClientId.IsEmpty()) TryCall(MakeRequest(*this, Internal::Op::kSignalDisconnect));
    mClientId.Clear();
    Internal::Data result;
    if (!TryCall(MakeRequest(*this, Internal::Op::kSignalConnect, {{"refreshToken", token.Std()}}),
                 &result))
        return;
    if (result.is_object() && result.contains("clientId") && result["clientId"].is_string())
        mClientId = ZR::UniString(result["clientId"].get<std::string>());
    if (!projectId.IsEmpty()) JoinProject(projectId);
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
    if (mClientId.IsEmpty()) return false;
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

}  // namespace KRCB
