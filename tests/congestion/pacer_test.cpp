#include <gtest/gtest.h>

#include <functional>
#include <thread>

#include "congestion/pacer.h"

namespace quenmoor {
namespace {

constexpr std::size_t kBlock = 16384;
constexpr int kBlockPackets = 12;
constexpr Micros kSecond = 1'000'000;

// A clock that is at the end of every wait at once.
struct SimulatedClock : PacingClock {
    mutable Micros time = kSecond;
    Micros lateness = 50; // of every wake-up
    // Called by another thread, which has to end the wait. A real limit keeps a fault from blocking
    // the test.
    std::function<void()> onWait;

    Micros now() const override { return time; }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   Micros until) const override
    {
        if (!onWait) {
            time = std::max(time, until + lateness);
            return;
        }
        std::thread other(onWait); // gets the pacer's mutex once this thread waits
        EXPECT_EQ(condition.wait_for(lock, std::chrono::seconds(20)), std::cv_status::no_timeout);
        lock.unlock();
        other.join();
        lock.lock();
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
    for (int i = 0; i < 50; ++i) { // each takes the time of a packet
        pacer.onRepairSent();
        pacer.onRetransmitted();
    }
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
    EXPECT_FALSE(pacer.waitToSend(kBlock, [&] {
        clock->time += 8 * kSecond;
        ++waits == 1 ? pacer.onPacketSent(clock->time) : void();
        waits == 3 ? pacer.onAcknowledged(clock->time) : void();
        return true;
    }));
    EXPECT_EQ(clock->time, began + 40 * kSecond + 10'000);

    const Micros lostAt = clock->time + 3 * kSecond;
    EXPECT_TRUE(pacer.waitToSend(kBlock, [&] { return clock->time < lostAt; }));
    EXPECT_LE(clock->time, lostAt + kSecond / 50);
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
    sendPackets(48);

    // With an empty backlog a block of any size is released.
    EXPECT_TRUE(pacer.waitToSend(10'000'000));
    EXPECT_FALSE(pacer.waitToSend(10'000'000));
    sendPackets(6'869);
    EXPECT_TRUE(pacer.waitToSend(10'000'000));
}

TEST_F(PacerTest, endsTheWaitWhenAnotherThreadMakesRoomOrTheLibraryPaces)
{
    // Four blocks fit; at 1 ms for each packet the second is not due.
    for (const auto& [interval, blocks, bySending] :
         {std::tuple{25.0, 4, true}, {25.0, 4, false}, {1000.0, 1, false}}) {
        clock->time += kSecond;
        EXPECT_FALSE(pacer.setPath({interval}));
        clock->onWait = [&] {
            if (bySending)
                sendPackets(kBlockPackets);
            else
                EXPECT_TRUE(pacer.setPath({interval, true, false}));
        };
        const Micros before = clock->time;
        for (int block = 0; block <= blocks; ++block)
            EXPECT_TRUE(pacer.waitToSend(kBlock));
        EXPECT_EQ(clock->time, before);
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
