// The packets in flight: when each was sent, whether it was retransmitted, what has arrived and
// what is missing.
//
// Deliveries are counted without retransmissions: the highest packet known to have arrived less
// all packets ever reported lost. Feedback that raises the highest packet states exactly how much
// had arrived at that moment; an acknowledgement that follows a retransmission does not.
#pragma once

#include <map>
#include <optional>
#include <span>
#include <vector>

#include "congestion/delivery_rate.h"

namespace quenmoor {

// Sequence numbers have 31 bits on the wire and 64 bits here. Returns the number that reads as
// `wire` and is nearest to `near`, at most 2^30 away.
constexpr std::int64_t unwrapped(std::int32_t wire, std::int64_t near)
{
    constexpr std::int64_t kNumbers = std::int64_t{1} << 31;
    const std::int64_t ahead = (std::int64_t{wire} - near) & (kNumbers - 1);
    return near + (ahead < kNumbers / 2 ? ahead : ahead - kNumbers);
}

// Both ends are included.
struct NumberRange {
    std::int64_t first;
    std::int64_t last;
};

// Decodes a loss report of the library: single numbers, and pairs of numbers whose first has its
// top bit set. Leaves out such a number at the end of the report. `near` is used to unwrap the
// numbers.
std::vector<NumberRange> decodeLossReport(std::span<const std::int32_t> report, std::int64_t near);

// A set of sequence numbers, stored as ranges that neither touch nor overlap. Used by one thread
// at a time.
class LossRanges {
public:
    // Returns how many numbers of `range` were not in the set before.
    std::int64_t insert(NumberRange range);

    void eraseBelow(std::int64_t number);

    bool contains(std::int64_t number) const { return firstFrom(number) == number; }
    std::optional<std::int64_t> firstFrom(std::int64_t number) const; // not below `number`
    bool empty() const { return ranges_.empty(); }
    std::int64_t count() const { return count_; }
    std::int64_t highest() const { return ranges_.rbegin()->second; } // requires !empty()

private:
    std::map<std::int64_t, std::int64_t> ranges_; // last by first
    std::int64_t count_ = 0;
};

// Feedback outside the packets in flight changes nothing: it comes from the network. Used by one
// thread at a time.
class SentPackets {
public:
    // `first` is the number of the first packet that will be sent.
    SentPackets(std::int64_t first, Micros now);

    // Records a first transmission or a retransmission. `unused` is AppLimit::unused().
    void onSent(std::int64_t number, Micros now, double unused);

    // Records that everything below `next` has arrived. Returns an RTT sample if it is unambiguous:
    // nothing was missing, and neither the oldest nor the newest packet it covers was
    // retransmitted.
    std::optional<Micros> onAcknowledged(std::int64_t next, Micros now);

    // Records that `range` is missing, which the peer noticed when the packet after it arrived.
    // Returns an RTT sample from that packet unless it was retransmitted.
    std::optional<Micros> onReportedLost(NumberRange range, Micros now);

    // Records that a packet in flight was retransmitted without the library.
    void onResent(std::int64_t number, Micros now);

    // Records that the library is about to retransmit everything in flight.
    void onTimeout(Micros now);

    // Starts the next delivery rate sample at `now`, after a pause with nothing in flight.
    void restartRateSample(Micros now, double unused);

    std::int64_t next() const { return next_; }            // one above the highest number sent
    std::int64_t acknowledgedUpTo() const { return ack_; } // the next number the peer expects
    std::int64_t inFlight() const { return next_ - ack_; } // sent and not acknowledged
    std::int64_t sentAboveArrived() const { return next_ - last_.high; }
    std::int64_t arrivedAboveAck() const { return last_.high - ack_; } // missing ones included
    std::int64_t missing() const { return missing_.count(); }
    std::int64_t losses() const { return lost_; }
    const Arrival& lastArrival() const { return last_; }

    // True while reported packets, or packets in flight at a timeout, were not yet retransmitted.
    // The library retransmits in the order of the numbers.
    bool retransmissionPending() const;

    // When `number` was last sent; nullopt if it is not in flight, and while the library is going
    // to retransmit it.
    std::optional<Micros> sendTime(std::int64_t number) const;

    // The first packet from `number` on that was reported and is not acknowledged.
    std::optional<std::int64_t> firstMissingFrom(std::int64_t number) const
    {
        return missing_.firstFrom(number);
    }

private:
    struct Record {
        Micros firstSent = 0;
        Micros lastSent = 0;
        double unused = 0;
        bool retransmitted = false;
    };

    // The library keeps at most 25600 packets in flight.
    static constexpr std::int64_t kRecords = 32768;

    Record& record(std::int64_t number);
    const Record& record(std::int64_t number) const;
    void raiseHighestArrived(std::int64_t high, Micros now);

    std::vector<Record> records_; // a ring, indexed by number
    std::int64_t next_;
    std::int64_t ack_;
    std::int64_t lost_ = 0; // packets ever reported lost
    LossRanges missing_;    // reported and not acknowledged
    Arrival last_;
    Micros timedOutAt_;
    std::int64_t timeoutEnd_; // one above the highest number in flight at the last timeout
};

} // namespace quenmoor
