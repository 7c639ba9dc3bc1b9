// The round-trip time (RTT) of the path: smoothed, its deviation, its minimum, and the
// retransmission timeout that follows from them.
//
// The minimum is the RTT of the path with empty queues. It expires ten seconds after a sample last
// came near it; the sender then lowers its rate for two rounds and measures the minimum again
// (probe RTT). Times are in microseconds. Used by one thread at a time.
#pragma once

#include "congestion/delivery_rate.h"

namespace quenmoor {

class RttEstimator {
public:
    explicit RttEstimator(Micros now) : minRttSeenAt_(now) {}

    void add(Micros sample, Micros now);

    // 100 ms, the library's own initial value, before the first sample.
    Micros minRtt() const { return known() ? minRtt_ : kInitialRtt; }
    Micros smoothedRtt() const { return known() ? static_cast<Micros>(smoothed_) : kInitialRtt; }

    // The minimum plus the larger of `share` of it and `time`.
    Micros minRttPlus(double share, Micros time) const;

    // The smallest sample since beginRound(), or 0.
    Micros roundMinRtt() const { return roundMinRtt_.value_or(0); }
    void beginRound() { roundMinRtt_.reset(); }

    bool minRttExpired(Micros now) const;

    // The smallest sample between the two calls replaces the minimum.
    void beginProbeRtt() { probeMinRtt_ = 0; }
    void endProbeRtt(Micros now);

    // How long a packet may remain without feedback: 1.25 smoothed + 4 deviations + 20 ms, at least
    // 100 ms, the interval at which the library checks its timer. From the eighth of
    // `timeoutsInARow` on at least (timeoutsInARow + 1) * 300 ms, the library's own back-off: it
    // gives up a peer after 16 timeouts if the last took over 5 s.
    Micros retransmissionTimeout(int timeoutsInARow) const;

private:
    static constexpr Micros kInitialRtt = 100'000;

    bool known() const { return minRtt_ > 0; }

    double smoothed_ = 0;
    double deviation_ = 0;
    Micros minRtt_ = 0;
    Micros minRttSeenAt_; // when a sample last came near the minimum
    std::optional<Micros> roundMinRtt_;
    std::optional<Micros> probeMinRtt_; // during probe RTT; 0 before its first sample
};

} // namespace quenmoor
