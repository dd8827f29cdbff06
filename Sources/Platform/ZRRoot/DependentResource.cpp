#include "ZR/DependentResource.h"

#include <algorithm>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "ZR/Thread.h"

namespace ZR {

struct DependentResource::Token {
    std::mutex mutex;
    Condition idle;
    bool alive = true;
    std::vector<std::thread::id> running;  // threads inside an Execute on the resource
};

namespace {

// Live resources by address. A task finds its resource's token here instead
// of through the pointer, so a task built on a resource that is already gone
// never reads it.
struct Registry {
    std::mutex mutex;
    std::unordered_map<const DependentResource*, std::shared_ptr<DependentResource::Token>> tokens;
};

Registry& GetRegistry() {
    // Never destroyed: resources with static storage may outlive it otherwise.
    static Registry* registry = new Registry;
    return *registry;
}

std::shared_ptr<DependentResource::Token> Register(const DependentResource* resource) {
    auto token = std::make_shared<DependentResource::Token>();
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.tokens[resource] = token;
    return token;
}

}  // namespace

DependentResource::DependentResource() : mToken(Register(this)) {}

DependentResource::DependentResource(const DependentResource&) : mToken(Register(this)) {}

DependentResource::~DependentResource() {
    ReleaseDependents();
}

void DependentResource::ReleaseDependents() noexcept {
    {
        Registry& registry = GetRegistry();
        std::lock_guard<std::mutex> lock(registry.mutex);
        auto it = registry.tokens.find(this);
        if (it == registry.tokens.end() || it->second != mToken) return;  // released before
        registry.tokens.erase(it);
    }
    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mToken->mutex);
    mToken->alive = false;
    mToken->idle.Wait(lock, [&] {
        return std::all_of(mToken->running.begin(), mToken->running.end(),
                           [&](std::thread::id id) { return id == self; });
    });
}

DependentTask::DependentTask(DependentResource* resource) : mResource(resource) {
    if (!resource) return;
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto it = registry.tokens.find(resource);
    if (it != registry.tokens.end()) mToken = it->second;
}

void DependentTask::Run() {
    if (!mToken) return;
    const std::thread::id self = std::this_thread::get_id();
    {
        std::lock_guard<std::mutex> lock(mToken->mutex);
        if (!mToken->alive) return;
        mToken->running.push_back(self);
    }
    struct Leave {
        DependentResource::Token& token;
        std::thread::id self;
        ~Leave() {
            std::lock_guard<std::mutex> lock(token.mutex);
            token.running.erase(std::find(token.running.begin(), token.running.end(), self));
            if (!token.alive) token.idle.NotifyAll();
        }
    } leave{*mToken, self};
    Execute(mResource);
}

}  // namespace ZR
