#include "engine/progress_monitor.h"

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr double kBytesPerMebibyte = 1048576;
constexpr double kNanosecondsPerSecond = 1e9;

double mebibytesPerSecond(std::int64_t bytes, std::int64_t nanoseconds)
{
    if (nanoseconds == 0)
        return 0;
    return static_cast<double>(bytes) /
           (static_cast<double>(nanoseconds) / kNanosecondsPerSecond * kBytesPerMebibyte);
}

} // namespace

ProgressMonitor::ProgressMonitor(Clock& clock, std::int64_t bytes, Callback callback)
    : clock_(clock),
      callback_(std::move(callback)),
      bytesSent_(bytes),
      thread_([this] { progressMonitor(); })
{
}

ProgressMonitor::~ProgressMonitor()
{
    stop();
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
        callback_(
            ProgressSample{bytes, mebibytesPerSecond(bytes - previousBytes, now - previousTime)});
        previousBytes = bytes;
        previousTime = now;
    }
    callback_(std::nullopt);
}

} // namespace quenmoor
