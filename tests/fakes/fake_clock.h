// A clock that never blocks: a sleep returns at once and advances the time.
#pragma once

#include "engine/clock.h"

#include <condition_variable>
#include <mutex>
#include <utility>

namespace quenmoor {

class FakeClock : public Clock {
public:
    // The program ends at this poll of an empty queue; uploadFile() returns then.
    int idlePolls = 1;

    bool sleep(std::chrono::milliseconds time, std::stop_token wake) override
    {
        if (wake.stop_possible())
            return monitorSleep(std::move(wake));
        const std::lock_guard lock(mutex_);
        now_ += std::chrono::nanoseconds(time).count();
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

    // Sending thread, during a transfer. Passes a second and returns after the progress monitor's
    // sample; there are no others.
    void sample()
    {
        std::unique_lock lock(mutex_);
        now_ += std::chrono::nanoseconds(std::chrono::seconds(1)).count();
        sampleDue_ = true;
        woken_.notify_all();
        woken_.wait(lock, [this] { return !sampleDue_ || ended_; });
    }

private:
    bool monitorSleep(std::stop_token wake)
    {
        std::unique_lock lock(mutex_);
        if (std::exchange(sampling_, false)) {
            sampleDue_ = false;
            woken_.notify_all();
        }
        woken_.wait(lock, std::move(wake), [this] { return sampleDue_ || ended_; });
        sampling_ = sampleDue_;
        return !ended_;
    }

    mutable std::mutex mutex_;
    std::condition_variable_any woken_;
    // Guarded by mutex_.
    std::int64_t now_ = 1'000'000'000'000;
    bool ended_ = false;
    bool sampleDue_ = false;
    bool sampling_ = false;
};

} // namespace quenmoor
