#include "engine/clock.h"

namespace quenmoor {

bool SystemClock::sleep(std::chrono::milliseconds time, std::stop_token wake)
{
    if (time.count() > 0 && !ended_) {
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, std::move(wake), time, [this] { return ended_.load(); });
    }
    return !ended_;
}

std::int64_t SystemClock::nanoseconds() const
{
    const auto sinceOrigin = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceOrigin).count();
}

void SystemClock::end()
{
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    wake_.notify_all();
}

} // namespace quenmoor
