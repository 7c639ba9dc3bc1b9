// The engine's only source of time and its only stop signal.
//
// Every wait of the engine is a sleep of this clock. A sleep that returns false means that the
// program is ending: the caller returns without starting new work.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stop_token>

namespace quenmoor {

// Any thread.
class Clock {
public:
    virtual ~Clock() = default;

    // Blocks for `time`, or until a stop of `wake` is requested. Returns false at once if the
    // program is ending, also when it begins to end during the sleep.
    [[nodiscard]] virtual bool sleep(std::chrono::milliseconds time, std::stop_token wake) = 0;

    // Returns a monotonic time; only differences are meaningful.
    virtual std::int64_t nanoseconds() const = 0;

    // Marks the program as ending: every current and later sleep returns false at once.
    virtual void end() = 0;

    [[nodiscard]] bool sleepFor(std::chrono::milliseconds time) { return sleep(time, {}); }

    [[nodiscard]] bool ending() { return !sleepFor(std::chrono::milliseconds::zero()); }
};

// The clock of the machine.
class SystemClock : public Clock {
public:
    bool sleep(std::chrono::milliseconds time, std::stop_token wake) override;
    std::int64_t nanoseconds() const override;
    void end() override;

private:
    // Written under mutex_, so that no sleep misses the change.
    std::atomic<bool> ended_{false};
    std::mutex mutex_;
    std::condition_variable_any wake_;
};

} // namespace quenmoor
