#include <gtest/gtest.h>

#include <tuple>

#include "congestion/pacer.h"

namespace quenmoor {
namespace {

constexpr std::size_t kBlock = 16384; // twelve packets
constexpr Micros kStart = 1'000'000;

// A caller and a library that sends at once, or not at all.
struct Sender {
    Pacer gate;
    Micros now = kStart;
    bool librarySends = true;
    int blocks = 0;

    explicit Sender(const Feed& feed) { std::ignore = gate.set(feed); }

    // Blocks handed over until `end`, by a caller who wakes `late` microseconds after its time;
    // -1 when the gate gave up.
    int run(Micros end, Micros late = 50)
    {
        const int before = blocks;
        while (now < end) {
            const auto wait = gate.admit(kBlock, now);
            if (!wait)
                return -1;
            *wait > 0 ? void(now += *wait + late) : handOver();
        }
        return blocks - before;
    }

    void handOver()
    {
        ++blocks;
        ++now;
        for (int packet = 0; librarySends && packet < 12; ++packet)
            gate.packetSent();
    }
};

TEST(Pacer, keepsThePaceWhateverTheSizeOfASleep)
{
    for (const Micros late : {0, 50, 500, 1500}) {
        Sender sender({25}); // 40,000 packets a second
        EXPECT_NEAR(sender.run(kStart + 1'000'000, late), 40'000 / 12, 10) << late;
    }
}

TEST(Pacer, makesUpForTwoMillisecondsOfLatenessAndNoMore)
{
    Sender sender({100}); // a block takes 1.2 ms
    sender.run(kStart + 100'000);
    sender.now += 50'000;
    EXPECT_LE(sender.run(sender.now + 100), 2);
}

TEST(Pacer, waitsTenSecondsForALibraryThatDoesNotSend)
{
    Sender sender({25});
    sender.librarySends = false;
    EXPECT_EQ(sender.run(kStart + 9'000'000), 4);
    for (int packet = 0; packet < 12; ++packet)
        sender.gate.packetSent();
    EXPECT_EQ(sender.run(kStart + 18'000'000), 1);
    EXPECT_EQ(sender.run(kStart + 20'000'000), -1);
    // A rest of the caller is not the library's.
    for (int packet = 0; packet < 48; ++packet)
        sender.gate.packetSent();
    sender.now += 60'000'000;
    EXPECT_EQ(sender.run(sender.now + 9'000'000), 4);
}

TEST(Pacer, letsABlockOfAnySizePassOnceTheLibraryHasSentTheOnesBefore)
{
    Pacer gate;
    std::ignore = gate.set({25});
    EXPECT_EQ(gate.admit(10'000'000, kStart), 0);
    EXPECT_TRUE(gate.set({25})); // which the library has to spread then
    EXPECT_NE(gate.admit(10'000'000, kStart + 1'000'000), 0);
}

TEST(Pacer, givesALibraryThatSendsAgainABunchAheadUnlessTheQueueIsShort)
{
    Sender paced({25, true, false});
    paced.librarySends = false;
    EXPECT_EQ(paced.run(kStart + 100), (48 + 12'000 / 25) / 12); // at once

    Sender shortQueue({25, true, true});
    shortQueue.librarySends = false;
    EXPECT_EQ(shortQueue.run(kStart + 900'000), 4);
}

TEST(Pacer, leavesThePaceToTheLibraryUntilWhatGatheredIsGone)
{
    Sender sender({25, true, false});
    sender.librarySends = false;
    sender.run(kStart + 100);
    EXPECT_TRUE(sender.gate.set({25, true, false}));
    EXPECT_TRUE(sender.gate.set({25, false, false}));
    EXPECT_NE(sender.gate.admit(kBlock, sender.now), 0);
    for (int packet = 0; packet < 12'000 / 25; ++packet)
        sender.gate.packetSent();
    EXPECT_FALSE(sender.gate.set({25, false, false}));
}

} // namespace
} // namespace quenmoor
