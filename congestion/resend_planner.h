// Decides which packets to retransmit a second time, and when.
//
// A receiver of the library reports a gap once. If the retransmission or the report is lost too,
// the cumulative acknowledgement stalls until the sender's timer expires, and then everything in
// flight is retransmitted. Only the packet that the acknowledgement names is known to be missing.
// The planner therefore repairs that packet. If the acknowledgement then moves to another packet
// that is overdue, many were lost together, and the planner repairs a batch of overdue packets
// next, twice as many for each such step.
#pragma once

#include "congestion/sent_packets.h"

namespace quenmoor {

// Used by one thread at a time; times never decrease.
class ResendPlanner {
public:
    // Returns the packet to retransmit now, if there is one. The caller retransmits it and calls
    // SentPackets::onResent(). `timeout` is the time after which an unacknowledged packet is taken
    // for lost, `interval` the time between two packets in microseconds.
    std::optional<std::int64_t> next(const SentPackets& packets, Micros timeout, double interval,
                                     Micros now);

    // True while the packet that the acknowledgement names has been repaired as often as allowed.
    // What remains is the library's timer.
    bool gaveUp() const { return headRepairs_ >= kMaxRepairs; }

private:
    static constexpr int kMaxRepairs = 6;

    bool isOverdue(const SentPackets& packets, std::int64_t number) const;
    void followAcknowledgement(const SentPackets& packets);

    // Of the current call of next().
    Micros timeout_ = 0;
    double interval_ = 0;
    Micros now_ = 0;

    std::int64_t head_ = -1; // the packet that the acknowledgement names
    int headRepairs_ = 0;    // of that packet
    std::int64_t batch_ = 0; // packets; 0 outside an episode
    std::int64_t batchLeft_ = 0;
    std::int64_t cursor_ = 0; // the batch continues with this packet or one above
    double nextRepair_ = 0;   // time
};

} // namespace quenmoor
