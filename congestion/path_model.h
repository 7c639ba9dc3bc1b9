// A model of the path that a sender's packets take, and the pace that follows from it.
//
// The path is two numbers: the rate at which packets arrive and the round trip of its empty
// queues. Their product is what fits on the path. Packets are paced at the rate, and about two
// products may be out. Single losses are no sign of congestion: only a round that loses more
// than 6 % lowers the rate, since wireless and long links lose up to a few per cent of their own.
//
//   rate      [packets/s]  the largest delivery rate of the last 10 rounds, of 3 once the round
//                          trip is 2.5 minima. Rounds in which the sender left over a quarter of
//                          its pace unused, or chose to be slow, count only upwards. After a
//                          round with 8 losses or more and over 6 %: max(what arrived, half)
//   round                  ends when a packet sent after its start has arrived and at least
//                          max(20 ms, 0.9 minimum) went by, or after 2.5 max(smoothed, 20 ms)
//   period    [us]         1e6 * (16/15) / (gain * rate): the library sends the packet after
//                          every sixteenth at once
//   window    [packets]    arrived above a hole, plus
//                          start-up: max(64, rate * max(2 minimum, minimum + 8 ms))
//                          while a queue stands: rate * max(1.5 minimum, minimum + 8 ms) + 48
//                          else: rate * (max(2 minimum, minimum + 8 ms)
//                          + min(minimum, longest gap between arrivals of two rounds)) + 48;
//                          and rate * minimum / 2 while something is missing, but in start-up.
//                          0 while the acknowledgement is stuck, see the source
//   time-out  [us]         see RttEstimator, counted from when the oldest packet last went out
//
// phase      gain           ends
// start-up   2.8            with a queue, heavy loss, or three rounds without 25 % growth
// drain      0.5            when the round trip is back, or after 4 rounds
// cruise     1.0 (0.97 *)   after 6 rounds (2 after drain)
// up         1.06 to 1.25   after 1 round, see BandwidthProbe
// down       2 - up         after 1 round; up again at once if the probe found more
// renew      0.5            after 2 rounds, in which the minimum is learnt anew
// after a time-out 0.35, from the first answer on 0.75, until all that was out has arrived;
// after several without an answer between them start-up begins again at the halved rate.
// (*) while a queue stands: the smallest round trip of a round is above the minimum by
//     max(an eighth, 4 ms).
//
// Where the constants come from: 2.8 is just under 2 / ln 2, the smallest gain at which the rate
// of arrivals can double in every round; 16/15, 20 ms, 8 ms and 48 packets follow from the
// library's bunches, see the source. The others were tuned with the library's sender against an
// unmodified receiver over emulated links of 20 to 1000 Mbit/s, 1 to 200 ms and 0 to 1 % loss,
// and over the simulated ones of the tests.
#pragma once

#include "congestion/app_limit.h"
#include "congestion/bandwidth_probe.h"
#include "congestion/max_rate_filter.h"
#include "congestion/rtt_estimator.h"
#include "congestion/sent_packets.h"

namespace quenmoor {

// How much faster than its period the library sends: the packet after every sixteenth at once.
inline constexpr double kPairs = 16.0 / 15.0;

// What the sender is to keep to.
struct Pace {
    double period = 100;      // microseconds, kPairs times the time between two packets
    double window = 32;       // packets that may be out
    Micros timeOut = 300'000; // without a word from the peer until everything goes out again
};

// Knows no clock: every event comes with its time. Times never go back. Numbers are the
// library's, unwrapped. What cannot be true (an acknowledgement of what was never sent) changes
// nothing. Used by one thread at a time.
class PathModel {
public:
    // `first` is the number of the first packet to come.
    PathModel(std::int64_t first, Micros now);

    void sent(std::int64_t number, Micros now);
    void acknowledged(std::int64_t next, Micros now);
    void reported(NumberRange lost, Micros now);
    void timedOut(Micros now);

    // Changes with every event but sent().
    const Pace& pace() const { return pace_; }

    // Packets are missing, or were given up and all go out again.
    bool resending() const { return recovering() || flight_.missing() > 0; }

    // The path's queue overflows before it can be seen.
    bool shortQueue() const { return probe_.shallow(); }

    // What the model believes, for those who watch it. The rate is 0 while unknown.
    enum class Phase { StartUp, Drain, Cruise, Up, Down, Renew };
    Phase phase() const { return phase_; }
    double rate() const;
    Micros minimumRoundTrip() const { return roundTrip_.minimum(); }
    std::int64_t rounds() const { return rounds_; }

private:
    struct Round {
        std::optional<double> rate;
        bool atLimit = false; // the sender used what it was allowed
        bool queue = false;   // one stood through the whole round
        std::int64_t lost = 0;
        double lossShare = 0;
    };

    void settle(std::optional<Micros> sample, Micros now);
    void watchStartUp(std::optional<Micros> sample, Micros now);
    void sampleStartUp();
    bool usedUp(const Arrival& from, const Arrival& to) const;
    void leaveStartUp();
    bool drained(std::optional<Micros> sample) const;
    bool roundOver(Micros now) const;
    Round measure() const;
    void endRound(Micros now);
    void learnRate(const Round& round);
    void cutRate(const Round& round);
    void turn(const Round& round, Micros now);
    void turnStartUp(const Round& round);
    void enter(Phase phase, int rounds);
    bool recovering() const { return flight_.acknowledgedUpTo() < recoverUntil_; }
    double allowed() const;
    double gain() const;
    void setPace(Micros now);
    bool stuck(Micros now) const;
    void setTimeOut(Micros now);

    SentPackets flight_;
    RttEstimator roundTrip_;
    MaxRateFilter rates_;
    AppLimit allowance_;
    Pace pace_;
    bool held_ = false; // the window was full after the last packet

    Phase phase_ = Phase::StartUp;
    int roundsLeft_ = 0; // of the phase; start-up and drain end by themselves

    // The round that runs, and the one before.
    std::int64_t rounds_ = 0;
    Arrival roundStart_;
    Micros roundBegan_;
    std::int64_t roundEnd_;
    std::int64_t roundLosses_ = 0; // counted before it began
    double sendRate_ = 0;          // new packets a second in the round before
    Micros arrivedAt_;             // the last arrival or the end of a rest
    Micros longestGap_ = 0;
    Micros longestGapBefore_ = 0;

    // Start-up.
    std::vector<Arrival> arrivals_; // oldest first
    int lateSamples_ = 0;           // in a row
    int flatRounds_ = 0;            // in a row
    double grownTo_ = 0;

    // Probing.
    BandwidthProbe probe_;
    bool queueStands_ = false; // it did through the whole last round

    // Time-outs.
    std::int64_t recoverUntil_;
    std::int64_t timedOutAck_ = -1;
    bool repeated_ = false; // more than one without progress between them
    int silent_ = 0;        // in a row
};

} // namespace quenmoor
