#include "ZR/Debug.h"

#include <atomic>
#include <cstdarg>

namespace {
std::atomic<ZR::DebugOutput> gOutput{nullptr};
}

void ZR::SetDebugOutput(DebugOutput output) {
    gOutput = output;
}

void DBPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text(n > 0 ? static_cast<std::size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    if (auto out = gOutput.load())
        out(text);
    else
        std::fputs(text.c_str(), stderr);
}
