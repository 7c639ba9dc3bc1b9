// Time, as far as the engine knows it, and the one signal that the program is ending.
//
// Every wait of the engine is a rest() here. When it answers false for want of time, nothing new
// is begun; no other stop flag exists.
#pragma once

#include <chrono>
#include <cstdint>
#include <stop_token>

namespace quenmoor {

// Any thread.
class Clock {
public:
    virtual ~Clock() = default;

    // Rests the calling thread for `time`, or until `wake` asks it to go on. False when the
    // program is ending: then it returns at once.
    [[nodiscard]] virtual bool rest(std::chrono::milliseconds time, std::stop_token wake) = 0;

    // A steady count; only differences mean anything.
    virtual std::int64_t nanoseconds() const = 0;

    // For whoever ends the program: every rest, running or yet to come, returns false at once.
    virtual void end() = 0;

    [[nodiscard]] bool sleepFor(std::chrono::milliseconds time) { return rest(time, {}); }

    // True once the program is ending.
    [[nodiscard]] bool ending() { return !sleepFor(std::chrono::milliseconds::zero()); }
};

} // namespace quenmoor
