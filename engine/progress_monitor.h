// Samples the progress of a transfer once a second, on a separate thread.
//
// The first sample of a transfer has a rate close to 0, because it is measured from the origin of
// the clock: otherwise a resume offset would count as bytes sent within that second.
#pragma once

#include "engine/clock.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <stop_token>
#include <thread>

namespace quenmoor {

struct ProgressSample {
    std::int64_t bytes = 0; // position in the file, resume offset included
    double rate = 0;        // MiB/s since the previous sample
    bool first = false;
    // MiB/s over the samples of the latest 30 seconds of this transfer; 0 while they span less than
    // 3 seconds. What the link took before the first sample, which includes the filling of its
    // buffer, is not counted.
    double averageRate = 0;
};

// Constructed, used and destroyed by the sending thread.
class ProgressMonitor {
public:
    // Called on the monitor's thread: with each sample, and once without one as the thread's last
    // act. The last partial second of a transfer gives no sample.
    using Callback = std::function<void(const std::optional<ProgressSample>&)>;

    // Starts the thread. `bytes` is the position that the transfer starts at. `clock` outlives
    // the monitor. If the system refuses the thread, this is logged and there are no calls.
    ProgressMonitor(Clock& clock, std::int64_t bytes, Callback callback);

    // Stops, and waits for a running callback and the last one.
    ~ProgressMonitor();

    ProgressMonitor(const ProgressMonitor&) = delete;
    ProgressMonitor& operator=(const ProgressMonitor&) = delete;

    void setBytesSent(std::int64_t bytes) { bytesSent_ = bytes; }

    // Any thread. No sample begins after this call; it does not wait for one in progress.
    void stop() { stop_.request_stop(); }

private:
    void progressMonitor();
    // The average rate that ends with a sample of `bytes` at the time `now`.
    double averageRate(std::int64_t bytes, std::int64_t now);

    // Set once at construction.
    Clock& clock_;
    const Callback callback_;

    // The sender writes, the monitor reads. Any memory order is enough for a display.
    std::atomic<std::int64_t> bytesSent_;

    // The earlier samples of the average, oldest first: time and bytes. Monitor thread.
    std::deque<std::pair<std::int64_t, std::int64_t>> samples_;

    std::stop_source stop_; // synchronises itself
    std::thread thread_;
};

} // namespace quenmoor
