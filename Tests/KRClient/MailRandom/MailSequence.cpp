// Sequences: their making from a seed, their text, and their shortening.

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "MailDriver.h"

namespace mailrandom {

namespace {

struct Names {
    const char* name;
    Op op;
    int weight;
} const kOps[] = {
    {"send", Op::Send, 12},
    {"resend", Op::Resend, 2},
    {"read", Op::Read, 7},
    {"complete-inbox", Op::CompleteInbox, 7},
    {"complete-sent", Op::CompleteSent, 6},
    {"delete-inbox", Op::DeleteInbox, 5},
    {"delete-sent", Op::DeleteSent, 4},
    {"bert-sends", Op::BertSends, 10},
    {"other-read", Op::OtherRead, 3},
    {"other-complete", Op::OtherComplete, 3},
    {"other-delete", Op::OtherDelete, 3},
    {"down", Op::Down, 4},
    {"up", Op::Up, 5},
    {"away", Op::Away, 3},
    {"back", Op::Back, 4},
    {"fail", Op::Fail, 7},
    {"gap", Op::Gap, 3},
    {"whole", Op::Whole, 2},
    {"fetch", Op::Fetch, 2},
    {"reset", Op::Reset, 2},
    {"contacts", Op::Contacts, 1},
    {"restart", Op::Restart, 4},
    {"crash", Op::Crash, 4},
    {"kill", Op::Kill, 1},
    {"hold", Op::Hold, 3},
    {"release", Op::Release, 3},
    {"limit", Op::Limit, 3},
    {"stranger", Op::Stranger, 2},
    {"newcomer", Op::Newcomer, 1},
};

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
    for (const Names& n : kOps) total += n.weight;
    Sequence sequence;
    for (int i = 0; i < length; ++i) {
        int roll = random.Below(total);
        const Names* chosen = kOps;
        for (const Names& n : kOps) {
            if (roll < n.weight) {
                chosen = &n;
                break;
            }
            roll -= n.weight;
        }
        sequence.push_back({chosen->op, random.Below(12), random.Below(12)});
    }
    return sequence;
}

std::string ToText(const Sequence& sequence) {
    std::string text;
    for (const Step& step : sequence) {
        for (const Names& n : kOps)
            if (n.op == step.op) text += (text.empty() ? "" : " ") + std::string(n.name);
        text += ":" + std::to_string(step.a) + "," + std::to_string(step.b);
    }
    return text;
}

Sequence FromText(const std::string& text) {
    Sequence sequence;
    std::istringstream in(text);
    std::string word;
    while (in >> word) {
        const auto colon = word.find(':');
        const std::string name = word.substr(0, colon);
        const Names* found = nullptr;
        for (const Names& n : kOps)
            if (name == n.name) found = &n;
        if (!found) throw std::invalid_argument("no step \"" + name + "\"");
        Step step{found->op};
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
