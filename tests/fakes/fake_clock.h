// A clock that never blocks: a sleep returns at once and advances the time.
#pragma once

#include "engine/clock.h"

#include <condition_variable>
#include <functional>
#include <mutex>

namespace quenmoor {

class FakeClock : public Clock {
public:
    // The program ends at this poll of an empty queue; uploadFile() returns then.
    int idlePolls = 1;
    // Called for every sleep of the progress monitor. Without it such a sleep lasts until the
    // transfer has ended, and no sample is taken.
    std::function<void()> onMonitorSleep;

    bool sleep(std::chrono::milliseconds time, std::stop_token wake) override
    {
        if (wake.stop_possible())
            return monitorSleep(time, std::move(wake));
        const std::lock_guard lock(mutex_);
        now_ += std::chrono::nanoseconds(time).count();
        total_ += time;
        if (time == std::chrono::milliseconds(200) && --idlePolls <= 0)
            ended_ = true;
        return !ended_;
    }

    std::int64_t nanoseconds() const override
    {
        const std::lock_guard lock(mutex_);
        return now_;
    }

    void end() override
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
        woken_.notify_all();
    }

    // Of all sleeps outside the monitor.
    std::chrono::milliseconds totalSleep() const
    {
        const std::lock_guard lock(mutex_);
        return total_;
    }

private:
    bool monitorSleep(std::chrono::milliseconds time, std::stop_token wake)
    {
        if (onMonitorSleep)
            onMonitorSleep();
        std::unique_lock lock(mutex_);
        if (!onMonitorSleep)
            woken_.wait(lock, std::move(wake), [this] { return ended_; });
        else
            now_ += std::chrono::nanoseconds(time).count();
        return !ended_;
    }

    mutable std::mutex mutex_;
    std::condition_variable_any woken_;
    // Guarded by mutex_.
    std::int64_t now_ = 1'000'000'000'000;
    bool ended_ = false;
    std::chrono::milliseconds total_{0};
};

} // namespace quenmoor
