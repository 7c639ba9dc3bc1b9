// A model of the path and the sending rate and window that follow from it.
//
// The path is described by two numbers: its bandwidth, the highest recent delivery rate, and its
// min RTT, the RTT with empty queues. Their product, the bandwidth-delay product (BDP), is what the
// path itself holds. Packets are paced at the bandwidth times a gain, with about two BDP in flight
// at most. A loss alone does not lower the rate: only a round that lost 8 packets and over 6 %
// does.
//
//   phase       gain           ends
//   StartUp     2.8            with a standing queue, heavy loss, or three rounds without 25 %
//                              growth; then Drain
//   Drain       0.5            when the RTT is back at its minimum, or at most 1.02 BDP is in
//                              flight and little is missing, or after 4 rounds; then Cruise
//   Cruise      1.0 or 0.97    after 6 rounds (2 after Drain); then ProbeUp, or ProbeRtt if the
//                              min RTT has expired. 0.97 with a standing queue
//   ProbeUp     1.06 to 1.25   after 1 round; then ProbeDown
//   ProbeDown   2 - ProbeUp    after 1 round; then ProbeUp if the probe found more bandwidth,
//                              else Cruise
//   ProbeRtt    0.5            after 2 rounds; then Cruise
//
// After a timeout the gain is 0.35, and 0.75 from the first acknowledgement, until everything that
// was in flight has been acknowledged. docs/congestion.md explains the terms, the formulas and the
// source of each constant.
#pragma once

#include "congestion/bandwidth_probe.h"
#include "congestion/resend_planner.h"
#include "congestion/rtt_estimator.h"

namespace quenmoor {

// The library sends the packet after every sixteenth at once, as a packet pair that measures
// capacity. Its rate is therefore higher by this factor than the reciprocal of its period.
inline constexpr double kPacketPairFactor = 16.0 / 15.0;

// The values that the library's sender is to use.
struct Pace {
    double libraryPeriod = 100; // microseconds: kPacketPairFactor times the time between packets
    double window = 32;         // packets that may be in flight
    Micros timeout = 300'000;   // time without feedback until everything is retransmitted
};

// The caller passes the time of every event; times never decrease. Numbers are sequence numbers of
// the library, unwrapped. Feedback that cannot be true, such as an acknowledgement of a packet that
// was not sent, changes nothing. Used by one thread at a time.
class PathModel {
public:
    // `first` is the number of the first packet that will be sent.
    PathModel(std::int64_t first, Micros now);

    void onSent(std::int64_t number, Micros now);
    void onAcknowledged(std::int64_t next, Micros now);
    void onReportedLost(NumberRange lost, Micros now);
    void onTimeout(Micros now);

    // Returns a packet that the caller has to retransmit now, because the library does not. Call it
    // until it returns nothing, after every feedback and otherwise every few milliseconds.
    std::optional<std::int64_t> takeRepair(Micros now);

    // Changes with every event except onSent().
    const Pace& pace() const { return pace_; }

    // True while the packets of a timeout are not yet acknowledged, or so many packets are missing
    // that the library must pace their retransmission: over 1 ms of them, or any on a shallow
    // buffer.
    bool retransmitting() const
    {
        const double time = static_cast<double>(packets_.missing()) * pace_.libraryPeriod;
        return recovering() || time > (shallowBuffer() ? 0 : 1'000);
    }

    bool shallowBuffer() const { return probe_.shallowBuffer(); }

    // The next number that the peer expects.
    std::int64_t acknowledgedUpTo() const { return packets_.acknowledgedUpTo(); }

    // The state of the model, for tests and measurements.
    enum class Phase { StartUp, Drain, Cruise, ProbeUp, ProbeDown, ProbeRtt };
    Phase phase() const { return phase_; }
    double bandwidth() const; // packets per second, 0 while unknown
    Micros minRtt() const { return rtt_.minRtt(); }
    Micros resendTimeout() const { return rtt_.retransmissionTimeout(0); }
    std::int64_t rounds() const { return rounds_; }

private:
    // What one round measured.
    struct Round {
        std::optional<double> rate; // packets per second
        bool paceLimited = false;   // the sender used what the pace allowed
        bool standingQueue = false; // a queue remained through the whole round
        std::int64_t lost = 0;
        double lossShare = 0;
    };

    // Packets per second at the current pace.
    double allowedRate() const { return 1e6 * kPacketPairFactor / pace_.libraryPeriod; }
    void onFeedback(std::optional<Micros> rttSample, Micros now);
    void checkStartUp(std::optional<Micros> rttSample, Micros now);
    void sampleStartUpRate();
    bool paceLimited(const Arrival& from, const Arrival& to) const;
    void leaveStartUp();
    bool isDrained(std::optional<Micros> rttSample) const;
    bool isRoundOver(Micros now) const;
    Round measureRound() const;
    void endRound(Micros now);
    void learnRate(const Round& round);
    void cutBandwidth(const Round& round);
    void advancePhase(const Round& round, Micros now);
    void endStartUpRound(const Round& round);
    void enterPhase(Phase phase, int rounds);
    bool recovering() const { return packets_.acknowledgedUpTo() < recoveryEnd_; }
    double gain() const;
    void updatePace(Micros now);
    double windowAboveArrived() const;
    bool isAckStalled(Micros now) const;
    void updateTimeout(Micros now);

    SentPackets packets_;
    ResendPlanner planner_;
    RttEstimator rtt_;
    MaxRateFilter rates_;
    AppLimit appLimit_;
    Pace pace_;
    bool windowFull_ = false; // after the last packet sent

    Phase phase_ = Phase::StartUp;
    int phaseRoundsLeft_ = 0; // StartUp and Drain may also end within a round

    // The current round, and what remains of the one before.
    std::int64_t rounds_ = 0;
    Arrival roundStart_;
    Micros roundBegan_;
    std::int64_t roundEnd_;              // the round ends once a packet above has arrived
    std::int64_t lossesBeforeRound_ = 0; // SentPackets::losses()
    double previousSendRate_ = 0;        // first transmissions per second
    Micros lastArrivalAt_;               // or the end of a pause of the application
    Micros longestGap_ = 0;              // between two arrivals
    Micros previousLongestGap_ = 0;
    bool standingQueue_ = false; // in the round before

    // Start-up.
    std::vector<Arrival> startUpArrivals_; // oldest first
    int startUpRounds_ = 0;
    int elevatedRttSamples_ = 0; // in a row
    int flatRounds_ = 0;         // in a row without growth; a round without losses counts as two
    double grownTo_ = 0;         // packets per second at the last growth of 25 %

    BandwidthProbe probe_;

    // Timeouts.
    std::int64_t recoveryEnd_; // one above the highest number in flight at the last timeout
    std::int64_t ackAtTimeout_ = -1;
    bool repeatedTimeout_ = false; // two without an acknowledgement between them
    int timeoutsInARow_ = 0;       // without feedback between them
};

} // namespace quenmoor
