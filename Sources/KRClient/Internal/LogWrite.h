#pragma once
/// @file
/// Writes one record of a declared log line with its arguments in the order
/// of the line's '%' marks.

#include "ZR/Logger.h"

namespace KRC::Internal {

template <typename... Args>
void WriteLog(const ZR::LogLine& line, const Args&... args) {
    if constexpr (sizeof...(Args) == 0) {
        ZR::logger.Append(line);
    } else {
        ZR::FastLogger::LogComposer composer;
        ZR::logger.Append(line, composer);
        (composer.Append(args), ...);
    }
}

}  // namespace KRC::Internal
