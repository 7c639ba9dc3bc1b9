// The parameters of a simulated link, and the two ends of one transfer over it.
#pragma once

#include <functional>
#include <set>

#include "congestion/pacer.h"
#include "congestion/path_model.h"

namespace quenmoor {

struct SimulatedLink {
    double rate = 10'000; // packets per second
    Micros roundTrip = 50'000;
    double queue = 1000;  // packets
    double loss = 0;      // share of the data packets
    double lossBack = 0;  // share of acknowledgements and reports
    Micros sleep = 5'000; // of the sending thread; feedback wakes it as well
    std::vector<std::pair<Micros, double>> rates{}; // later values of `rate`
    Micros longerFrom = INT64_MAX;                  // then the round trip is twice as long
    Micros deadFrom = INT64_MAX, deadUntil = INT64_MAX;
    Micros idleTimer = 10'000; // between acknowledgements by timer without arrivals
    Micros jitter = 0;         // added to the delay of each packet, in order
    Micros burst = 1;          // packets arrive at multiples of this time, as over Wi-Fi
    Micros ackTimer = 10'000;  // between acknowledgements by timer while packets arrive
    double reordered = 0;      // share of the data packets that arrive 5 ms late, behind later ones
    double duplicated = 0;     // share of data packets and feedback that arrive twice
    std::uint64_t seed = 7;
};

struct SimulatedFlow {
    SimulatedFlow(std::int64_t number, Micros now) : first(number), model(number, now) {}

    // Set before the run: packets that the application has supplied by a time.
    std::function<std::int64_t(Micros)> supplied = [](Micros) { return INT64_MAX; };

    // Results.
    std::int64_t wire = 0; // packets sent
    Micros brokenAt = -1;  // when the peer was given up
    int timeouts = 0;
    double longestStall = 0;           // between acknowledgements, in the model's timeouts
    std::int64_t needlessRepairs = 0;  // the packet had arrived
    std::vector<std::int64_t> samples; // payload() every tenth of a second
    std::int64_t payload() const { return acknowledged - first; }

    // Sender.
    const std::int64_t first;
    PathModel model;
    std::int64_t next = first;
    std::int64_t acknowledged = first;
    std::set<std::int64_t> retransmissions;
    ReleaseSchedule schedule;
    std::int64_t released = first; // one above the last packet that the library has
    Micros supplyAt = INT64_MAX;   // when the application's thread wakes
    bool libraryPaces = false;
    Micros due = 0; // when the library sends its next packet, 0 if none waits
    Micros lastFeedback = 0;
    Micros advancedAt = 0; // the acknowledgement
    int timerExpiries = 1;

    // Receiver.
    std::int64_t highest = first - 1;
    std::set<std::int64_t> gaps;
    std::int64_t lastAck = -1;
    Micros lastAckAt = 0;
    std::int64_t confirmedAck = -1;
    Micros arrivedAt = 0; // the last packet
};

} // namespace quenmoor
