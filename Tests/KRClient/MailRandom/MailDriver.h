#pragma once
// Seeded random sequences of what happens around one user's mail client:
// the host's operations, changes others make on the server, the server going
// away, presence, failed and cancelled requests, gaps, whole boxes, signals
// and restarts. A sequence runs against the emulator with the real monitor,
// message loop and files, and against the reference model; after each step,
// once everything has come to rest, the two must agree.

#include <cstdint>
#include <string>
#include <vector>

namespace mailrandom {

enum class Op {
    Send,           // a: recipients and thread, b: attachment and caller's task
    Resend,         // a: which of the user's mails
    Read,           // a: first id, b: how many, caller's task, single form
    CompleteInbox,  // as Read
    CompleteSent,   // as Read
    DeleteInbox,    // as Read
    DeleteSent,     // as Read
    BertSends,      // a: attachment and thread, b: sent time
    OtherRead,      // the user's other computer; a: which mail
    OtherComplete,  // a: which, b: box
    OtherDelete,    // a: which, b: box
    Down,
    Up,
    Away,  // presence other than online
    Back,
    Fail,   // a: operation, b: fail or cancel, of its next call
    Gap,    // a: box; with a change that the gap swallows
    Whole,  // a: box; with a fetch
    Fetch,
    Reset,
    Contacts,
    Hold,  // a: the operation whose next call waits at the server
    Release,
    Restart,   // close and start again on the same cache folder
    Crash,     // the process dies as it ends; a: before or between its two writes
    Kill,      // a host process on the files killed as it writes; a: mails, b: when
    Limit,     // the host sets the limit on completed mails and runs it; a: number, b: on
    Stranger,  // a sent mail from a sender the server does not know; a: who, b: attachment
    Newcomer,  // a: who joins the server
};

struct Step {
    Op op;
    int a = 0, b = 0;
};
using Sequence = std::vector<Step>;

Sequence Generate(std::uint64_t seed, int length);
std::string ToText(const Sequence& sequence);
// The form ToText writes; throws std::invalid_argument on anything else.
Sequence FromText(const std::string& text);

// Runs the sequence; empty if client, server and model agreed throughout,
// else the first step at which they did not and what differed.
std::string RunSequence(const Sequence& sequence, std::uint64_t seed);
// Drops steps while the sequence still fails.
Sequence Shrink(const Sequence& sequence, std::uint64_t seed);

}  // namespace mailrandom
