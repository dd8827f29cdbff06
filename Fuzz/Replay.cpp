// Runs every file of a seed corpus through its target's entry point, the one
// the libFuzzer binary calls, so that each build (sanitizers included, no
// clang needed) checks the corpus:
//   fuzz_replay TARGET DIR
// Fails on an input slower than a second: a reader never hangs.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Targets.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: fuzz_replay TARGET DIR\ntargets: %s\n",
                     krfuzz::TargetNames().c_str());
        return 2;
    }
    const krfuzz::Target* target = krfuzz::FindTarget(argv[1]);
    if (!target) {
        std::fprintf(stderr, "fuzz_replay: unknown target %s (targets: %s)\n", argv[1],
                     krfuzz::TargetNames().c_str());
        return 2;
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(argv[2]))
        if (entry.is_regular_file()) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    if (files.empty()) {
        std::fprintf(stderr, "fuzz_replay: no inputs in %s\n", argv[2]);
        return 1;
    }
    int slow = 0;
    for (const auto& file : files) {
        std::ifstream in(file, std::ios::binary);
        std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                std::istreambuf_iterator<char>());
        std::fprintf(stderr, "%s\n", file.filename().c_str());
        auto start = std::chrono::steady_clock::now();
        target->entry(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        if (seconds > 1.0) {
            std::fprintf(stderr, "fuzz_replay: %s took %.2f s\n", file.c_str(), seconds);
            ++slow;
        }
    }
    std::printf("%s: %zu inputs, %d too slow\n", target->name, files.size(), slow);
    return slow == 0 ? 0 : 1;
}
