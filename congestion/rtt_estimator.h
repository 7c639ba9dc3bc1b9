// The round trip of the path: smoothed, its deviation, its minimum, and the time-outs from them.
//
// The minimum is the path with empty queues. It is believed for ten seconds after it was last
// met; then the sender slows down for a moment and learns it anew.
#pragma once

#include <optional>

#include "congestion/sent_packets.h"

namespace quenmoor {

// Used by one thread at a time.
class RttEstimator {
public:
    explicit RttEstimator(Micros now) : metAt_(now) {}

    void add(Micros sample, Micros now);

    bool known() const { return minimum_ > 0; }
    Micros minimum() const { return known() ? minimum_ : kUnknown; }
    Micros smoothed() const { return known() ? static_cast<Micros>(smoothed_) : kUnknown; }

    // A round trip above the minimum by the larger of a share of it and a time.
    Micros above(double share, Micros time) const;

    // The smallest sample since the round began.
    std::optional<Micros> ofRound() const { return ofRound_; }
    void beginRound() { ofRound_.reset(); }

    // The minimum was not met for ten seconds.
    bool stale(Micros now) const;
    // The minimum of the samples between the two becomes the minimum.
    void beginRenewal() { renewal_ = 0; }
    void endRenewal(Micros now);

    // How long a packet may stay unanswered: 1.25 smoothed + 4 deviations + 20 ms, at least
    // 100 ms (the library looks at its timer that often). After eight time-outs without a word
    // from the peer at least (silent + 1) times 300 ms, the library's own back-off: it gives a
    // peer up after 16 of them once one lasts 5 s.
    Micros timeOut(int silent) const;

private:
    static constexpr Micros kUnknown = 100'000; // the library's own first guess

    double smoothed_ = 0;
    double deviation_ = 0;
    Micros minimum_ = 0;
    Micros metAt_; // the minimum
    std::optional<Micros> ofRound_;
    std::optional<Micros> renewal_; // the smallest sample of a renewal, 0 before the first
};

} // namespace quenmoor
