// Whether the path carries more than the model believes: a round at a higher pace, judged by what
// became of its own packets. Rounds are too coarse for that.
#pragma once

#include "congestion/sent_packets.h"

namespace quenmoor {

// Used by one thread at a time.
class BandwidthProbe {
public:
    // The gain of the next probe, 1.06 to 1.25.
    double gain() const { return gain_; }

    // The next packets belong to the probe. `rate` is what is believed in packets a second;
    // `queue` tells that one stood before.
    void begin(const SentPackets& flight, double rate, bool queue);
    void end(const SentPackets& flight) { end_ = flight.next(); }

    // After every word from the peer, from begin() to judge().
    void watch(const SentPackets& flight);

    // True when the rate of the probe's packets grew by over half of what was tried, and no more
    // of them were lost than a shallow buffer explains: then the next probe is smaller by 0.6 of
    // its excess, else larger by 1.3.
    bool judge();
    // By the last of them.
    bool shallow() const { return gain_ < kLargest; }
    double rate() const { return rateBetween(first_, last_).value_or(0); }

    // The share that was lost in a round of steady sending: the path's own.
    void learnLoss(double share) { usualLoss_ += (share - usualLoss_) / 4; }

private:
    static constexpr double kLargest = 1.25;
    static constexpr double kSmallest = 1.06;

    double gain_ = kLargest;
    double usualLoss_ = 0;
    double rateBefore_ = 0;
    bool queueBefore_ = false;
    std::int64_t begin_ = 0; // the first of its packets
    std::int64_t end_ = 0;   // one above the last, 0 while it runs
    Arrival first_;          // around the arrivals of its packets
    Arrival last_;
    std::int64_t lossesBefore_ = 0;
    std::int64_t losses_ = 0;
};

} // namespace quenmoor
