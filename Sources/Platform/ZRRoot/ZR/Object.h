#pragma once
/// @file
/// Classes that store themselves and can be made by name. Each such class has
/// one static ClassInfo; one that carries a constructor function is entered in
/// the process-wide registry (classManager) when it is built, so that ZR::New
/// can make an object from the class name a stored or received form names.

#include <cstdint>

#include "ZR/Channel.h"
#include "ZR/Guid.h"
#include "ZR/UniString.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

class Object;
using ConstructorFunction = Object* (*)();

/// Name, id, version, base class and constructor function of a class.
/// Instances are static objects that live as long as their class's code.
class ZRROOT_EXPORT ClassInfo {
public:
    /// id is the GUID text, with or without braces; a malformed one is a
    /// programming error and gives the null GUID.
    ClassInfo(const char* name, const char* id, std::uint16_t majorVersion,
              std::uint16_t minorVersion, const ClassInfo* base = nullptr,
              ConstructorFunction constructor = nullptr);
    ~ClassInfo();
    ClassInfo(const ClassInfo&) = delete;
    ClassInfo& operator=(const ClassInfo&) = delete;

    const UniString& GetName() const { return mName; }
    const Guid& GetId() const { return mId; }
    std::uint16_t GetMajorVersion() const { return mMajor; }
    std::uint16_t GetMinorVersion() const { return mMinor; }
    const ClassInfo* GetBase() const { return mBase; }
    ConstructorFunction GetConstructorFunction() const { return mConstructor; }
    /// Whether this is other or a class derived from it.
    bool IsKindOf(const ClassInfo& other) const;

private:
    UniString mName;
    Guid mId;
    std::uint16_t mMajor;
    std::uint16_t mMinor;
    const ClassInfo* mBase;
    ConstructorFunction mConstructor;
};

/// The registry of classes that can be made by name. Safe from any thread. A
/// name that is taken keeps its first class.
class ZRROOT_EXPORT ClassManager {
public:
    /// The class of that name (exact), or null.
    const ClassInfo* Find(const UniString& name) const;
    void Register(const ClassInfo& info);
    void Unregister(const ClassInfo& info);
};

extern ZRROOT_EXPORT ClassManager classManager;

/// A new object of the named class, owned by the caller; null if the class is
/// not registered or its constructor function gives null.
ZRROOT_EXPORT Object* New(const UniString& name);

/// Base of the classes that store themselves.
class ZRROOT_EXPORT Object {
public:
    static const ClassInfo classInfo;

    virtual ~Object();
    virtual const ClassInfo& GetClassInfo() const { return classInfo; }
    /// The stored form; an object that has none reads and writes nothing.
    virtual int Read(IChannel& channel);
    virtual int Write(OChannel& channel) const;

    const UniString& GetClassName() const { return GetClassInfo().GetName(); }
    const Guid& GetClassId() const { return GetClassInfo().GetId(); }
    bool IsKindOf(const ClassInfo& info) const { return GetClassInfo().IsKindOf(info); }
};

}  // namespace ZR
