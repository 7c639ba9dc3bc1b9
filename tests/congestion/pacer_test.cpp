#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "congestion/pacer.h"

namespace quenmoor {
namespace {

constexpr std::size_t kBlock = 16384;
constexpr int kBlockPackets = 12;
constexpr Micros kSecond = 1'000'000;

// A clock that is at the end of every wait at once. With `waitsForSignals` a wait of over 0.1 s
// blocks until another thread ends it; a real limit keeps a fault from blocking the test.
struct SimulatedClock : PacingClock {
    mutable std::atomic<Micros> time{kSecond};
    mutable std::atomic<bool> waiting{false};
    Micros lateness = 50; // of every wake-up
    bool waitsForSignals = false;
    std::function<void()> onWait; // called instead of waiting

    Micros now() const override { return time; }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   Micros until) const override
    {
        if (onWait) {
            lock.unlock();
            onWait();
            lock.lock();
            return;
        }
        waiting = waitsForSignals && until - time > kSecond / 10;
        if (waiting &&
            condition.wait_for(lock, std::chrono::seconds(20)) == std::cv_status::no_timeout)
            return;
        time = std::max(time.load(), until + lateness);
    }
};

struct PacerTest : testing::Test {
    const std::shared_ptr<SimulatedClock> clock = std::make_shared<SimulatedClock>();
    Pacer pacer{clock};

    // Blocks that are released before the time `end`.
    int blocksUntil(Micros end, bool librarySends = true)
    {
        int blocks = 0;
        for (; pacer.waitToSend(kBlock) && clock->now() < end; ++blocks)
            sendPackets(librarySends ? kBlockPackets : 0);
        return blocks;
    }

    void sendPackets(int count)
    {
        for (int packet = 0; packet < count; ++packet)
            pacer.onPacketSent(clock->now());
    }
};

TEST_F(PacerTest, keepsTheRateWhateverTheDelayOfAWakeUp)
{
    EXPECT_FALSE(pacer.setPath({25})); // 40,000 packets per second
    for (const Micros lateness : {0, 50, 500, 1500}) {
        clock->lateness = lateness;
        EXPECT_NEAR(blocksUntil(clock->time + kSecond), 40'000 / kBlockPackets, 10) << lateness;
    }
}

TEST_F(PacerTest, catchesUpByTwoMillisecondsAtMostAndByLessOnAShallowBuffer)
{
    for (const auto& [shallow, most] : {std::pair{false, 5}, std::pair{true, 1}}) {
        EXPECT_FALSE(pacer.setPath({33, false, shallow})); // 0.4 ms for each block
        blocksUntil(clock->time + 100'000);
        clock->time += 50'000;
        EXPECT_NEAR(blocksUntil(clock->time + 100), most, 1) << shallow;
    }
    sendPackets(10 * kBlockPackets);
    EXPECT_FALSE(pacer.setPath({1000}));
    EXPECT_TRUE(pacer.waitToSend(kBlock));
    const Micros before = clock->time;
    for (int i = 0; i < 100; ++i)
        pacer.onRepairSent(); // takes the time of a packet
    EXPECT_EQ(blocksUntil(before + 100'000), 0);
}

TEST_F(PacerTest, failsAfterTenSecondsOfWaitingWithoutProgress)
{
    EXPECT_FALSE(pacer.setPath({25}));
    clock->lateness = 0;
    EXPECT_EQ(blocksUntil(INT64_MAX, false), 4);
    EXPECT_EQ(clock->time, 11 * kSecond);

    // Progress extends the wait, whether a packet was sent or an acknowledgement arrived. The time
    // before the wait does not count.
    clock->time += 60 * kSecond;
    const Micros began = clock->time;
    int waits = 0;
    clock->onWait = [&] {
        clock->time += 8 * kSecond;
        ++waits == 1 ? pacer.onPacketSent(clock->time) : void();
        waits == 2 ? pacer.onAcknowledged(clock->time) : void();
    };
    EXPECT_FALSE(pacer.waitToSend(kBlock));
    EXPECT_EQ(clock->time, began + 32 * kSecond);

    clock->onWait = nullptr;
    const Micros lostAt = clock->time + 3 * kSecond;
    EXPECT_TRUE(pacer.waitToSend(kBlock, [&] { return clock->time < lostAt; }));
    EXPECT_LE(clock->time, lostAt + kSecond / 50);
}

TEST_F(PacerTest, releasesABlockOfAnySizeOnceTheBacklogIsEmpty)
{
    EXPECT_FALSE(pacer.setPath({25}));
    EXPECT_TRUE(pacer.waitToSend(10'000'000));
    EXPECT_TRUE(pacer.setPath({25})); // the library must pace such a backlog
    EXPECT_FALSE(pacer.waitToSend(10'000'000));
    sendPackets(6'869);
    EXPECT_TRUE(pacer.waitToSend(10'000'000));
}

TEST_F(PacerTest, allowsTwelveMillisecondsOfBacklogDuringRetransmissionUnlessTheBufferIsShallow)
{
    EXPECT_TRUE(pacer.setPath({25, true, true}));
    EXPECT_EQ(blocksUntil(clock->time + kSecond, false), 4);
    EXPECT_TRUE(pacer.setPath({25, true, false}));
    EXPECT_EQ(blocksUntil(INT64_MAX, false), (48 + 12'000 / 25) / kBlockPackets - 4);

    // The library paces until it has sent that backlog.
    EXPECT_TRUE(pacer.setPath({25, false, false}));
    sendPackets(12'000 / 25);
    EXPECT_FALSE(pacer.setPath({25, false, false}));
}

TEST_F(PacerTest, releasesABlockBeforeItIsDueOnceTheLibraryPaces)
{
    EXPECT_FALSE(pacer.setPath({1000}));
    EXPECT_TRUE(pacer.waitToSend(kBlock));
    clock->onWait = [&] { EXPECT_TRUE(pacer.setPath({1000, true, false})); };
    const Micros before = clock->time;
    EXPECT_TRUE(pacer.waitToSend(kBlock));
    EXPECT_EQ(clock->time, before);
}

TEST_F(PacerTest, endsTheWaitWhenAnotherThreadMakesRoom)
{
    clock->waitsForSignals = true;
    for (const bool bySending : {true, false}) {
        EXPECT_FALSE(pacer.setPath({25}));
        clock->waiting = false;
        std::thread other([&] {
            while (!clock->waiting)
                std::this_thread::yield();
            if (bySending) // not before the wait has released the pacer's mutex
                sendPackets(kBlockPackets);
            else
                EXPECT_TRUE(pacer.setPath({25, true, false}));
        });
        for (int block = 0; block < 5; ++block)
            EXPECT_TRUE(pacer.waitToSend(kBlock)); // four fit
        other.join();
        sendPackets(5 * kBlockPackets);
    }
}

TEST(RateLimitTest, keepsTheMeanRateAndCatchesUpByFiftyMillisecondsAtMost)
{
    constexpr std::int64_t kRate = 20 << 20;
    RateLimit limit(kRate);
    const auto bytesBetween = [&](Micros now, Micros end) {
        double bytes = 0;
        for (; now < end; now = std::max(now, limit.releaseTime() + 300)) { // late wake-ups
            limit.onReleased(kBlock, now);
            bytes += kBlock;
        }
        return bytes;
    };
    EXPECT_NEAR(bytesBetween(kSecond, 11 * kSecond), 10 * kRate, kRate * 0.06);
    // After a pause.
    EXPECT_NEAR(bytesBetween(20 * kSecond, 20 * kSecond + 1), kRate * 0.05, 2 * kBlock);
}

} // namespace
} // namespace quenmoor
