// Tells one session from outside that it is no longer wanted.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace quenmoor {

// Any thread.
class SessionSignal {
public:
    // The first reason stays.
    void end(const std::string& reason)
    {
        {
            const std::lock_guard lock(mutex_);
            if (reason_.empty())
                reason_ = reason;
        }
        ended_.notify_all();
    }

    // Empty while the session is wanted.
    std::string reason() const
    {
        const std::lock_guard lock(mutex_);
        return reason_;
    }

    // Rests the calling thread. False, at once, when the session is to end.
    [[nodiscard]] bool sleepFor(std::chrono::milliseconds time)
    {
        std::unique_lock lock(mutex_);
        return !ended_.wait_for(lock, time, [this] { return !reason_.empty(); });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable ended_;
    std::string reason_; // guarded by mutex_
};

} // namespace quenmoor
