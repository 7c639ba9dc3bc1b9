// The machine's own clock.
#pragma once

#include "engine/clock.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace quenmoor {

// Any thread.
class SystemClock : public Clock {
public:
    bool rest(std::chrono::milliseconds time, std::stop_token wake) override;
    std::int64_t nanoseconds() const override;
    void end() override;

private:
    std::atomic<bool> ended_{false}; // written under mutex_, so that no rest misses it
    std::mutex mutex_;
    std::condition_variable_any woken_;
};

} // namespace quenmoor
