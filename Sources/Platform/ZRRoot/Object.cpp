#include "ZR/Object.h"

#include <mutex>
#include <string>
#include <unordered_map>

namespace ZR {

namespace {

struct Registry {
    std::mutex mutex;
    std::unordered_map<std::string, const ClassInfo*> byName;
};

// Never destroyed: class infos of other objects may unregister at exit, after
// this file's statics are gone.
Registry& GetRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

Guid ParseId(const char* id) {
    std::string text = id ? id : "";
    if (text.size() >= 2 && text.front() == '{' && text.back() == '}')
        text = text.substr(1, text.size() - 2);
    Guid guid;
    if (!Guid::Parse(UniString(text), &guid)) return Guid();
    return guid;
}

}  // namespace

ClassManager classManager;

const ClassInfo Object::classInfo("ZR::Object", "6C7E1D52-3F0B-4C55-9F0A-2E61D1B7A001", 1, 0);

ClassInfo::ClassInfo(const char* name, const char* id, std::uint16_t majorVersion,
                     std::uint16_t minorVersion, const ClassInfo* base,
                     ConstructorFunction constructor)
    : mName(name),
      mId(ParseId(id)),
      mMajor(majorVersion),
      mMinor(minorVersion),
      mBase(base),
      mConstructor(constructor) {
    if (mConstructor) classManager.Register(*this);
}

ClassInfo::~ClassInfo() {
    if (mConstructor) classManager.Unregister(*this);
}

bool ClassInfo::IsKindOf(const ClassInfo& other) const {
    for (const ClassInfo* info = this; info; info = info->mBase)
        if (info == &other) return true;
    return false;
}

const ClassInfo* ClassManager::Find(const UniString& name) const {
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto it = registry.byName.find(name.Std());
    return it == registry.byName.end() ? nullptr : it->second;
}

void ClassManager::Register(const ClassInfo& info) {
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.byName.emplace(info.GetName().Std(), &info);
}

void ClassManager::Unregister(const ClassInfo& info) {
    Registry& registry = GetRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    auto it = registry.byName.find(info.GetName().Std());
    if (it != registry.byName.end() && it->second == &info) registry.byName.erase(it);
}

Object* New(const UniString& name) {
    const ClassInfo* info = classManager.Find(name);
    return info && info->GetConstructorFunction() ? info->GetConstructorFunction()() : nullptr;
}

Object::~Object() = default;

int Object::Read(IChannel&) {
    return 0;
}

int Object::Write(OChannel&) const {
    return 0;
}

}  // namespace ZR
