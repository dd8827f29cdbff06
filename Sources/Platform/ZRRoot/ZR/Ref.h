#pragma once
/// @file
/// Shared ownership. A thin wrapper over shared_ptr whose dereference of an
/// empty reference throws instead of crashing.

#include <memory>

#include "ZR/Exceptions.h"
#include "ZR/ZRRootExport.h"

namespace ZR {

struct AtomicCounter {};
struct Counter {};

[[noreturn]] ZRROOT_EXPORT void ThrowNullReference(const char* file, unsigned int line);

template <typename T, typename C = AtomicCounter>
class Ref {
public:
    Ref() = default;
    Ref(std::nullptr_t) {}
    explicit Ref(T* object) : mPtr(object) {}
    Ref(std::shared_ptr<T> ptr) : mPtr(std::move(ptr)) {}
    template <typename U, typename = std::enable_if_t<std::is_convertible_v<U*, T*>>>
    Ref(const Ref<U, C>& other) : mPtr(other.Std()) {}

    template <typename... A>
    static Ref Make(A&&... args) {
        return Ref(std::make_shared<T>(std::forward<A>(args)...));
    }

    T* operator->() const { return &Deref(); }
    T& operator*() const { return Deref(); }
    T* Get() const { return mPtr.get(); }
    bool IsNull() const { return !mPtr; }
    explicit operator bool() const { return static_cast<bool>(mPtr); }
    void Reset() { mPtr.reset(); }
    bool operator==(const Ref& other) const { return mPtr == other.mPtr; }
    const std::shared_ptr<T>& Std() const { return mPtr; }

private:
    T& Deref() const {
        if (!mPtr) ThrowNullReference(__FILE__, __LINE__);
        return *mPtr;
    }
    std::shared_ptr<T> mPtr;
};

/// A counted pointer is a reference by another name.
template <typename T, typename C = AtomicCounter>
using CountedPtr = Ref<T, C>;

}  // namespace ZR
