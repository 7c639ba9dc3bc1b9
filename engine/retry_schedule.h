// How long a failed upload waits before it is tried again.
//
// Counts the failed attempts of one file. The first retry comes at once, so that a dropped
// connection costs nothing; later ones back off to a quarter of an hour. Ten failures in a row
// are final. Any attempt that moved bytes starts the count over: a slow upload is never given up.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>

namespace quenmoor {

// Used by the upload thread only.
class RetrySchedule {
public:
    // The failure just met is the last one.
    bool exhausted() const { return retries_ >= kDelays.size(); }

    // The wait after the failure just met. Requires !exhausted().
    std::chrono::seconds delay() const { return kDelays.at(retries_); }

    void countFailure();
    void reset() { retries_ = 0; }

private:
    static constexpr std::array<std::chrono::seconds, 9> kDelays{
        std::chrono::seconds(0),   std::chrono::seconds(5),   std::chrono::seconds(15),
        std::chrono::seconds(30),  std::chrono::seconds(60),  std::chrono::seconds(120),
        std::chrono::seconds(240), std::chrono::seconds(480), std::chrono::seconds(900)};

    std::size_t retries_ = 0; // failures since the last progress
};

} // namespace quenmoor
