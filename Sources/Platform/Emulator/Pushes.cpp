// The server's push channel: signals, presence and the online list, sent to
// the base client's signal clients on a thread of the emulator's own.

#include <chrono>

#include "Emulator/Internal/State.h"

namespace Emulator::Internal {

using KRCB::Internal::Push;

Deliverer::~Deliverer() {
    Stop();
}

void Deliverer::Queue(Push push) {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mStopped) return;
    mQueue.push_back(std::move(push));
    if (!mThread.joinable()) mThread = std::thread([this] { Run(); });
    mChanged.notify_all();
}

bool Deliverer::WaitIdle(int timeoutMs) {
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [this] { return mStopped || (mQueue.empty() && !mBusy); });
}

void Deliverer::Stop() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(mMutex);
        mStopped = true;
        mQueue.clear();
        thread = std::move(mThread);
        mChanged.notify_all();
    }
    // A push under way may be in a client that calls the service: no lock here.
    if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) thread.join();
    if (thread.joinable()) thread.detach();
}

void Deliverer::Run() {
    std::unique_lock<std::mutex> lock(mMutex);
    while (true) {
        mChanged.wait(lock, [this] { return mStopped || !mQueue.empty(); });
        if (mStopped) break;
        Push push = std::move(mQueue.front());
        mQueue.pop_front();
        mBusy = true;
        lock.unlock();
        KRCB::Internal::Deliver(push);
        lock.lock();
        mBusy = false;
        mChanged.notify_all();
    }
    mBusy = false;
    mChanged.notify_all();
}

void State::PushSignal(Server& server, const std::string& projectId, const std::string& clientId,
                       const std::string& sender, int id, const std::string& text) {
    if (!installed || projectId.empty()) return;
    for (const SignalClientEntry& client : server.clients) {
        if (client.id == clientId || client.projectId != projectId) continue;
        Push push;
        push.kind = Push::Kind::Signal;
        push.clientId = client.id;
        push.signalId = id;
        push.text = text;
        push.sender = sender;
        deliverer->Queue(std::move(push));
    }
}

void State::PushPresence(Server& server, const std::string& user, const std::string& clientId,
                         int state) {
    if (!installed) return;
    for (const SignalClientEntry& client : server.clients) {
        if (client.id == clientId || !SameText(client.user, user)) continue;
        Push push;
        push.kind = Push::Kind::PresenceState;
        push.clientId = client.id;
        push.presenceState = state;
        deliverer->Queue(std::move(push));
    }
}

void State::PushOnlineUsers(Server& server, const std::string& clientId) {
    if (!installed) return;
    for (const SignalClientEntry& client : server.clients) {
        if (client.id == clientId) continue;
        Push push;
        push.kind = Push::Kind::OnlineUsers;
        push.clientId = client.id;
        deliverer->Queue(std::move(push));
    }
}

void State::MembersChanged(Server& server, const Project& project, const std::string& login) {
    if (memberSignals) PushSignal(server, project.id, "", "", 1, login);
}

}  // namespace Emulator::Internal
