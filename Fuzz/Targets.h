#pragma once
// Entry points of the fuzz targets: one per reader of stored input. Each takes
// the bytes of one input, feeds them to the reader as the library would meet
// them, and answers 0. A crash, a sanitizer report or an exception the reader
// should not throw is a finding. The libFuzzer binaries and the corpus replay
// driver call the same functions.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace krfuzz {

using Entry = int (*)(const std::uint8_t* data, std::size_t size);

struct Target {
    const char* name;  // also the folder of its seed corpus, Fuzz/corpus/NAME
    Entry entry;
};

// In a file of its own for the transport it brings; the others are reached by name.
int FuzzDataQuery(const std::uint8_t* data, std::size_t size);

// Null for an unknown name.
const Target* FindTarget(std::string_view name);
// The names, for usage texts.
std::string TargetNames();

}  // namespace krfuzz
