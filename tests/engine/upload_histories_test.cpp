// Thousands of uploads with random faults and decisions, and days without a server.
#include "tests/engine/simulation.h"
#include "tests/fakes/quiet_log.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdlib>
#include <thread>

namespace quenmoor {
namespace {

unsigned numberFrom(const char* variable, unsigned otherwise)
{
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : static_cast<unsigned>(std::stoul(text));
}

TEST(UploadHistories, keepTheInvariants)
{
#ifdef QUENMOOR_THREAD_SANITIZER
    constexpr unsigned kHistories = 1000; // each takes ten times longer there
#else
    constexpr unsigned kHistories = 10000;
#endif
    std::atomic<unsigned> seed = numberFrom("FIRST_SEED", 1);
    const unsigned end = seed + numberFrom("HISTORIES", kHistories);
    const auto silent = end == seed + 1 ? nullptr : std::make_unique<SilentLog>();
    const auto work = [&] {
        SimulatedSources sources;
        for (unsigned next = seed++; next < end; next = seed++) {
            const char* const violated = Simulation(sources, next).run();
            if (violated == nullptr)
                continue;
            ADD_FAILURE() << "FIRST_SEED=" << next << " HISTORIES=1 violates: " << violated;
            seed = end;
        }
    };
    std::vector<std::jthread> workers;
    while (workers.size() < std::thread::hardware_concurrency())
        workers.emplace_back(work);
}

// A server that is away for days: every file is uploaded once it is back, and the memory and the
// number of calls of an attempt do not grow.
TEST(UploadHistories, uploadEveryFileAfterDaysOfRetries)
{
    using std::chrono::hours;
    const hours away = hours(24) * numberFrom("RETRY_DAYS", 1);
    const SilentLog silent;
    SimulatedSources sources;
    for (const LinkFault fault : {LinkFault::RefuseConnect, LinkFault::RefuseRendezvous,
                                  LinkFault::Silent, LinkFault::Refuse, LinkFault::LoseConfirm,
                                  LinkFault::BreakAfter, LinkFault::NoFinished}) {
        Simulation simulation(sources, fault, away);
        const std::int64_t back = simulation.nanoseconds() + std::chrono::nanoseconds(away).count();
        std::size_t heap = 0;
        int attempts = 0;
        simulation.onAttemptEnd = [&] {
            const std::size_t used = mallinfo2().uordblks;
            if (++attempts == 12) // the waits have their full length
                heap = used;
            if (attempts > 12 && simulation.nanoseconds() < back) {
                EXPECT_LE(used, heap + 4096) << attempts;
            }
        };
        EXPECT_EQ(simulation.run(), nullptr);
        for (const std::size_t row : {0U, 1U})
            EXPECT_EQ(simulation.queues.tableList().cell("Status", row), "Finished");
        // A wait of 900 s and up to 43 s for the attempt.
        EXPECT_GT(attempts, away / std::chrono::seconds(943));
        EXPECT_LT(attempts, away / std::chrono::seconds(900) + 20);
    }
}

} // namespace
} // namespace quenmoor
