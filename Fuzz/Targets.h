#pragma once
// Entry points of the fuzz targets: one per reader of stored input. Each takes
// the bytes of one input, feeds them to the reader as the library would meet
// them, and answers 0. A crash, a sanitizer report or an exception the reader
// should not throw is a finding. The libFuzzer binaries and the corpus replay
// driver call the same functions.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace krfuzz {

using Entry = int (*)(const std::uint8_t* data, std::size_t size);

struct Target {
    const char* name;  // also the folder of its seed corpus, Fuzz/corpus/NAME
    Entry entry;
};

int FuzzXmlChannel(const std::uint8_t* data, std::size_t size);
int FuzzCacheInfo(const std::uint8_t* data, std::size_t size);
int FuzzDataOptions(const std::uint8_t* data, std::size_t size);
int FuzzLoginData(const std::uint8_t* data, std::size_t size);
int FuzzLocation(const std::uint8_t* data, std::size_t size);
int FuzzContactList(const std::uint8_t* data, std::size_t size);
int FuzzNativeImage(const std::uint8_t* data, std::size_t size);
int FuzzScenario(const std::uint8_t* data, std::size_t size);
int FuzzClientMail(const std::uint8_t* data, std::size_t size);
int FuzzOutbox(const std::uint8_t* data, std::size_t size);
int FuzzMailsFile(const std::uint8_t* data, std::size_t size);
int FuzzAttachmentJson(const std::uint8_t* data, std::size_t size);
int FuzzJson(const std::uint8_t* data, std::size_t size);
int FuzzDataQuery(const std::uint8_t* data, std::size_t size);

// Null for an unknown name.
const Target* FindTarget(std::string_view name);
// The names, for usage texts.
const char* TargetNames();

}  // namespace krfuzz
