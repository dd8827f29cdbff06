// Sequences: their making from a seed, their text, and their shortening.

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>

#include "MailDriver.h"

namespace mailrandom {

namespace {

// By Op, in its order: the steps' names and how often each comes.
const char* const kNames[] = {
    "send",        "resend",     "read",       "complete-inbox", "complete-sent", "delete-inbox",
    "delete-sent", "bert-sends", "other-read", "other-complete", "other-delete",  "down",
    "up",          "away",       "back",       "fail",           "gap",           "whole",
    "fetch",       "reset",      "contacts",   "hold",           "release",       "restart",
    "crash",       "kill",       "limit",      "stranger",       "newcomer"};
const int kWeights[] = {12, 2, 7, 7, 6, 5, 4, 10, 3, 3, 3, 4, 5, 3, 4,
                        7,  3, 2, 2, 2, 1, 3, 3,  4, 4, 1, 3, 2, 1};
static_assert(std::size(kNames) == static_cast<std::size_t>(Op::Newcomer) + 1 &&
              std::size(kWeights) == std::size(kNames));

struct Random {
    std::uint64_t state;
    std::uint64_t Next() {  // splitmix64: the same numbers on every platform
        std::uint64_t z = (state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    int Below(int n) { return static_cast<int>(Next() % static_cast<std::uint64_t>(n)); }
};

}  // namespace

Sequence Generate(std::uint64_t seed, int length) {
    Random random{seed};
    int total = 0;
    for (int weight : kWeights) total += weight;
    Sequence sequence;
    for (int i = 0; i < length; ++i) {
        int roll = random.Below(total), op = 0;
        while (roll >= kWeights[op]) roll -= kWeights[op++];
        sequence.push_back({static_cast<Op>(op), random.Below(12), random.Below(12)});
    }
    return sequence;
}

std::string ToText(const Sequence& sequence) {
    std::string text;
    for (const Step& step : sequence)
        text += (text.empty() ? "" : " ") + std::string(kNames[static_cast<int>(step.op)]) + ":" +
                std::to_string(step.a) + "," + std::to_string(step.b);
    return text;
}

Sequence FromText(const std::string& text) {
    Sequence sequence;
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        const auto colon = word.find(':');
        const auto* found = std::find(std::begin(kNames), std::end(kNames), word.substr(0, colon));
        if (found == std::end(kNames))
            throw std::invalid_argument("no step \"" + word.substr(0, colon) + "\"");
        Step step{static_cast<Op>(found - std::begin(kNames))};
        if (colon != std::string::npos &&
            std::sscanf(word.c_str() + colon + 1, "%d,%d", &step.a, &step.b) != 2)
            throw std::invalid_argument("a step's numbers: \"" + word + "\"");
        sequence.push_back(step);
    }
    return sequence;
}

Sequence Shrink(const Sequence& sequence, std::uint64_t seed) {
    Sequence current = sequence;
    for (std::size_t chunk = std::max<std::size_t>(1, current.size() / 2); chunk > 0;) {
        bool dropped = false;
        for (std::size_t i = 0; i < current.size();) {
            Sequence candidate = current;
            candidate.erase(candidate.begin() + static_cast<std::ptrdiff_t>(i),
                            candidate.begin() +
                                static_cast<std::ptrdiff_t>(std::min(current.size(), i + chunk)));
            if (!RunSequence(candidate, seed).empty()) {
                current = std::move(candidate);
                dropped = true;
            } else {
                i += chunk;
            }
        }
        if (!dropped) chunk /= 2;
    }
    return current;
}

}  // namespace mailrandom
