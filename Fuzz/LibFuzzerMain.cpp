// The libFuzzer binary of one target; KRC_FUZZ_TARGET names it.

#include <cstdio>
#include <cstdlib>

#include "Targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const krfuzz::Target* target = [] {
        const krfuzz::Target* found = krfuzz::FindTarget(KRC_FUZZ_TARGET);
        if (!found) {
            std::fprintf(stderr, "unknown fuzz target %s\n", KRC_FUZZ_TARGET);
            std::abort();
        }
        return found;
    }();
    return target->entry(data, size);
}
