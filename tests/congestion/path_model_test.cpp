#include "tests/fakes/simulated_path.h"

#include <gtest/gtest.h>

#include "congestion/path_model.h"

namespace quenmoor {
namespace {

constexpr Micros kSecond = 1'000'000;
constexpr Micros kStart = 1'000'000; // when a simulated path begins

double packets(double megabits)
{
    return megabits * 1e6 / 8 / 1500;
}

// A queue of one product, as routers have it.
SimulatedLink link(double megabits, Micros roundTrip, double loss = 0, double lossBack = 0)
{
    SimulatedLink made;
    made.rate = packets(megabits);
    made.roundTrip = roundTrip;
    made.loss = loss;
    made.lossBack = lossBack;
    made.queue = made.rate * static_cast<double>(roundTrip) * 1e-6;
    return made;
}

double rateOf(const SimulatedFlow& flow, Micros from, Micros to)
{
    const auto sample = [&](Micros time) {
        return flow.delivered.at(static_cast<std::size_t>(time / 100'000) - 1);
    };
    return static_cast<double>(sample(to) - sample(from)) * 1e6 / static_cast<double>(to - from);
}

struct Expected {
    const char* name;
    SimulatedLink link;
    double share;        // over thirty seconds, start-up included
    double firstSeconds; // over the first eight
};

class PathModelOn : public testing::TestWithParam<Expected> {};

TEST_P(PathModelOn, reachesItsShareWithoutFloodingTheLink)
{
    SimulatedPath path(GetParam().link, 1'700'000'000);
    path.run(kStart + 31 * kSecond);
    EXPECT_GE(path.share(0, 30 * kSecond), GetParam().share);
    EXPECT_GE(path.share(0, 8 * kSecond), GetParam().firstSeconds);
    EXPECT_LE(path.wireOverPayload(), 1.12);
    EXPECT_LT(path.queueAt(0.95), 0.6);
    EXPECT_LT(path.queueAt(0.5), 0.1);
    EXPECT_LT(path.flow().longestRound, kSecond);
    EXPECT_EQ(path.flow().brokenAt, -1);
}

INSTANTIATE_TEST_SUITE_P(
    Links, PathModelOn,
    testing::Values(Expected{"clean20ms", link(500, 20'000), 0.95, 0.93},
                    Expected{"clean40ms", link(100, 40'000), 0.95, 0.93},
                    Expected{"clean100ms", link(200, 100'000), 0.94, 0.85},
                    Expected{"loss001", link(300, 50'000, 0.0001, 0.0001), 0.94, 0.88},
                    Expected{"loss01", link(200, 100'000, 0.001), 0.90, 0.80},
                    Expected{"loss01back", link(200, 100'000, 0.001, 0.001), 0.90, 0.80},
                    Expected{"loss05", link(100, 200'000, 0.005), 0.74, 0.45},
                    Expected{"loss05back", link(100, 200'000, 0.005, 0.005), 0.74, 0.45},
                    Expected{"loss1", link(50, 100'000, 0.01), 0.76, 0.65},
                    Expected{"loss1back", link(50, 100'000, 0.01, 0.01), 0.68, 0.6}),
    [](const auto& each) { return std::string(each.param.name); });

TEST(PathModel, startsFromThirtyTwoPacketsAndDoublesEveryRoundTrip)
{
    SimulatedPath path(link(200, 100'000));
    path.run(kStart + 50'000);
    EXPECT_EQ(path.flow().wire, 32); // nothing was heard yet
    EXPECT_EQ(path.flow().model.bandwidth(), 0);
    path.run(kStart + kSecond);
    EXPECT_GT(path.flow().model.bandwidth(), 0.8 * packets(200));
    EXPECT_LT(path.flow().model.bandwidth(), 1.1 * packets(200));
    EXPECT_EQ(path.dropped(), 0);
}

TEST(PathModel, startsOverAsQuicklyAfterASmallMessage)
{
    // One packet, and the file a second later: its lone round says nothing about the rate.
    SimulatedPath path(link(200, 100'000));
    path.flow().offered = [](Micros now) { return now < kStart + kSecond ? 1 : INT64_MAX; };
    path.run(kStart + 2 * kSecond);
    EXPECT_GT(path.flow().model.bandwidth(), 0.6 * packets(200));
}

TEST(PathModel, keepsAFastLocalNetworkBusyInSpiteOfCoarseTicks)
{
    SimulatedLink fast = link(1000, 1'000);
    fast.queue = 1600; // 20 ms
    fast.tick = 8'000;
    SimulatedPath path(fast);
    path.run(kStart + 6 * kSecond);
    EXPECT_GT(path.share(kSecond, 5 * kSecond), 0.95);
    EXPECT_EQ(path.dropped(), 0);
}

TEST(PathModel, followsAFallToAFifthWithinThreeSecondsAndItsReturn)
{
    for (const double depth : {1.0, 4.0}) {
        SimulatedLink falling = link(100, 40'000);
        falling.queue *= depth;
        falling.schedule = {{kStart + 10 * kSecond, packets(20)},
                            {kStart + 20 * kSecond, packets(100)}};
        SimulatedPath path(falling);
        path.run(kStart + 13 * kSecond);
        EXPECT_LT(path.flow().model.bandwidth(), 1.3 * packets(20)) << depth;
        EXPECT_GT(path.flow().model.bandwidth(), 0.85 * packets(20)) << depth;
        path.run(kStart + 31 * kSecond);
        EXPECT_GT(path.share(13 * kSecond, 20 * kSecond), 0.9) << depth;
        EXPECT_GT(path.share(21 * kSecond, 22 * kSecond), 0.9) << depth;
        EXPECT_GT(path.share(22 * kSecond, 30 * kSecond), 0.95) << depth;
        EXPECT_LT(path.flow().longestRound, kSecond) << depth;
        EXPECT_LE(path.wireOverPayload(), 1.12) << depth;
    }
}

TEST(PathModel, sharesWithASecondFlow)
{
    SimulatedPath path(link(100, 40'000));
    SimulatedFlow& second = path.add(kStart + 5 * kSecond);
    path.run(kStart + 36 * kSecond);
    const double first = rateOf(path.flow(), 25 * kSecond, 35 * kSecond);
    const double other = rateOf(second, 20 * kSecond, 30 * kSecond);
    EXPECT_GT(first + other, 0.95 * packets(100));
    EXPECT_LT(std::max(first, other), 0.6 * (first + other));
    EXPECT_LE(path.wireOverPayload(0), 1.12);
    EXPECT_LE(path.wireOverPayload(1), 1.12);
    EXPECT_LT(path.queueAt(0.95), 0.95); // no overflow of the queue of one product
}

TEST(PathModel, learnsWithinTwelveSecondsThatThePathBecameLonger)
{
    // Until then it looks like a queue that stands.
    SimulatedLink rerouted = link(100, 40'000);
    rerouted.longerFrom = kStart + 5 * kSecond;
    SimulatedPath path(rerouted);
    path.run(kStart + 17 * kSecond);
    EXPECT_NEAR(static_cast<double>(path.flow().model.minRtt()), 80'000, 2'000);
    path.run(kStart + 26 * kSecond);
    EXPECT_GT(path.share(18 * kSecond, 25 * kSecond), 0.95);
}

TEST(PathModel, cutsItsRateWhereABufferIsTooShortToShowAQueue)
{
    SimulatedLink falling = link(100, 40'000);
    falling.queue *= 0.2;
    falling.schedule = {{kStart + 5 * kSecond, packets(20)}};
    SimulatedPath path(falling);
    path.run(kStart + 8 * kSecond);
    EXPECT_LT(path.flow().model.bandwidth(), 1.3 * packets(20));
    EXPECT_GT(path.flow().model.bandwidth(), 0.85 * packets(20));
    path.run(kStart + 16 * kSecond);
    EXPECT_GT(path.share(8 * kSecond, 15 * kSecond), 0.85);
    EXPECT_LE(path.wireOverPayload(), 1.12);
}

TEST(PathModel, keepsItsRateAndItsProgressAtThreePerCentLoss)
{
    // The acknowledgement stops twice a second; only the library's timer moves it again.
    SimulatedPath path(link(100, 40'000, 0.03));
    path.run(kStart + 21 * kSecond);
    EXPECT_GT(path.flow().model.bandwidth(), 0.9 * packets(100));
    EXPECT_GT(path.share(0, 20 * kSecond), 0.4);
    EXPECT_LT(path.flow().longestRound, kSecond / 2);
    // Most of a window goes out again each time, so it must not have grown meanwhile.
    EXPECT_LT(path.wireOverPayload(), 1.25);
}

TEST(PathModel, takesAReportOfAHundredPacketsInItsStride)
{
    SimulatedLink holed = link(200, 100'000);
    holed.hole = {100'000, 100'099};
    SimulatedPath path(holed);
    path.run(kStart + 15 * kSecond);
    EXPECT_GT(path.share(4 * kSecond, 14 * kSecond), 0.93);
    EXPECT_EQ(path.flow().timeOuts, 0);
    EXPECT_LT(path.wireOverPayload(), 1.02);
}

TEST(PathModel, doesNotTakeThePausesOfTheApplicationForThePath)
{
    // Half a second of sending at a quarter of the link, half a second of nothing.
    SimulatedPath path(link(100, 40'000));
    path.flow().offered = [](Micros now) -> std::int64_t {
        const Micros since = now - kStart;
        if (since < 5 * kSecond || since > 12 * kSecond)
            return INT64_MAX;
        const Micros sending = since % kSecond < 500'000 ? since % 500'000 : 500'000;
        const Micros total = since / kSecond * 500'000 + sending;
        return 50'000 + static_cast<std::int64_t>(packets(25) * static_cast<double>(total) * 1e-6);
    };
    path.run(kStart + 11'900'000);
    EXPECT_GT(path.flow().model.bandwidth(), 0.8 * packets(100));
    path.run(kStart + 16 * kSecond);
    EXPECT_GT(path.share(12'500'000, 15 * kSecond), 0.93);
    EXPECT_EQ(path.dropped(), 0);
}

TEST(PathModel, doesNotNoticeThatTheNumbersWrap)
{
    SimulatedPath plain(link(100, 40'000, 0.001), 1'000'000);
    SimulatedPath wrapping(link(100, 40'000, 0.001), (std::int64_t{1} << 31) - 50'000);
    plain.run(kStart + 15 * kSecond);
    wrapping.run(kStart + 15 * kSecond);
    EXPECT_GT(wrapping.share(0, 14 * kSecond), 0.93);
    EXPECT_NEAR(wrapping.share(0, 14 * kSecond), plain.share(0, 14 * kSecond), 0.03);
}

TEST(PathModel, leavesADeadPeerNoLaterThanTheLibraryWould)
{
    for (const Micros roundTrip : {Micros{1'000}, Micros{100'000}, Micros{300'000}}) {
        SimulatedLink dying = link(50, roundTrip);
        dying.queue = std::max(dying.queue, 200.0);
        dying.deadFrom = kStart + 3 * kSecond;
        SimulatedPath path(dying);
        path.run(kStart + 70 * kSecond);
        const Micros library = 46 * kSecond; // measured
        EXPECT_GT(path.flow().brokenAt, kStart + 15 * kSecond) << roundTrip;
        EXPECT_LE(path.flow().brokenAt, kStart + 3 * kSecond + library) << roundTrip;
    }
}

TEST(PathModel, goesOnAfterFiveSecondsOfSilence)
{
    SimulatedLink dying = link(100, 40'000);
    dying.deadFrom = kStart + 3 * kSecond;
    dying.deadUntil = kStart + 8 * kSecond;
    SimulatedPath path(dying);
    path.run(kStart + 16 * kSecond);
    EXPECT_EQ(path.flow().brokenAt, -1);
    EXPECT_GT(path.share(11 * kSecond, 15 * kSecond), 0.9);
}

// What a peer could send to mislead the sender.
TEST(PathModel, leavesOutWhatCannotBe)
{
    PathModel model(1000, 0);
    for (std::int64_t number = 1000; number < 1100; ++number)
        model.onSent(number, (number - 1000) * 100);
    for (std::int64_t next = 1012; next < 1060; next += 12)
        model.onAcknowledged(next, 50'000 + (next - 1000) * 100);
    const Micros now = 60'000;
    model.onReportedLost({1080, 1085}, now);
    ASSERT_GT(model.bandwidth(), 0);
    const std::int64_t rounds = model.rounds();
    const Pace before = model.pace();
    model.onAcknowledged(5000, now);         // never sent
    model.onAcknowledged(1000, now);         // long known
    model.onReportedLost({1, 900}, now);     // before the first
    model.onReportedLost({2000, 3000}, now); // never sent
    model.onReportedLost({1095, 1090}, now); // backwards
    model.onReportedLost({1099, 1099}, now); // nothing after it went out
    model.onReportedLost({1080, 1085}, now); // told before
    EXPECT_EQ(model.rounds(), rounds);
    EXPECT_EQ(model.pace().window, before.window);
    EXPECT_EQ(model.pace().libraryPeriod, before.libraryPeriod);
}

TEST(SentPackets, takesNoRoundTripFromPacketsThatWentOutTwice)
{
    SentPackets flight(0, 0);
    for (std::int64_t number = 0; number < 40; ++number)
        flight.onSent(number, number, 0);
    EXPECT_EQ(flight.onAcknowledged(10, 109), 100);
    EXPECT_EQ(flight.onReportedLost({12, 13}, 114), 100); // 14 has arrived
    flight.onSent(20, 150, 0);
    EXPECT_EQ(flight.onReportedLost({18, 19}, 160), std::nullopt); // which 20 it was, is not known
    EXPECT_EQ(flight.onAcknowledged(12, 170), std::nullopt);       // held by holes
    EXPECT_EQ(flight.missing(), 4);
    EXPECT_EQ(flight.lastArrival().delivered, 21 - 4);
}

TEST(PathModel, neverPacesFasterOrSlowerThanMakesSense)
{
    std::mt19937_64 random(3);
    PathModel model(0, 0);
    std::int64_t next = 0;
    Micros now = 0;
    for (int i = 0; i < 200'000; ++i) {
        now += static_cast<Micros>(random() % 3000);
        const auto near = next - static_cast<std::int64_t>(random() % 3000);
        switch (random() % 8) {
        case 0: model.onAcknowledged(near, now); break;
        case 1:
            model.onReportedLost({near, near + static_cast<std::int64_t>(random() % 5)}, now);
            break;
        case 2:
            random() % 50 == 0 ? model.onTimeout(now) : model.onSent(std::max(near, {}), now);
            break;
        default: model.onSent(next++, now);
        }
        ASSERT_GT(model.pace().libraryPeriod, 0);
        ASSERT_LE(model.pace().libraryPeriod, 1e6);
        ASSERT_GE(model.pace().window, 0);
        ASSERT_GE(model.pace().timeout, 10'000);
        ASSERT_LE(model.pace().timeout, 60 * kSecond);
    }
}

TEST(PacketNumber, unwrapsToTheNearest)
{
    constexpr std::int64_t kWrap = std::int64_t{1} << 31;
    EXPECT_EQ(unwrapped(5, 3), 5);
    EXPECT_EQ(unwrapped(INT32_MAX, kWrap + 10), kWrap - 1);
    EXPECT_EQ(unwrapped(2, kWrap - 10), kWrap + 2);
    EXPECT_EQ(unwrapped(7, 5 * kWrap + 1), 5 * kWrap + 7);
    EXPECT_EQ(unwrapped(INT32_MAX, 5 * kWrap), 5 * kWrap - 1);
}

TEST(LossReport, isDecodedWhateverThePeerSends)
{
    constexpr std::int64_t kNear = (std::int64_t{1} << 31) + 5;
    const auto pair = [](std::int32_t number) { return number | INT32_MIN; };
    const std::vector<std::int32_t> report{7, pair(INT32_MAX), 2, 9, pair(11), 12, pair(20)};
    std::vector<std::int64_t> ends;
    for (const NumberRange& range : decodeLossReport(report, kNear)) {
        ends.push_back(range.first - kNear);
        ends.push_back(range.last - kNear);
    }
    EXPECT_EQ(ends, (std::vector<std::int64_t>{2, 2, -6, -3, 4, 4, 6, 7}));
    EXPECT_TRUE(decodeLossReport({}, kNear).empty());
}

TEST(LossRanges, keepsRangesApartAndCountsWhatIsNew)
{
    LossRanges set;
    EXPECT_EQ(set.insert({10, 12}), 3);
    EXPECT_EQ(set.insert({14, 14}), 1);
    EXPECT_EQ(set.insert({11, 15}), 2); // 13 and 15
    EXPECT_EQ(set.insert({5, 20}), 10);
    EXPECT_EQ(set.insert({7, 8}), 0);
    set.eraseBelow(12);
    EXPECT_EQ(set.count(), 9);
    EXPECT_FALSE(set.contains(11));
    EXPECT_TRUE(set.contains(12));
    EXPECT_EQ(set.highest(), 20);
    set.eraseBelow(21);
    EXPECT_TRUE(set.empty());
}

} // namespace
} // namespace quenmoor
