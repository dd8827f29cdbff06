#pragma once
// Measures the largest single allocation a piece of code asks for, so that a
// test can show a reader takes no more memory than its input holds. Linking
// this file replaces the global operator new of the test program with one that
// records requests of the thread that stands in a meter.

#include <cstddef>

namespace krtest {

class LargestAllocation {
public:
    LargestAllocation();
    ~LargestAllocation();
    LargestAllocation(const LargestAllocation&) = delete;
    LargestAllocation& operator=(const LargestAllocation&) = delete;

    // The largest request since construction, in bytes.
    std::size_t Bytes() const { return mLargest; }

private:
    std::size_t mLargest = 0;
    std::size_t* mOuter;
};

}  // namespace krtest
