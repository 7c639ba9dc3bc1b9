#include "engine/attempt_event.h"
#include "engine/progress_monitor.h"
#include "tests/engine/engine_fixture.h"

#include <fmt/format.h>

#include <future>

namespace quenmoor {
namespace {

// What the row displays for each sample of a transfer that starts at `offset`, if the samples find
// it at `positions`.
Texts samples(std::int64_t total, std::int64_t offset, const std::vector<std::int64_t>& positions)
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
    const auto keep = [&](const std::optional<ProgressSample>& sample) {
        AttemptEvent event;
        event.kind = AttemptEventKind::Progress;
        event.bytes = sample ? sample->bytes : 0;
        event.total = total;
        event.rate = sample ? sample->rate : 0;
        texts.push_back(sample ? fmt::format("{}, {}%", statusText(event), statusPercent(event))
                               : "end");
    };
    {
        ProgressMonitor monitor(clock, offset, keep);
        started.set_value(&monitor);
        stopped.get_future().wait();
    }
    return texts;
}

TEST(ProgressMonitor, measuresTheRateSinceThePreviousSample)
{
    // The first sample is measured from the origin of the clock, 1001 s before it.
    EXPECT_EQ(samples(104857600, 0, {1000000, 53428800, 104857600}),
              (Texts{"Uploading at 0.001 MB/s, 1%", "Uploading at 50.000 MB/s, 51%",
                     "Uploading at 49.046 MB/s, 100%", "end"}));
    EXPECT_EQ(samples(1000, 500, {500}), (Texts{"Uploading at 0.000 MB/s, 50%", "end"}));
    EXPECT_EQ(samples(1, 0, {}), Texts{"end"});
    // Beyond 32 bits: 5 GiB resumed at 4 GiB.
    EXPECT_EQ(samples(5368709120, 4294967296, {4299161600, 4833935360}),
              (Texts{"Uploading at 4.096 MB/s, 80%", "Uploading at 510.000 MB/s, 90%", "end"}));
}

TEST(ProgressMonitor, roundsTiesToEvenAndLimitsThePercentage)
{
    const std::tuple<std::int64_t, std::int64_t, std::int32_t> rows[]{
        {495, 1000, 50}, {505, 1000, 50}, {0, 0, 100}, {3, 2, 100}, {-3, 2, 0}};
    for (const auto& [bytes, total, percent] : rows)
        EXPECT_EQ(percentSent(bytes, total), percent) << bytes << " of " << total;
}

} // namespace
} // namespace quenmoor
