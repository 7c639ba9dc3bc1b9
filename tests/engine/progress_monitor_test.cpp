#include "engine/progress_monitor.h"
#include "tests/engine/engine_fixture.h"

#include <fmt/format.h>

#include <future>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

TEST(SystemClock, sleepsForTheTimeUntilItIsWokenOrTheProgramEnds)
{
    SystemClock clock;
    const std::int64_t before = clock.nanoseconds();
    EXPECT_TRUE(clock.sleepFor(2ms));
    EXPECT_GE(clock.nanoseconds() - before, 2'000'000);
    std::stop_source wake;
    const std::jthread waker([&wake] { wake.request_stop(); });
    EXPECT_TRUE(clock.sleep(1h, wake.get_token()));
    const std::jthread ender([&clock] { clock.end(); });
    EXPECT_FALSE(clock.sleepFor(1h));
    EXPECT_TRUE(clock.ending());
}

// The rates of the samples of a transfer that starts at `offset`, if they find it at `positions`.
Texts rates(std::int64_t offset, const std::vector<std::int64_t>& positions, bool average = false)
{
    FakeClock clock;
    Texts texts;
    std::promise<ProgressMonitor*> started;
    std::promise<void> stopped;
    clock.onMonitorSleep = [&, monitor = started.get_future().share(),
                            next = positions.begin()]() mutable {
        if (next != positions.end())
            return monitor.get()->setBytesSent(*next++);
        monitor.get()->stop();
        stopped.set_value();
    };
    ProgressMonitor monitor(clock, offset, [&texts, average](const auto& sample) {
        if (sample)
            texts.push_back(fmt::format("{:.3f}", average ? sample->averageRate : sample->rate));
    });
    started.set_value(&monitor);
    stopped.get_future().wait();
    return texts;
}

TEST(ProgressMonitor, measuresTheRateSinceThePreviousSample)
{
    // The first sample is measured from the origin of the clock, 1001 s before it.
    EXPECT_EQ(rates(0, {1000000, 53428800, 104857600}), (Texts{"0.001", "50.000", "49.046"}));
    EXPECT_EQ(rates(500, {500, 500}), (Texts{"0.000", "0.000"}));
    EXPECT_EQ(rates(4294967296, {4299161600, 4833935360}), (Texts{"4.096", "510.000"}));
}

TEST(ProgressMonitor, averagesTheLatestThirtySecondsOnceTheyAreThree)
{
    // 100 MiB before the first sample, then 1 MiB a second and from the 34th sample on nothing.
    std::vector<std::int64_t> positions;
    for (std::int64_t i = 0; i < 64; ++i)
        positions.push_back((100 + std::min<std::int64_t>(i, 33)) << 20U);
    const Texts texts = rates(0, positions, true);
    ASSERT_EQ(texts.size(), 64U);
    const std::pair<std::size_t, std::string> rows[]{
        {2, "0.000"}, {3, "1.000"}, {33, "1.000"}, {48, "0.500"}, {63, "0.000"}};
    for (const auto& [sample, text] : rows)
        EXPECT_EQ(texts[sample], text) << sample;

    AttemptEvent event{.kind = AttemptEventKind::Progress, .bytes = 10, .total = (5 << 20) + 11};
    EXPECT_EQ(timeLeft(event), std::nullopt);
    event.averageRate = 0.5;
    EXPECT_EQ(timeLeft(event), 11s);
}

TEST(ProgressMonitor, roundsTiesToEvenAndLimitsThePercentage)
{
    const std::tuple<std::int64_t, std::int64_t, std::int32_t> rows[]{
        {495, 1000, 50}, {505, 1000, 50}, {0, 0, 100},
        {3, 2, 100},     {-3, 2, 0},      {4833935360, 5368709120, 90}};
    for (const auto& [bytes, total, percent] : rows)
        EXPECT_EQ(percentSent(bytes, total), percent) << bytes << " of " << total;
}

} // namespace
} // namespace quenmoor
