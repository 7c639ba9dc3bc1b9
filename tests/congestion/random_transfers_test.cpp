#include "tests/fakes/simulated_path.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace quenmoor {
namespace {

constexpr Micros kLength = 60'000'000;

struct RandomTransfer {
    SimulatedLink link;
    Micros supplyTime = kLength; // how long the application supplies data before each pause
    Micros pause = 0;
    double supplyRate = 1e9; // packets per second

    // Packets that the application has supplied by `now`.
    std::int64_t supplied(Micros now) const
    {
        const Micros since = now - SimulatedPath::kStart;
        const Micros cycle = supplyTime + pause;
        const Micros active = since / cycle * supplyTime + std::min(since % cycle, supplyTime);
        return 1 + std::llround(supplyRate * static_cast<double>(active) * 1e-6);
    }
};

class Draw {
public:
    explicit Draw(std::uint64_t seed) : random_(seed) {}

    double between(double from, double to)
    {
        return from + (to - from) * (static_cast<double>(random_() >> 11) * 0x1p-53);
    }
    double logarithmic(double from, double to) { return from * std::pow(to / from, between(0, 1)); }
    Micros micros(double from, double to) { return std::llround(1e6 * logarithmic(from, to)); }
    // Zero except in one of `count` cases.
    double sometimes(int count, double from, double to)
    {
        return oneIn(count) ? logarithmic(from, to) : 0;
    }
    bool oneIn(int count) { return random_() % static_cast<std::uint64_t>(count) == 0; }

private:
    std::mt19937_64 random_;
};

// A link of 1 Mbit/s to 1 Gbit/s with a round trip of 1 to 300 ms and a queue of two blocks to two
// bandwidth-delay products, that loses up to 5 % each way and may delay, reorder and duplicate
// packets, deliver them in bursts, change its rate and have a receiver with coarse timers.
RandomTransfer randomTransfer(std::uint64_t seed)
{
    Draw draw(seed);
    RandomTransfer made;
    SimulatedLink& link = made.link;
    link.seed = seed;
    link.rate = draw.logarithmic(1, 1000) * 1e6 / 8 / 1500;
    link.roundTrip = draw.micros(0.001, 0.3);
    const double roundTrip = static_cast<double>(link.roundTrip) * 1e-6;
    double queue = draw.logarithmic(0.002, std::max(0.002, 2 * roundTrip)); // seconds
    link.loss = draw.sometimes(2, 1e-4, 0.05);
    link.lossBack = draw.sometimes(2, 1e-4, 0.05);
    link.jitter = std::llround(1e6 * draw.sometimes(3, 0.0005, 0.02));
    if (draw.oneIn(4)) {
        link.burst = draw.micros(0.001, 0.02);
        queue = std::max(queue, static_cast<double>(link.burst) * 1e-6);
    }
    link.queue = std::max(24.0, link.rate * queue);
    link.reordered = draw.sometimes(4, 1e-4, 0.01);
    link.duplicated = draw.sometimes(4, 1e-4, 0.05);
    if (draw.oneIn(3))
        link.idleTimer = 100'000;
    link.ackTimer = draw.micros(0.01, 0.03);
    link.sleep = draw.micros(0.001, 0.008);
    if (draw.oneIn(4))
        for (Micros time = 0; time < kLength; time += draw.micros(3, 30))
            link.rates.emplace_back(SimulatedPath::kStart + time,
                                    link.rate * draw.between(0.25, 1));
    if (draw.oneIn(4)) {
        made.supplyTime = draw.micros(0.1, 10);
        made.pause = draw.micros(0.1, 10);
        made.supplyRate = link.rate * draw.logarithmic(0.1, 2);
    }
    return made;
}

std::int64_t setting(const char* name, const char* otherwise)
{
    const char* const value = std::getenv(name);
    return std::atoll(value != nullptr ? value : otherwise);
}

// TRANSFERS is the number of transfers and FIRST_SEED the seed of the first; scripts/long-run sets
// them.
TEST(RandomTransfers, useTheirLinksWithoutStallsAndFloods)
{
    const std::int64_t first = setting("FIRST_SEED", "8");
    const std::int64_t count = setting("TRANSFERS", "6");
    double stall = 0;
    double wire = 0;
    for (std::int64_t seed = first; seed < first + count; ++seed) {
        SCOPED_TRACE(seed);
        const RandomTransfer transfer = randomTransfer(static_cast<std::uint64_t>(seed));
        // The sequence numbers wrap.
        SimulatedPath path(transfer.link, (std::int64_t{1} << 31) - 5'000);
        SimulatedFlow& flow = path.flow();
        flow.supplied = [&](Micros now) { return transfer.supplied(now); };
        path.run(SimulatedPath::kStart + kLength);
        // In the model's timeouts, of which the library's is two. Bursts raise the estimated rate.
        const bool bursts = transfer.link.burst > 1;
        EXPECT_LE(flow.longestStall, bursts ? 5 : 4);
        EXPECT_LE(path.wireOverPayload(flow), bursts ? 2.5 : 1.5);
        // Of what the link can carry or the application supplies. Losses over 2 % are near those
        // that lower the rate.
        const double supplied =
            static_cast<double>(transfer.supplied(SimulatedPath::kStart + kLength));
        const double share =
            std::max(path.share(0, kLength), static_cast<double>(flow.payload()) / supplied);
        EXPECT_GE(share, transfer.link.loss > 0.02 ? 0.05 : 0.2);
        EXPECT_EQ(flow.brokenAt, -1);
        stall = std::max(stall, flow.longestStall);
        wire = std::max(wire, path.wireOverPayload(flow));
    }
    RecordProperty("longest_stall_in_timeouts", std::to_string(stall / 2));
    RecordProperty("highest_wire_over_payload", std::to_string(wire));
}

} // namespace
} // namespace quenmoor
