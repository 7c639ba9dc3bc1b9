#include "tests/fakes/simulated_path.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

constexpr Micros kSecond = 1'000'000;
constexpr Micros kStart = SimulatedPath::kStart;

double packets(double megabits)
{
    return megabits * 1e6 / 8 / 1500;
}

// Loses `loss` each way. The queue holds `depth` bandwidth-delay products.
SimulatedLink link(double megabits, Micros roundTrip, double loss = 0, double depth = 1,
                   SimulatedLink made = {})
{
    made.rate = packets(megabits);
    made.roundTrip = roundTrip;
    made.queue = depth * made.rate * static_cast<double>(roundTrip) * 1e-6;
    made.loss = made.lossBack = loss;
    return made;
}

SimulatedLink falling(double depth)
{
    const double slow = packets(20);
    return link(100, 40'000, 0, depth,
                {.rates = {{kStart + 10 * kSecond, slow}, {kStart + 20 * kSecond, 5 * slow}}});
}

struct Utilisation {
    double from, to; // seconds since the start
    double atLeast;  // share of the link
};

struct Scenario {
    const char* name;
    SimulatedLink link;
    std::vector<Utilisation> utilisation;
    double wireOverPayload = 1.12;
    double queue = 0.6; // bandwidth-delay products, 95th percentile
    int timeouts = 0;   // at most

    friend void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }
};

class PathModelOn : public testing::TestWithParam<Scenario> {};

TEST_P(PathModelOn, usesTheLinkWithoutFloodingIt)
{
    const Scenario& scenario = GetParam();
    // The sequence numbers wrap after 50,000 packets.
    SimulatedPath path(scenario.link, (std::int64_t{1} << 31) - 50'000);
    PathModel& model = path.flow().model;
    for (const auto& [from, to, atLeast] : scenario.utilisation) {
        const auto end = static_cast<Micros>(to * 1e6);
        path.run(kStart + end);
        EXPECT_GE(path.share(static_cast<Micros>(from * 1e6), end), atLeast) << from;
        EXPECT_LE(model.bandwidth(), 1.3 * path.rateAt(kStart + end - 1)) << to;
        EXPECT_GE(model.bandwidth(), 0.7 * path.rateAt(kStart + end - 1)) << to;
    }
    EXPECT_LE(path.wireOverPayload(path.flow()), scenario.wireOverPayload);
    EXPECT_LT(path.longQueue(), scenario.queue);
    EXPECT_LE(path.flow().timeouts, scenario.timeouts);
    EXPECT_LE(path.flow().longestStall, 4); // twice the library's timeout, twice the model's own
    EXPECT_LE(path.flow().needlessRepairs, path.flow().payload() / 100);
    EXPECT_EQ(path.flow().brokenAt, -1);
}

const std::vector<Utilisation> kFallAndRise{
    {11, 13, 0}, {13, 19, 0.95}, {21, 23, 0.92}, {22, 30, 0.95}};

const Scenario kScenarios[]{
    {"clean40ms", link(100, 40'000), {{0, 8, 0.93}, {0, 30, 0.95}}},
    {"loss001", link(300, 50'000, 0.0001), {{0, 8, 0.88}, {0, 30, 0.94}}, 1.01},
    {"loss01back", link(200, 100'000, 0.001), {{0, 8, 0.8}, {0, 30, 0.92}}, 1.02},
    {"loss05back", link(100, 200'000, 0.005), {{0, 8, 0.6}, {0, 30, 0.86}}, 1.04},
    {"loss1back", link(50, 100'000, 0.01), {{0, 8, 0.75}, {0, 30, 0.9}}, 1.04},
    {"loss2back", link(100, 40'000, 0.02), {{0, 8, 0.8}, {0, 30, 0.88}}, 1.04},
    {"loss1andReordering",
     link(50, 100'000, 0.01, 1, {.idleTimer = 100'000, .reordered = 0.01}),
     {{0, 30, 0.88}},
     1.04},
    {"shallowBuffer", link(100, 40'000, 0, 0.1), {{0, 30, 0.85}, {10, 30, 0.93}}, 1.05},
    {"queueOfTwoMilliseconds", link(500, 20'000, 0, 0.1), {{2, 8, 0.92}}, 1.03, 0.6, 2},
    {"queueShorterThanABlock", link(20, 40'000, 0, 0.125), {{20, 30, 0.8}}, 1.1, 0.6, 2},
    {"jitter", link(100, 40'000, 0, 1, {.jitter = 20'000}), {{10, 30, 0.95}}, 1.01, 0.65},
    {"jitterAndLoss", link(100, 40'000, 0.01, 1, {.jitter = 20'000}), {{16, 30, 0.8}}, 1.04},
    {"burstsOfTwoRtt", link(200, 20'000, 0, 4, {.burst = 40'000}), {{0, 10, 0.55}}, 1.01, 2},
    // The sending thread's sleep is eight times the RTT.
    {"localNetwork", link(1000, 1'000, 0, 20, {.sleep = 8'000}), {{1, 5, 0.95}}, 1.001, 19},
    {"rateFallsToAFifth", falling(1), kFallAndRise, 1.12, 1, 5},
    {"rateFallsBehindALongQueue", falling(4), kFallAndRise, 1.12, 1.6},
    {"rateFallsBehindAShallowBuffer", falling(0.2), {{11, 13, 0}, {13, 19, 0.85}}, 1.12, 0.6, 10},
    // Until the min RTT expires, the longer RTT looks like a standing queue.
    {"rttDoubles", link(100, 40'000, 0, 1, {.longerFrom = kStart + 5 * kSecond}), {{18, 25, 0.95}}},
    // A reordered packet is reported lost and retransmitted, and then arrives twice.
    {"reordering",
     link(100, 40'000, 0, 1, {.reordered = 0.01}),
     {{0, 8, 0.9}, {2, 20, 0.94}},
     1.03},
    {"duplication",
     link(100, 40'000, 0, 1, {.duplicated = 0.05}),
     {{0, 8, 0.93}, {2, 20, 0.95}},
     1.01}};
INSTANTIATE_TEST_SUITE_P(Links, PathModelOn, testing::ValuesIn(kScenarios),
                         [](const auto& each) { return std::string(each.param.name); });

TEST(PathModel, startsWithThirtyTwoPacketsAndDoublesItsRateEachRoundTrip)
{
    SimulatedPath path(link(200, 100'000));
    path.run(kStart + 50'000);
    EXPECT_EQ(path.flow().wire, 32); // no feedback yet
    EXPECT_EQ(path.flow().model.bandwidth(), 0);
    path.run(kStart + kSecond);
    EXPECT_GT(path.flow().model.bandwidth(), 0.8 * packets(200));
    EXPECT_EQ(path.dropped(), 0);

    // The library paces what it retransmits if that is more than a millisecond of packets.
    for (const int lost : {1, 30}) {
        const std::int64_t first = path.flow().acknowledged;
        path.flow().model.onReportedLost({first, first + lost - 1}, kStart + kSecond);
        EXPECT_EQ(path.flow().model.retransmitting(), lost > 1);
    }

    // A single packet a second before the file does not delay that.
    SimulatedPath late(link(200, 100'000));
    late.flow().supplied = [](Micros now) { return now < kStart + kSecond ? 1 : INT64_MAX; };
    late.run(kStart + 2 * kSecond);
    EXPECT_GT(late.flow().model.bandwidth(), 0.6 * packets(200));
}

TEST(PathModel, sharesTheLinkWithASecondFlow)
{
    SimulatedPath path(link(100, 40'000));
    SimulatedFlow& second = path.add(kStart + 5 * kSecond);
    path.run(kStart + 25 * kSecond);
    const std::int64_t before = second.payload();
    path.run(kStart + 35 * kSecond);
    const double first = path.share(25 * kSecond, 35 * kSecond);
    const double other = static_cast<double>(second.payload() - before) / (10 * packets(100));
    EXPECT_GT(first + other, 0.95);
    EXPECT_LT(std::max(first, other), 0.6 * (first + other));
    EXPECT_LE(path.wireOverPayload(path.flow()), 1.12);
    EXPECT_LE(path.wireOverPayload(second), 1.12);
    EXPECT_LT(path.longQueue(), 0.95);
}

TEST(PathModel, doesNotTakePausesOfTheApplicationForTheRateOfThePath)
{
    // From the sixth second to the twelfth: half a second at a quarter of the link, then a pause.
    SimulatedPath path(link(100, 40'000));
    path.flow().supplied = [](Micros now) -> std::int64_t {
        const Micros since = now - kStart;
        if (since < 5 * kSecond || since > 12 * kSecond)
            return INT64_MAX;
        const Micros active =
            since / kSecond * 500'000 + std::min<Micros>(since % kSecond, 500'000);
        return 50'000 + static_cast<std::int64_t>(packets(25) * static_cast<double>(active) * 1e-6);
    };
    path.run(kStart + 11'900'000);
    EXPECT_GT(path.flow().model.bandwidth(), 0.8 * packets(100));
    path.run(kStart + 16 * kSecond);
    EXPECT_GT(path.share(12'500'000, 15 * kSecond), 0.93);
    EXPECT_EQ(path.dropped(), 0);
}

TEST(PathModel, survivesFiveSecondsOfSilenceAndGivesUpADeadPeerLikeTheLibrary)
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

        dying.deadUntil = kStart + 8 * kSecond;
        SimulatedPath silent(dying);
        silent.run(kStart + 16 * kSecond);
        EXPECT_EQ(silent.flow().brokenAt, -1);
        EXPECT_GT(silent.share(11 * kSecond, 15 * kSecond), 0.8) << roundTrip;
    }
}

TEST(PathModel, keepsItsResultsInRangeAndIgnoresFeedbackThatCannotBeTrue)
{
    std::mt19937_64 random(3);
    PathModel model(0, 0);
    std::int64_t next = 0;
    std::int64_t acknowledged = 0;
    Micros now = 0;
    for (int i = 0; i < 200'000; ++i) {
        now += static_cast<Micros>(random() % 3000);
        const auto near = next - static_cast<std::int64_t>(random() % 3000);
        const NumberRange range{near, near + static_cast<int>(random() % 5)};
        const auto event = random() % 8;
        const std::int64_t rounds = model.rounds();
        switch (event) {
        case 0: model.onAcknowledged(near, now); break;
        case 1: model.onReportedLost(range, now); break;
        case 2:
            random() % 50 == 0 ? model.onTimeout(now) : model.onSent(std::max(near - 1, {}), now);
            break;
        default: model.onSent(next++, now);
        }
        const Pace pace = model.pace();
        ASSERT_TRUE(pace.libraryPeriod > 0 && pace.libraryPeriod <= 1e6) << pace.libraryPeriod;
        ASSERT_GE(pace.window, 0);
        ASSERT_TRUE(pace.timeout >= 10'000 && pace.timeout <= 60 * kSecond) << pace.timeout;
        if (event > 1 || model.rounds() != rounds)
            continue;
        acknowledged = std::max(acknowledged, event == 0 ? near : 0);
        constexpr NumberRange kEmpty{1, 0};
        model.onAcknowledged(next + 1, now);                             // not sent
        model.onAcknowledged(acknowledged, now);                         // already acknowledged
        for (const NumberRange& untrue : {NumberRange{-900, -1},         // before the first packet
                                          {next, next + 100},            // not sent
                                          {next - 1, next - 1},          // no later packet was sent
                                          {range.last + 1, range.first}, // reversed
                                          event == 1 ? range : kEmpty})  // already reported
            model.onReportedLost(untrue, now);
        ASSERT_EQ(model.rounds(), rounds);
        ASSERT_EQ(model.pace().window, pace.window);
        ASSERT_EQ(model.pace().libraryPeriod, pace.libraryPeriod);
    }
}

TEST(SentPackets, countsEachMissingPacketOnceAndTakesNoRttSampleFromRetransmittedPackets)
{
    SentPackets sent(0, 0);
    for (std::int64_t number = 0; number < 40; ++number)
        sent.onSent(number, number, 0);
    EXPECT_EQ(sent.onAcknowledged(10, 109), 100);
    EXPECT_EQ(sent.onReportedLost({12, 13}, 114), 100); // packet 14 has arrived
    EXPECT_EQ(sent.onReportedLost({12, 13}, 114), 100); // a duplicate counts once
    sent.onSent(20, 150, 0);
    EXPECT_EQ(sent.onReportedLost({18, 19}, 160), std::nullopt); // caused by either copy of 20
    EXPECT_EQ(sent.onAcknowledged(12, 170), std::nullopt);       // delayed by missing packets
    EXPECT_EQ(sent.missing(), 4);
    EXPECT_EQ(sent.lastArrival().delivered, 21 - 4);

    // Ranges that overlap, enclose others, lie within one, and are cut by an acknowledgement.
    for (const auto& [lost, losses] : {std::pair{NumberRange{24, 26}, 7},
                                       {{28, 28}, 8},
                                       {{25, 29}, 10},
                                       {{22, 34}, 17},
                                       {{30, 31}, 17}}) {
        sent.onReportedLost(lost, 200);
        EXPECT_EQ(sent.losses(), losses) << lost.first;
    }
    sent.onAcknowledged(26, 210);
    EXPECT_EQ(sent.missing(), 9);
    EXPECT_EQ(sent.firstMissingFrom(0), 26);
    sent.onAcknowledged(40, 220);
    EXPECT_EQ(sent.firstMissingFrom(0), std::nullopt);
}

TEST(ResendPlanner, repairsThePacketOfTheAcknowledgementOnlyOnceItsRetransmissionIsOverdue)
{
    constexpr Micros kTimeout = 100'000;
    SentPackets sent(0, 0);
    ResendPlanner planner;
    const auto next = [&](Micros now) {
        const std::optional<std::int64_t> number = planner.next(sent, kTimeout, 1000, now);
        sent.onResent(number.value_or(-1), now);
        return number;
    };
    for (std::int64_t number = 0; number < 40; ++number)
        sent.onSent(number, number * 1000, 0);
    sent.onAcknowledged(3, 60'000);
    sent.onReportedLost({3, 4}, 70'000);
    sent.onReportedLost({30, 30}, 80'000);
    EXPECT_EQ(next(90'000), std::nullopt); // the library is going to retransmit them
    for (const std::int64_t number : {3, 4, 30})
        sent.onSent(number, 90'000, 0);
    for (std::int64_t number = 40; number < 60; ++number)
        sent.onSent(number, 91'000 + (number - 40) * 1000, 0);
    sent.onReportedLost({50, 50}, 150'000); // 51 has arrived, which was sent 12 ms later
    EXPECT_EQ(next(150'000), std::nullopt); // the acknowledgement may be under way
    sent.onReportedLost({54, 54}, 152'000);
    EXPECT_EQ(next(152'000), 3);
    EXPECT_EQ(next(153'000), std::nullopt);
    Micros now = 152'000;
    for (const int backOff : {1, 2, 4, 8, 8}) {
        EXPECT_EQ(next(now + backOff * kTimeout), std::nullopt);
        now += backOff * kTimeout + 1;
        EXPECT_EQ(next(now), 3);
    }
    EXPECT_TRUE(planner.gaveUp());
    EXPECT_EQ(next(now + 9 * kTimeout), std::nullopt);
    EXPECT_EQ(sent.onAcknowledged(4, now + 1000), std::nullopt);
    EXPECT_EQ(next(now + 1000), 4); // overdue too: the first of a batch of two
    EXPECT_FALSE(planner.gaveUp());
    EXPECT_EQ(next(now + 1600), std::nullopt); // before the time of a packet has passed
    EXPECT_EQ(next(now + 1700), 30);
    EXPECT_EQ(next(now + 3000), std::nullopt);
}

TEST(LossReport, isDecodedAroundTheWrapOfTheNumbers)
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

} // namespace
} // namespace quenmoor
