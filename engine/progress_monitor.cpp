#include "engine/progress_monitor.h"

#include "engine/clock.h"
#include "engine/upload_engine.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr double kBytesPerMegabyte = 1048576;
constexpr double kNanosecondsPerSecond = 1e9;

double megabytesPerSecond(std::int64_t bytes, std::int64_t nanoseconds)
{
    if (nanoseconds == 0)
        return 0;
    return static_cast<double>(bytes) /
           (static_cast<double>(nanoseconds) / kNanosecondsPerSecond * kBytesPerMegabyte);
}

} // namespace

void progressMonitor(ProgressMonitorState& state)
{
    std::int64_t previousBytes = 0;
    // The first sample is measured from the clock's origin, so its rate reads close to 0.000: a
    // resume offset, which nobody sent just now, never shows as a burst.
    std::int64_t previousTime = 0;
    while (state.running) {
        const bool goesOn =
            state.clock.rest(std::chrono::seconds(1), state.transferEnd.get_token());
        const std::int64_t bytes = state.bytesSent;
        const std::int64_t now = state.clock.nanoseconds();
        if (!goesOn || !state.running)
            break;
        const double rate = megabytesPerSecond(bytes - previousBytes, now - previousTime);
        state.controller.reportSample(bytes, state.totalBytes, rate);
        previousBytes = bytes;
        previousTime = now;
    }
    state.controller.statusBarUpdate(false, "Upload rate: 0.000 MB/s");
}

std::int32_t percentSent(std::int64_t bytes, std::int64_t total)
{
    if (total <= 0)
        return 100;
    const double percent = static_cast<double>(bytes) / static_cast<double>(total) * 100;
    return static_cast<std::int32_t>(std::clamp(std::nearbyint(percent), 0.0, 100.0));
}

} // namespace quenmoor
