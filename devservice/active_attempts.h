// Ends attempts from outside, and allows one active attempt for each upload: the newest.
//
// A client that lost its link retries long before the server notices that the old link is dead. The
// old attempt still has the file then, so the new one ends it and waits until it has released it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace quenmoor {

// Requests one session to end. Any thread.
class StopSignal {
public:
    // Stores the first reason; later calls have no effect.
    void request(const std::string& reason)
    {
        {
            const std::lock_guard lock(mutex_);
            if (reason_.empty())
                reason_ = reason;
        }
        requested_.notify_all();
    }

    // Empty until the session is requested to end.
    std::string reason() const
    {
        const std::lock_guard lock(mutex_);
        return reason_;
    }

    // Blocks the calling thread for `time`. Returns false, at once, if the session is requested to
    // end.
    [[nodiscard]] bool sleepFor(std::chrono::milliseconds time)
    {
        std::unique_lock lock(mutex_);
        return !requested_.wait_for(lock, time, [this] { return !reason_.empty(); });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable requested_;
    std::string reason_; // guarded by mutex_
};

// Any thread. Must outlive its claims.
class ActiveAttempts {
public:
    // Makes an attempt the active one of its upload until it is destroyed.
    class Claim {
    public:
        Claim(ActiveAttempts& attempts, std::string upload)
            : attempts_(&attempts), upload_(std::move(upload))
        {
        }
        ~Claim();
        Claim(Claim&& other) noexcept
            : attempts_(std::exchange(other.attempts_, nullptr)), upload_(std::move(other.upload_))
        {
        }
        Claim& operator=(Claim&&) = delete;

    private:
        ActiveAttempts* attempts_;
        std::string upload_;
    };

    // Requests the active attempt of `upload`, if any, to end and waits up to `timeout` for it.
    // Attempts are numbered in the order in which they arrived. Returns nothing if the older
    // attempt has not ended in time or a newer one is active.
    [[nodiscard]] std::optional<Claim> claim(const std::string& upload, int attempt,
                                             const std::shared_ptr<StopSignal>& stop,
                                             std::chrono::milliseconds timeout);

private:
    struct Active {
        int attempt;
        std::shared_ptr<StopSignal> stop;
    };

    void release(const std::string& upload);

    std::mutex mutex_;
    std::condition_variable released_;
    std::map<std::string, Active> active_; // by upload; guarded by mutex_
};

} // namespace quenmoor
