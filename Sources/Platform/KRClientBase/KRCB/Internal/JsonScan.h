#pragma once
// A walk over JSON text that builds nothing. Readers of files from outside run
// it before they parse: nesting, syntax, numbers no type holds and (on asking)
// keys given twice are refused while the cost is still one pass over the
// bytes, whatever the text holds.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "KRCB/KRClientBaseExport.h"

namespace KRCB::Internal {

struct JsonScan {
    enum class Outcome { Fine, TooDeep, TooMany, KeyTooLong, NumberTooLarge, DuplicateKey, Syntax };
    Outcome outcome = Outcome::Fine;
    /// The byte the walk stopped at, counted from 1.
    std::size_t byte = 0;
    /// Syntax: the parser's reason without the text it last read, which may
    /// hold a secret ("syntax error while parsing value: unexpected ']'").
    std::string reason;
    /// Where it stopped, as "servers[0].version[1]", keys made printable;
    /// and the object keys on that way, as they are, outermost first.
    std::string path;
    std::vector<std::string> pathKeys;
    /// Values of any kind walked over (objects and arrays count as one each)
    /// and keys of objects.
    std::size_t values = 0;
    /// Of which keys: a document built from the text with fewer members than
    /// this had keys given twice.
    std::size_t keys = 0;
};

/// Stops at the first fault; a text nested deeper than maxDepth is refused at
/// the first value past it, one of more than maxValues values and keys at
/// the first past those, and a key longer than maxKeyBytes, so that what a
/// parser would build stays bounded.
KRCB_EXPORT JsonScan ScanJson(std::string_view text, int maxDepth, bool refuseDuplicateKeys = false,
                              std::size_t maxValues = SIZE_MAX, std::size_t maxKeyBytes = SIZE_MAX);

}  // namespace KRCB::Internal
