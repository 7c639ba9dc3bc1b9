// What is known about every packet on its way: when it went out, whether it went out again, what
// has arrived and what is missing.
//
// Arrivals are counted without filled holes: the highest packet that arrived, less all that were
// ever reported lost. A report or an acknowledgement that raises the highest one tells exactly
// how much had arrived at that moment; the filling of a hole says nothing about the moment.
#pragma once

#include <optional>
#include <vector>

#include "congestion/loss_ranges.h"

namespace quenmoor {

// Microseconds of a steady clock; only differences mean anything.
using Micros = std::int64_t;

// The state of the link at the last arrival of something new. Between two of them the rate is
// the difference of `delivered` over that of `time`, exactly.
struct Arrival {
    Micros time = 0;            // when the sender heard of it
    Micros sent = 0;            // when the packet that arrived went out
    std::int64_t high = 0;      // one above the packet
    std::int64_t delivered = 0; // one above the first, less all losses: only differences count
    double unused = 0;          // given to sent() with the packet
};

// Packets per second between two arrivals; nothing when no time lies between them. The same
// packets took their time to go out as well, so that arrivals in a bunch do not look fast.
std::optional<double> rateBetween(const Arrival& from, const Arrival& to);

// Used by one thread at a time. Numbers are the library's, unwrapped.
class SentPackets {
public:
    // `first` is the number of the first packet to come.
    SentPackets(std::int64_t first, Micros now);

    // `unused` is how many packets the application has let the pace pass by so far.
    void sent(std::int64_t number, Micros now, double unused);

    // After a rest with nothing on its way: the next arrival is measured from here.
    void measureFrom(Micros now, double unused);

    // Everything below `next` has arrived. Nothing changes unless that is news. The round trip,
    // when the packet tells one: nothing was held up by a hole and nothing of it went out twice.
    std::optional<Micros> acknowledged(std::int64_t next, Micros now);

    // `range` is missing, noticed when the packet after it arrived. What is outside the packets
    // on their way is left out. The round trip, as above.
    std::optional<Micros> reported(NumberRange range, Micros now);

    // Everything on its way is about to go out again.
    void timedOut(Micros now);

    // From here on only losses of packets that have not gone out yet are counted.
    void countLossesAnew() { countFrom_ = next_; }

    std::int64_t next() const { return next_; }            // one above the highest ever sent
    std::int64_t acknowledgedUpTo() const { return ack_; } // the next one expected
    std::int64_t out() const { return next_ - ack_; }      // sent and not acknowledged
    std::int64_t arrivedAhead() const { return last_.high - ack_; }
    std::int64_t unheard() const { return next_ - last_.high; } // sent above the highest arrived
    std::int64_t missing() const { return missing_.count(); }
    std::int64_t countedLosses() const { return countedLosses_; }
    const Arrival& lastArrival() const { return last_; }

    // Reported packets wait to go out again. They leave in the order of their numbers.
    bool resendsWaiting() const;

    // When the oldest packet on its way last went out; nothing while it waits to go out again.
    std::optional<Micros> oldestSent() const;

private:
    struct Record {
        Micros firstSent = 0;
        Micros lastSent = 0;
        double unused = 0;
        bool again = false;
    };

    // The library lets no more than 25600 packets be on their way.
    static constexpr std::int64_t kRecords = 32768;

    Record& record(std::int64_t number);
    const Record& record(std::int64_t number) const;
    void arrived(std::int64_t high, Micros now);

    std::vector<Record> records_;
    std::int64_t next_;
    std::int64_t ack_;
    std::int64_t lost_ = 0; // ever reported
    std::int64_t countFrom_;
    std::int64_t countedLosses_ = 0;
    LossRanges missing_; // reported and not acknowledged
    Arrival last_;
    Micros timedOutAt_;
    std::int64_t resentUpTo_; // one above what the time-out sends again
};

} // namespace quenmoor
