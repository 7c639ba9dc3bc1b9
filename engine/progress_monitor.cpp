#include "engine/progress_monitor.h"

#include "base/log.h"
#include "engine/attempt_event.h"

#include <system_error>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr double kNanosecondsPerSecond = 1e9;
constexpr std::int64_t kAverageTime = 30'500'000'000; // nanoseconds; a sample may come late
constexpr std::int64_t kShortestAverage = 3'000'000'000;

double mebibytesPerSecond(std::int64_t bytes, std::int64_t nanoseconds)
{
    if (nanoseconds == 0)
        return 0;
    return static_cast<double>(bytes) /
           (static_cast<double>(nanoseconds) / kNanosecondsPerSecond * kBytesPerMebibyte);
}

} // namespace

ProgressMonitor::ProgressMonitor(Clock& clock, std::int64_t bytes, Callback callback)
    : clock_(clock), callback_(std::move(callback)), bytesSent_(bytes)
{
    try {
        thread_ = std::thread([this] { progressMonitor(); });
    } catch (const std::system_error& error) {
        logSystem("Cannot start the progress monitor: {}", error.what());
    }
}

ProgressMonitor::~ProgressMonitor()
{
    stop();
    if (thread_.joinable())
        thread_.join();
}

void ProgressMonitor::progressMonitor()
{
    std::int64_t previousBytes = 0;
    std::int64_t previousTime = 0;
    while (clock_.sleep(1s, stop_.get_token())) {
        const std::int64_t bytes = bytesSent_;
        const std::int64_t now = clock_.nanoseconds();
        if (stop_.stop_requested())
            break;
        callback_(ProgressSample{bytes,
                                 mebibytesPerSecond(bytes - previousBytes, now - previousTime),
                                 previousTime == 0, averageRate(bytes, now)});
        previousBytes = bytes;
        previousTime = now;
    }
    callback_(std::nullopt);
}

double ProgressMonitor::averageRate(std::int64_t bytes, std::int64_t now)
{
    samples_.emplace_back(now, bytes);
    while (now - samples_.front().first > kAverageTime)
        samples_.pop_front();
    const auto& [firstTime, firstBytes] = samples_.front();
    const std::int64_t time = now - firstTime;
    return time < kShortestAverage ? 0 : mebibytesPerSecond(bytes - firstBytes, time);
}

} // namespace quenmoor
