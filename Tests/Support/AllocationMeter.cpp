#include "Support/AllocationMeter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local std::size_t* tLargest = nullptr;

void* Allocate(std::size_t size) {
    if (tLargest && size > *tLargest) *tLargest = size;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
}  // namespace

namespace krtest {
LargestAllocation::LargestAllocation() : mOuter(tLargest) {
    tLargest = &mLargest;
}
LargestAllocation::~LargestAllocation() {
    if (mOuter && mLargest > *mOuter) *mOuter = mLargest;
    tLargest = mOuter;
}
}  // namespace krtest

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete[](void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
    std::free(p);
}
// The nothrow forms too (std::stable_partition's buffer uses them), so that
// every block the plain deletes free came from malloc.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (tLargest && size > *tLargest) *tLargest = size;
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
void operator delete[](void* p, const std::nothrow_t&) noexcept {
    std::free(p);
}
