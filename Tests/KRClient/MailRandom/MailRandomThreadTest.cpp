// The mail client under seeded random sequences, compared with the reference
// model after every step. A failing seed is reported with its sequence and a
// shortened one that still fails; kept cases replay such sequences.
//
// MAIL_RANDOM_SEEDS=first:count picks the seeds (scripts/mail-random.sh
// spreads them over the cores); MAIL_RANDOM_SEQUENCE replays one sequence
// under the first of them.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "MailDriver.h"

#if defined(__SANITIZE_THREAD__)
#define MAIL_RANDOM_SLOWER 4
#elif defined(__SANITIZE_ADDRESS__)
#define MAIL_RANDOM_SLOWER 2
#else
#define MAIL_RANDOM_SLOWER 1
#endif

namespace mailrandom {
namespace {

constexpr int kLength = 50;
// A few hundred sequences within a minute, also under the sanitizers.
constexpr int kSeeds = 400 / MAIL_RANDOM_SLOWER;

TEST(MailRandomThreadTest, SeededSequencesAgreeWithTheModel) {
    unsigned long long first = 1;
    int count = kSeeds, failed = 0;
    const char* seeds = std::getenv("MAIL_RANDOM_SEEDS");
    ASSERT_TRUE(!seeds || std::sscanf(seeds, "%llu:%d", &first, &count) == 2) << seeds;
    const char* replay = std::getenv("MAIL_RANDOM_SEQUENCE");
    const auto start = std::chrono::steady_clock::now();
    for (std::uint64_t seed = first; seed < first + static_cast<unsigned>(count); ++seed) {
        const Sequence sequence = replay ? FromText(replay) : Generate(seed, kLength);
        const std::string diff = RunSequence(sequence, seed);
        if (diff.empty()) continue;
        ++failed;
        const Sequence shortened = Shrink(sequence, seed);
        ADD_FAILURE() << "failing seed " << seed << "\n  sequence: " << ToText(sequence) << "\n  "
                      << diff << "  shortened (" << shortened.size()
                      << " steps): " << ToText(shortened) << "\n  " << RunSequence(shortened, seed);
        if (replay) break;
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("mail-random: %d sequences, %d failed, %.2f s\n", count, failed, seconds);
}

// Shortened sequences that once failed, with their seeds: each caught a
// fault of the client or of the model.
TEST(MailRandomThreadTest, KeptCasesAgreeWithTheModel) {
    struct Case {
        std::uint64_t seed;
        const char* sequence;
    } const cases[] = {
        // A change fetched in a gap is not applied.
        {2, "gap:9,0"},
        // A deleted mail stays hidden, not gone, until the server reports it.
        {1, "fail:3,2 delete-inbox:3,10 other-read:10,3"},
        // A mail leaves the outbox when the sent box lists it, not when its request ends.
        {1, "down:3,10 send:2,3"},
        // ...also when the sent box listed it before a death between the two files.
        {11, "away:7,9 send:6,9 restart:10,6 crash:9,0"},
        // The server pushes only a change of its state: "up" when up reconnects nobody.
        {11432, "hold:3,10 delete-inbox:6,1 up:3,9 complete-inbox:4,1 bert-sends:9,7 fail:3,2"},
        // The limit's deletes go out at once, also from the host's own call of the limit...
        {4, "limit:0,2"},
        // ...and from a completion offline, where the server is down and they fail.
        {7, "send:9,7 limit:1,1 down:8,6 complete-sent:11,7"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(RunSequence(FromText(c.sequence), c.seed), "") << c.seed << ": " << c.sequence;
}

TEST(MailRandomThreadTest, SequencesReadBackFromTheirText) {
    const Sequence sequence = Generate(7, 60);
    EXPECT_EQ(ToText(FromText(ToText(sequence))), ToText(sequence));
    EXPECT_THROW(FromText("send:1,2 fly:0,0"), std::invalid_argument);
}

}  // namespace
}  // namespace mailrandom
