// The delay before a failed upload is retried.
//
// Counts the consecutive failed attempts of one file. The first retry is immediate, so a dropped
// connection costs no time; later retries back off to 15 minutes. Ten consecutive failures are
// final. An attempt that moved bytes resets the count: a slow upload is never abandoned.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>

namespace quenmoor {

// Used by the upload thread only.
class RetrySchedule {
public:
    // True if the latest failure, which is not counted yet, is final.
    bool exhausted() const { return retries_ >= kDelays.size(); }

    // The wait after the latest failure. Requires !exhausted().
    std::chrono::seconds delay() const { return kDelays.at(retries_); }

    // Counts the latest failure; after the wait. Requires !exhausted().
    void countFailure() { ++retries_; }

    void reset() { retries_ = 0; }

private:
    static constexpr std::array<std::chrono::seconds, 9> kDelays{
        std::chrono::seconds(0),   std::chrono::seconds(5),   std::chrono::seconds(15),
        std::chrono::seconds(30),  std::chrono::seconds(60),  std::chrono::seconds(120),
        std::chrono::seconds(240), std::chrono::seconds(480), std::chrono::seconds(900)};

    std::size_t retries_ = 0; // failed attempts since the last progress
};

} // namespace quenmoor
