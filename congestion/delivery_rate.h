// The delivery rate of a path: its samples, their maximum, and the detection of samples that the
// application limited rather than the path.
//
// Rates are in packets per second. Each class is used by one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace quenmoor {

// Microseconds of a monotonic clock; only differences are meaningful.
using Micros = std::int64_t;

// The sender's counters when feedback first covered a packet. The delivery rate between two of
// them is the difference of `delivered` over that of `time`.
struct Arrival {
    Micros time = 0;            // when the feedback reached the sender
    Micros sent = 0;            // when the packet was first sent
    std::int64_t high = 0;      // the packet's number plus 1
    std::int64_t delivered = 0; // `high` less all reported losses; only differences are meaningful
    double unused = 0;          // AppLimit::unused() when the packet was sent
};

// Packets per second between two arrivals; nullopt if no time passed between them. The time is at
// least the time in which the same packets were sent, so that feedback received in a burst does
// not raise the rate.
std::optional<double> rateBetween(const Arrival& from, const Arrival& to);

// The maximum of the delivery rates of the last ten rounds; 0 while none is known.
class MaxRateFilter {
public:
    double maximum() const;

    // Adds a sample of the current round.
    void add(double rate);
    void beginRound();

    // Discards all but the newest `rounds` rounds.
    void keepNewest(int rounds);

    // Discards every sample and starts from `rate`.
    void restart(double rate);

private:
    // Ten rounds cover one cycle of cruising and probing.
    static constexpr int kRounds = 10;

    std::array<double, kRounds> rates_{}; // one per round, newest first
};

// Counts the packets that the pace allowed and the application did not supply: a token bucket that
// is filled at the pace and as large as one burst of the library.
class AppLimit {
public:
    explicit AppLimit(Micros now) : lastSent_(now) {}

    // Records that a packet is sent. `rate` is what the pace allows. `windowLimited` is true if the
    // window was full since the packet before, in which case the application was not the limit.
    // Returns true if the application had left packets unused before this one.
    bool onSent(Micros now, double rate, bool windowLimited);

    // Packets that could have been sent between the last packet and `now`.
    double unusedSinceLast(Micros now, double rate) const;

    // Packets that could have been sent and were not, since construction.
    double unused() const { return unused_; }

private:
    double tokens(Micros now, double rate) const;

    Micros lastSent_;
    double tokens_ = 0;
    double unused_ = 0;
};

} // namespace quenmoor
