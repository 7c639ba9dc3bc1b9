// Tests whether the path carries more than the bandwidth estimate: one round is sent at a higher
// rate, and the arrivals and losses of exactly its packets decide. A round of the model covers
// packets of several rates and is too coarse for that.
#pragma once

#include "congestion/sent_packets.h"

namespace quenmoor {

// Used by one thread at a time.
class BandwidthProbe {
public:
    // The pacing gain of the next probe, 1.06 to 1.25.
    double gain() const { return gain_; }

    // The packets sent from here to endSending() are the probe. `rate` is the bandwidth estimate in
    // packets per second. `standingQueue` is true if the path had a queue before.
    void begin(const SentPackets& packets, double rate, bool standingQueue);
    void endSending(const SentPackets& packets) { end_ = packets.next(); }

    // Called after each feedback from begin() to evaluate().
    void onFeedback(const SentPackets& packets);

    // Ends the probe and sets the gain of the next one. If the probe lost more than its path
    // usually does and no queue preceded it, the path has a shallow buffer: the excess of the gain
    // over 1 is multiplied by 0.6. Otherwise it is multiplied by 1.3.
    //
    // Returns true if the path has no shallow buffer and the delivery rate exceeded the estimate by
    // more than half of the gain's excess: rate() is then the better estimate.
    bool evaluate();

    // Records a round whose loss lowered the bandwidth estimate. If the loss was over twice the
    // usual and no queue preceded it, the path has a shallow buffer, as in evaluate().
    void onHeavyLoss(double share, bool standingQueue);

    // True while the gain is reduced: the path's buffer overflows before its delay can be measured.
    bool shallowBuffer() const { return gain_ < kMaxGain; }

    // The delivery rate of the probe's packets; 0 while unknown.
    double rate() const { return rateBetween(first_, last_).value_or(0); }

    // Updates the share of packets that the path loses at a steady rate.
    void learnUsualLoss(double share) { usualLoss_ += (share - usualLoss_) / 4; }

private:
    void scaleExcess(double factor); // of the gain over 1

    static constexpr double kMaxGain = 1.25;
    static constexpr double kMinGain = 1.06;

    double gain_ = kMaxGain;
    double usualLoss_ = 0;
    double rateBefore_ = 0;
    bool queueBefore_ = false;
    std::int64_t begin_ = 0; // the first number of the probe
    std::int64_t end_ = 0;   // one above the last, 0 while it is being sent
    Arrival first_;          // the last arrival before the probe's packets
    Arrival last_;           // the last arrival of the probe's packets
    std::int64_t lossesBefore_ = 0;
    std::int64_t losses_ = 0;
};

} // namespace quenmoor
