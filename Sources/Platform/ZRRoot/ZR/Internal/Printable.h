#pragma once
// Names from outside (files, scenarios, servers) on their way to a person's
// terminal or a one-line error.

#include <cstddef>
#include <string>
#include <string_view>

#include "ZR/ZRRootExport.h"

namespace ZR::Internal {

/// text as one line that carries nothing a terminal acts on: control
/// characters (C0, DEL and C1), backslashes and bytes that are not UTF-8
/// become escapes ("\n", "\x1b", "\u0085", "\\"). A text longer than
/// maxBytes is cut at a character and ends in "...(N bytes)", N its length.
ZRROOT_EXPORT std::string Printable(std::string_view text, std::size_t maxBytes = 80);

}  // namespace ZR::Internal
