// A link and the library's two ends around it, in simulated time. Drives one model per flow as
// the library would: window, losses first, pace, acknowledgements, reports sent once, timers.
#pragma once

#include <algorithm>
#include <deque>
#include <functional>
#include <memory>
#include <queue>
#include <random>
#include <set>

#include "congestion/path_model.h"

namespace quenmoor {

struct SimulatedLink {
    double rate = 10'000; // packets a second
    Micros roundTrip = 50'000;
    double loss = 0;     // share of the packets, on the way there
    double lossBack = 0; // of acknowledgements and reports
    double queue = 1000; // packets
    Micros tick = 5'000; // the sending thread wakes so often, and with every word
    // From these times on, the link has these rates.
    std::vector<std::pair<Micros, double>> schedule;
    Micros longerFrom = INT64_MAX; // the round trip is twice as long
    // Packets of this run of numbers, counted from the first, are lost at the first try.
    NumberRange hole{-1, -1};
    std::uint64_t seed = 7;
    Micros deadFrom = -1; // nothing passes any more
    Micros deadUntil = INT64_MAX;
};

// One sender and its receiver.
struct SimulatedFlow {
    explicit SimulatedFlow(std::int64_t number, Micros now)
        : first(number),
          model(number, now),
          next(number),
          acknowledged(number),
          received(number - 1)
    {
    }

    // Set before the run. Packets that the application has handed over by a time.
    std::function<std::int64_t(Micros)> offered = [](Micros) { return INT64_MAX; };

    // What came of it.
    std::int64_t wire = 0;   // packets sent
    Micros brokenAt = -1;    // when the peer was given up
    Micros longestRound = 0; // while sending
    int timeOuts = 0;
    std::vector<std::int64_t> delivered; // in order, at the end of each tenth of a second

    std::int64_t payload() const { return acknowledged - first; }

    // The sender.
    std::int64_t first;
    PathModel model;
    std::int64_t next;
    std::int64_t acknowledged;
    std::set<std::int64_t> resend;
    Micros due = 0;    // 0: not in the list of those that send
    Micros target = 0; // when the next packet should go, whatever wakes the thread before
    Micros behind = 0;
    Micros heard = 0;
    Micros checked = 0;
    int expired = 1;
    std::int64_t roundsSeen = 0;
    Micros roundSeenAt = 0;

    // The receiver.
    std::int64_t received;
    std::set<std::int64_t> holes;
    std::int64_t lastAck = -1;
    std::int64_t confirmedAck = -1;
    Micros lastAckAt = 0;
};

class SimulatedPath {
public:
    explicit SimulatedPath(SimulatedLink link, std::int64_t firstNumber = 1);

    // A further flow; begins to send at `start`.
    SimulatedFlow& add(Micros start, std::int64_t firstNumber = 1);

    SimulatedFlow& flow(std::size_t index = 0) { return *flows_[index]; }
    void run(Micros until);
    Micros now() const { return now_; }

    // What arrived in order between two times, as a share of what the link could have carried.
    double share(Micros from, Micros to, std::size_t index = 0) const;
    double wireOverPayload(std::size_t index = 0) const;
    // The queue that a share of the packets met at most, in bandwidth-delay products of the link.
    double queueAt(double share) const;
    std::int64_t dropped() const { return dropped_; }

private:
    enum class Kind { Start, Wake, Data, Ack, Report, Confirm, Check, Timer, Sample };
    struct Event {
        Micros time;
        std::int64_t order;
        Kind kind;
        std::size_t flow;
        std::int64_t first;
        std::int64_t last;
        bool operator<(const Event& other) const
        {
            return std::tie(time, order) > std::tie(other.time, other.order);
        }
    };

    void at(Micros time, Kind kind, std::size_t flow, std::int64_t first = 0,
            std::int64_t last = 0);
    void handle(const Event& event);
    bool lose(double share);
    bool dead() const
    {
        return link_.deadFrom >= 0 && now_ >= link_.deadFrom && now_ < link_.deadUntil;
    }
    double rateAt(Micros time) const;
    Micros oneWay() const;

    void wake(std::size_t index);
    bool sendOne(std::size_t index, Micros time);
    void transmit(std::size_t index, std::int64_t number, Micros time, bool again);
    void hear(std::size_t index, const Event& event);
    void check(std::size_t index);
    void arrive(std::size_t index, std::int64_t number);
    void acknowledge(std::size_t index);
    void answer(Kind kind, std::size_t index, std::int64_t first, std::int64_t last = 0);

    const SimulatedLink link_;
    std::mt19937_64 random_;
    std::priority_queue<Event> events_;
    std::int64_t order_ = 0;
    Micros now_ = 1'000'000;
    std::vector<std::unique_ptr<SimulatedFlow>> flows_;
    double backlog_ = 0; // packets in the queue at backlogAt_
    Micros backlogAt_ = 0;
    Micros lastArrival_ = 0;
    std::vector<float> queues_; // met by each packet, packets
    std::int64_t dropped_ = 0;
};

} // namespace quenmoor
