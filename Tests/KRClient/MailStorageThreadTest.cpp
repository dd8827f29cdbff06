// "Mails.dat" is read after the client has attached to the monitor, while
// the monitor's thread may already merge changes: what was read replaces the
// tables in one step under the lock.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

#include "MailClientFixture.h"

namespace krtest::mailclient {
namespace {

TEST(MailStorageThreadTest, WhatIsReadReplacesTheTablesInOneStepWhileChangesArrive) {
    MailClientHarness h;
    h.monitor.Deliver(
        ScriptedMailboxMonitor::Change({.created = {ServerMail("a"), ServerMail("b")}, .to = 5},
                                       {.created = {ServerMail("s")}, .to = 6}));
    h.client.reset();
    const std::string stored = ReadFile(h.folder.Sub("Mails.dat"));
    const auto whole = ScriptedMailboxMonitor::Change({.created = {ServerMail("x")}, .to = 9},
                                                      {.created = {}, .to = 9});
    for (int round = 0; round < 20 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        WriteFile(h.folder.Sub("Mails.dat"), stored);
        std::atomic<bool> stop{false}, started{false};
        std::thread monitorThread([&] {
            while (!stop) {
                h.monitor.Deliver(whole);
                started = true;
            }
        });
        while (!started) std::this_thread::yield();
        h.client =
            std::make_unique<KRC::MailClient>(&h.monitor, &h.signals, &h.manager, false, 0,
                                              std::make_unique<RecordingErrorHandler>(h.heard));
        stop = true;
        monitorThread.join();
        // The file's state or the server's, each whole.
        const std::string state = Names(h.client->GetInboxMails()) + "/" +
                                  Names(h.client->GetSentMails()) + "@" +
                                  std::to_string(h.client->GetInboxRevision()) + "," +
                                  std::to_string(h.client->GetSentRevision());
        EXPECT_TRUE(state == "a,b/s@5,6" || state == "x/@9,9") << state;
        h.client.reset();
    }
}

}  // namespace
}  // namespace krtest::mailclient
