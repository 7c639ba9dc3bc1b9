// A clock that never waits: rests return at once and move its time forward.
#pragma once

#include "engine/clock.h"

#include <condition_variable>
#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

class FakeClock : public Clock {
public:
    // The program ends at this poll of an empty queue, so that a test's uploadFile() returns.
    int idlePolls = 1;
    // Called in the place of every rest of the monitor; without it, such a rest lasts until the
    // transfer has ended, and no sample is taken.
    std::function<void()> onMonitorSleep;
    // Called before every other rest that takes time.
    std::function<void(std::chrono::milliseconds)> onRest;

    bool sleep(std::chrono::milliseconds time, std::stop_token wake) override
    {
        if (wake.stop_possible())
            return monitorSleep(time, std::move(wake));
        if (time.count() > 0 && onRest)
            onRest(time);
        const std::lock_guard lock(mutex_);
        now_ += std::chrono::nanoseconds(time).count();
        if (time.count() > 0)
            rests_.push_back(time);
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

    // Every rest that was asked for outside the monitor, in order.
    std::vector<std::chrono::milliseconds> rests() const
    {
        const std::lock_guard lock(mutex_);
        return rests_;
    }

    std::chrono::milliseconds restedInAll() const
    {
        std::chrono::milliseconds sum{0};
        for (const auto time : rests())
            sum += time;
        return sum;
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
    std::int64_t now_ = 1'000'000'000'000; // guarded by mutex_, like all below
    bool ended_ = false;
    std::vector<std::chrono::milliseconds> rests_;
};

} // namespace quenmoor
