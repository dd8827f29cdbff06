#include "RegistryLock.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "ZR/Exceptions.h"
#include "ZR/Thread.h"

namespace krctl {

RegistryLock::RegistryLock(const GlobalOptions& options) {
    using Clock = std::chrono::steady_clock;
    const std::string folder = KRC::registeredProjects.GetKRDataFolder().ToPath().Std();
    std::mutex mutex;
    std::condition_variable changed;
    bool over = false;
    ZR::ThreadHandle waiter = ZR::Thread::GetCurrent();

    // The library's wait has no bound of its own; it ends early when the waiting
    // thread is interrupted, which is how --wait gives up.
    std::thread watch([&] {
        std::unique_lock<std::mutex> lock(mutex);
        const auto start = Clock::now();
        auto noteAt = start + std::chrono::seconds(1);
        const auto deadline = options.waitSeconds < 0
                                  ? Clock::time_point::max()
                                  : start + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>(options.waitSeconds));
        while (!over) {
            if (changed.wait_until(lock, std::min(noteAt, deadline), [&] { return over; })) break;
            if (Clock::now() >= deadline) {
                waiter.Interrupt();
                break;
            }
            if (Clock::now() >= noteAt) {
                Note(options, "waiting for the lock of " + folder + " held by another process");
                noteAt = Clock::time_point::max();
            }
        }
    });
    auto finishWatch = [&] {
        {
            std::lock_guard<std::mutex> lock(mutex);
            over = true;
        }
        changed.notify_all();
        watch.join();
        // An interrupt that came just as the lock was got must not reach a later sleep.
        waiter.ClearInterrupt();
    };
    try {
        guard.emplace();
    } catch (const ZR::InterruptedException&) {
        finishWatch();
        char seconds[32];
        std::snprintf(seconds, sizeof seconds, "%g", options.waitSeconds);
        throw Failure("gave up waiting for the lock of " + folder + " after " + seconds +
                      " s; nothing changed");
    } catch (...) {
        finishWatch();
        throw;
    }
    finishWatch();
    if (!KRC::RegisteredProjects::Synchronizer::IsLocked()) {
        guard.reset();
        throw Failure("cannot hold the lock file of " + folder + "; nothing changed");
    }
}

}  // namespace krctl
