// Lets one attempt for a token go on at a time: the newest.
//
// A client that lost its link tries again long before its old link is known to be dead. The old
// attempt still holds the file then, so the new one ends it and waits until it has let go.
#pragma once

#include "devservice/session_signal.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace quenmoor {

// Any thread. Outlives its turns.
class AttemptTurns {
public:
    // The right to go on. Given back when it is destroyed.
    class Turn {
    public:
        Turn(AttemptTurns& turns, std::string token) : turns_(&turns), token_(std::move(token)) {}
        ~Turn();
        Turn(Turn&& other) noexcept
            : turns_(std::exchange(other.turns_, nullptr)), token_(std::move(other.token_))
        {
        }
        Turn& operator=(Turn&&) = delete;

    private:
        AttemptTurns* turns_;
        std::string token_;
    };

    // Ends an older attempt for `token` and waits up to `patience` for it. Attempts count
    // upwards. Nothing when the older one does not let go, or when a newer one has come.
    [[nodiscard]] std::optional<Turn> take(const std::string& token, int attempt,
                                           const std::shared_ptr<SessionSignal>& signal,
                                           std::chrono::milliseconds patience);

private:
    struct Holder {
        int attempt;
        std::shared_ptr<SessionSignal> signal;
    };

    void giveBack(const std::string& token);

    std::mutex mutex_;
    std::condition_variable givenBack_;
    std::map<std::string, Holder> holders_; // guarded by mutex_
};

} // namespace quenmoor
