// The delay before a failed upload is retried, and the failure that is final.
//
// Counts the consecutive failed attempts of one file. The first retry is immediate, so a dropped
// connection costs no time; later retries back off to 15 minutes. An attempt that moved bytes
// resets the count: a slow upload is abandoned only if a time limit is set.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <optional>

namespace quenmoor {

// When the engine gives up a file, and what it does then. The defaults are those of the window.
struct RetryPolicy {
    // Consecutive failed attempts that are final; at least 1.
    std::size_t attempts = 10;
    // No attempt of a file begins later than this after its first one. A running attempt is not
    // interrupted.
    std::optional<std::chrono::seconds> timeLimit = {};
    // Go on with the next file. Otherwise the final alert is shown and the program ends.
    bool keepGoing = false;
    // Give up a file that is gone, shorter than announced or not a plain file without a retry, and
    // go on with the next file. Otherwise such a file fails like any other.
    bool giveUpLostSource = false;
};

// Used by the upload thread only.
class RetrySchedule {
public:
    explicit RetrySchedule(const RetryPolicy& policy) : policy_(policy) {}

    // True if the latest failure, which is not counted yet, is final. `elapsed` is the time since
    // the first attempt of the file began.
    bool exhausted(std::chrono::nanoseconds elapsed) const
    {
        return retries_ + 1 >= policy_.attempts ||
               (policy_.timeLimit && elapsed + delay() > *policy_.timeLimit);
    }

    // The wait after the latest failure.
    std::chrono::seconds delay() const
    {
        return kDelays.at(std::min(retries_, kDelays.size() - 1));
    }

    // The consecutive failures that are counted, and the number of them that is final.
    std::size_t failures() const { return retries_; }
    std::size_t limit() const { return policy_.attempts; }

    // Counts the latest failure; after the wait.
    void countFailure() { ++retries_; }

    void reset() { retries_ = 0; }

private:
    static constexpr std::array<std::chrono::seconds, 9> kDelays{
        std::chrono::seconds(0),   std::chrono::seconds(5),   std::chrono::seconds(15),
        std::chrono::seconds(30),  std::chrono::seconds(60),  std::chrono::seconds(120),
        std::chrono::seconds(240), std::chrono::seconds(480), std::chrono::seconds(900)};

    const RetryPolicy policy_;
    std::size_t retries_ = 0; // failed attempts since the last progress
};

} // namespace quenmoor
