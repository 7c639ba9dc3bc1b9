#include "congestion/path_model.h"

#include <algorithm>

namespace quenmoor {
namespace {

// docs/congestion.md has the source of each constant.
constexpr double kStartUpGain = 2.8;
constexpr double kDrainGain = 0.5; // Drain and ProbeRtt
constexpr double kStandingQueueGain = 0.97;
constexpr double kTimeoutGain = 0.35;  // until the first acknowledgement after a timeout
constexpr double kRecoveryGain = 0.75; // from then until the end of the recovery

constexpr int kDrainRounds = 4;
constexpr int kCruiseRounds = 6;
constexpr int kCruiseRoundsAfterDrain = 2;
constexpr int kProbeRttRounds = 2;

constexpr double kMinBandwidth = 20; // packets per second, 230 kbit/s
constexpr Micros kMinRound = 20'000;
constexpr Micros kLibrarySleep = 8'000; // the longest sleep of the library's sending thread

// Packets.
constexpr double kInitialWindow = 32;
constexpr double kMinStartUpWindow = 64;
constexpr double kWindowMargin = 48; // four blocks, each of which is acknowledged once
constexpr std::int64_t kMinHeavyLosses = 8;

constexpr double kHeavyLossShare = 0.06; // of the packets of a round

double seconds(Micros time)
{
    return static_cast<double>(time) * 1e-6;
}

} // namespace

PathModel::PathModel(std::int64_t first, Micros now)
    : packets_(first, now),
      rtt_(now),
      appLimit_(now),
      roundStart_(packets_.lastArrival()),
      roundBegan_(now),
      roundEnd_(first),
      lastArrivalAt_(now),
      recoveryEnd_(first)
{
    startUpArrivals_.push_back(roundStart_);
}

double PathModel::bandwidth() const
{
    const double known = rates_.maximum();
    return known > 0 ? std::max(known, kMinBandwidth) : 0;
}

void PathModel::onSent(std::int64_t number, Micros now)
{
    const bool afterPause =
        appLimit_.onSent(now, allowedRate(), windowFull_) && packets_.inFlight() == 0;
    packets_.onSent(number, now, appLimit_.unused());
    windowFull_ = static_cast<double>(packets_.inFlight() + 1) > pace_.window;
    if (afterPause) {
        packets_.restartRateSample(now, appLimit_.unused());
        startUpArrivals_.assign(1, packets_.lastArrival());
        lastArrivalAt_ = now;
    }
}

void PathModel::onAcknowledged(std::int64_t next, Micros now)
{
    onFeedback(packets_.onAcknowledged(next, now), now);
}

void PathModel::onReportedLost(NumberRange lost, Micros now)
{
    onFeedback(packets_.onReportedLost(lost, now), now);
}

void PathModel::onTimeout(Micros now)
{
    ++timeoutsInARow_;
    // The library retransmits everything only if no retransmission is pending.
    if (!packets_.retransmissionPending() && packets_.inFlight() > 0) {
        const std::int64_t ack = packets_.acknowledgedUpTo();
        if (recovering() && ack == ackAtTimeout_) {
            repeatedTimeout_ = true;
            if (bandwidth() > 0)
                rates_.restart(bandwidth() / 2);
        }
        ackAtTimeout_ = ack;
        recoveryEnd_ = packets_.next();
        packets_.onTimeout(now);
    }
    if (isRoundOver(now))
        endRound(now);
    updatePace(now);
}

std::optional<std::int64_t> PathModel::takeRepair(Micros now)
{
    if (bandwidth() <= 0)
        return std::nullopt;
    const double interval = pace_.libraryPeriod / kPacketPairFactor;
    const auto number = planner_.next(packets_, resendTimeout(), interval, now);
    if (number)
        packets_.onResent(*number, now);
    return number;
}

void PathModel::onFeedback(std::optional<Micros> rttSample, Micros now)
{
    timeoutsInARow_ = 0;
    longestGap_ = std::max(longestGap_, now - lastArrivalAt_);
    lastArrivalAt_ = packets_.lastArrival().time;
    if (rttSample)
        rtt_.add(*rttSample, now);
    if (repeatedTimeout_ && !recovering()) {
        repeatedTimeout_ = false;
        enterPhase(Phase::StartUp, 0);
    }
    if (phase_ == Phase::StartUp)
        checkStartUp(rttSample, now);
    if (phase_ == Phase::Drain && isDrained(rttSample))
        enterPhase(Phase::Cruise, kCruiseRoundsAfterDrain);
    if (phase_ == Phase::ProbeUp || phase_ == Phase::ProbeDown)
        probe_.onFeedback(packets_);
    if (isRoundOver(now))
        endRound(now);
    updatePace(now);
}

void PathModel::checkStartUp(std::optional<Micros> rttSample, Micros now)
{
    sampleStartUpRate();
    if (rttSample)
        elevatedRttSamples_ =
            *rttSample > rtt_.minRttPlus(1.0 / 8, 5000) ? elevatedRttSamples_ + 1 : 0;
    const Round current = measureRound();
    if (current.lost >= kMinHeavyLosses && current.lossShare > 2 * kHeavyLossShare)
        endRound(now); // cuts the bandwidth and ends start-up
    else if (elevatedRttSamples_ >= 3)
        leaveStartUp();
}

// Samples the rate of the last max(8 ms, 0.7 min RTT) at every arrival. The mean of a whole round
// would lag behind a rate that doubles within it.
void PathModel::sampleStartUpRate()
{
    const Arrival& newest = packets_.lastArrival();
    if (newest.high == startUpArrivals_.back().high)
        return;
    startUpArrivals_.push_back(newest);
    const Micros span = std::max(kLibrarySleep, rtt_.minRtt() * 7 / 10);
    const auto isOld = [&](const Arrival& arrival) { return newest.time - arrival.time >= span; };
    const auto recent = std::find_if_not(startUpArrivals_.begin(), startUpArrivals_.end(), isOld);
    if (recent == startUpArrivals_.begin())
        return;
    startUpArrivals_.erase(startUpArrivals_.begin(), recent - 1);
    const Arrival& old = startUpArrivals_.front();
    const std::optional<double> rate = rateBetween(old, newest);
    const double known = rates_.maximum();
    if (rate && (paceLimited(old, newest) || (known > 0 && *rate > known)))
        rates_.add(*rate);
}

// True if the application left less than a quarter of what the pace allowed unused between the two
// arrivals, and does not pause now.
bool PathModel::paceLimited(const Arrival& from, const Arrival& to) const
{
    const auto count = static_cast<double>(to.high - from.high);
    const bool pausing = !windowFull_ && appLimit_.unusedSinceLast(to.time, allowedRate()) > 0;
    return to.unused - from.unused < count / 4 && !pausing;
}

void PathModel::leaveStartUp()
{
    rates_.keepNewest(2);
    // A short file may end start-up before any rate is known.
    if (rates_.maximum() <= 0)
        rates_.restart(kInitialWindow / seconds(rtt_.smoothedRtt()));
    enterPhase(Phase::Drain, kDrainRounds);
}

bool PathModel::isDrained(std::optional<Micros> rttSample) const
{
    const double bdp = bandwidth() * seconds(rtt_.minRtt());
    return (rttSample && *rttSample <= rtt_.minRttPlus(1.0 / 16, 2000)) ||
           (static_cast<double>(packets_.sentAboveArrived()) <= 1.02 * bdp &&
            static_cast<double>(packets_.missing()) <= bdp / 8);
}

bool PathModel::isRoundOver(Micros now) const
{
    const Micros age = now - roundBegan_;
    if (age >= std::max(kMinRound, rtt_.smoothedRtt()) * 5 / 2)
        return true;
    return packets_.lastArrival().high > roundEnd_ &&
           age >= std::max(kMinRound, rtt_.minRtt() * 9 / 10);
}

PathModel::Round PathModel::measureRound() const
{
    const Arrival& end = packets_.lastArrival();
    Round round;
    round.rate = rateBetween(roundStart_, end);
    const auto count = static_cast<double>(end.high - roundStart_.high);
    round.paceLimited = paceLimited(roundStart_, end);
    round.standingQueue = rtt_.roundMinRtt() > rtt_.minRttPlus(1.0 / 8, 4000);
    round.lost = packets_.losses() - lossesBeforeRound_;
    round.lossShare = count > 0 ? std::min(static_cast<double>(round.lost) / count, 1.0) : 0;
    return round;
}

void PathModel::endRound(Micros now)
{
    const Round round = measureRound();
    ++rounds_;
    learnRate(round);
    if (round.lost >= kMinHeavyLosses && round.lossShare > kHeavyLossShare)
        cutBandwidth(round);
    if (rtt_.roundMinRtt() > rtt_.minRttPlus(1.5, 10'000))
        rates_.keepNewest(3); // the path has become slower
    advancePhase(round, now);
    standingQueue_ = round.standingQueue;

    previousSendRate_ = static_cast<double>(packets_.next() - roundEnd_) /
                        std::max(seconds(now - roundBegan_), 1e-3);
    roundStart_ = packets_.lastArrival();
    roundBegan_ = now;
    roundEnd_ = packets_.next();
    lossesBeforeRound_ = packets_.losses();
    rtt_.beginRound();
    previousLongestGap_ = longestGap_;
    longestGap_ = 0;
}

// A round that the sender itself slowed down may raise the estimate but never lowers it.
void PathModel::learnRate(const Round& round)
{
    if (!round.rate || phase_ == Phase::StartUp)
        return;
    const bool slowedDown =
        !round.paceLimited || recovering() || phase_ == Phase::Drain || phase_ == Phase::ProbeRtt;
    if (slowedDown && *round.rate <= rates_.maximum())
        return;
    rates_.beginRound();
    rates_.add(*round.rate);
}

void PathModel::cutBandwidth(const Round& round)
{
    probe_.onHeavyLoss(round.lossShare, round.standingQueue || standingQueue_);
    const double before = bandwidth();
    if (before <= 0)
        return;
    const double delivered =
        std::max(round.rate.value_or(0), previousSendRate_ * (1 - round.lossShare));
    rates_.restart(std::min(before, std::max(delivered, before / 2)));
}

void PathModel::advancePhase(const Round& round, Micros now)
{
    if (phase_ == Phase::StartUp) {
        endStartUpRound(round);
        return;
    }
    if (phase_ == Phase::Cruise)
        probe_.learnUsualLoss(round.lossShare);
    if (--phaseRoundsLeft_ > 0)
        return;
    switch (phase_) {
    case Phase::Cruise:
        if (rtt_.minRttExpired(now)) {
            rtt_.beginProbeRtt();
            enterPhase(Phase::ProbeRtt, kProbeRttRounds);
        } else {
            enterPhase(Phase::ProbeUp, 1);
        }
        break;
    case Phase::ProbeUp:
        probe_.endSending(packets_);
        enterPhase(Phase::ProbeDown, 1);
        break;
    case Phase::ProbeDown:
        if (probe_.evaluate() && !round.standingQueue) {
            rates_.add(probe_.rate());
            enterPhase(Phase::ProbeUp, 1);
        } else {
            enterPhase(Phase::Cruise, kCruiseRounds);
        }
        break;
    case Phase::ProbeRtt:
        rtt_.endProbeRtt(now);
        enterPhase(Phase::Cruise, kCruiseRounds);
        break;
    case Phase::Drain:
    case Phase::StartUp: enterPhase(Phase::Cruise, kCruiseRoundsAfterDrain); break;
    }
}

void PathModel::endStartUpRound(const Round& round)
{
    if (round.paceLimited)
        rates_.beginRound();
    const double best = rates_.maximum();
    if (best > 1.25 * grownTo_) {
        grownTo_ = best;
        flatRounds_ = 0;
    } else if (round.paceLimited && best > 0) {
        flatRounds_ += round.lost == 0 ? 2 : 1; // missing packets delay the feedback on growth
    }
    ++startUpRounds_;
    const bool queue = startUpRounds_ > 3 && rtt_.roundMinRtt() > rtt_.minRttPlus(0.5, 4000);
    const bool heavy = round.lost >= kMinHeavyLosses && round.lossShare > kHeavyLossShare;
    if (flatRounds_ >= 6 || queue || heavy)
        leaveStartUp();
}

void PathModel::enterPhase(Phase phase, int rounds)
{
    phase_ = phase;
    phaseRoundsLeft_ = rounds;
    if (phase == Phase::StartUp) {
        startUpArrivals_.assign(1, packets_.lastArrival());
        startUpRounds_ = 0;
        elevatedRttSamples_ = 0;
        flatRounds_ = 0;
        grownTo_ = 0;
    } else if (phase == Phase::ProbeUp) {
        probe_.begin(packets_, bandwidth(), standingQueue_);
    }
}

double PathModel::gain() const
{
    // After a timeout the library retransmits everything in flight, although usually one packet was
    // missing and the rest has arrived. The rate stays low until feedback states what is missing.
    if (recovering())
        return packets_.acknowledgedUpTo() == ackAtTimeout_ ? kTimeoutGain : kRecoveryGain;
    switch (phase_) {
    case Phase::StartUp: return kStartUpGain;
    case Phase::ProbeUp: return probe_.gain();
    case Phase::ProbeDown: return 2 - probe_.gain();
    case Phase::Cruise: return standingQueue_ ? kStandingQueueGain : 1.0;
    case Phase::Drain:
    case Phase::ProbeRtt: break;
    }
    return kDrainGain;
}

void PathModel::updatePace(Micros now)
{
    updateTimeout(now);
    if (bandwidth() <= 0)
        return;
    pace_.libraryPeriod = 1e6 * kPacketPairFactor / (gain() * bandwidth());
    // Feedback on newer packets restarts the library's timer, which is to retransmit what could not
    // be repaired. With the window closed feedback ends after one RTT, and the timer expires.
    pace_.window = isAckStalled(now)
                       ? 0
                       : static_cast<double>(packets_.arrivedAboveAck()) + windowAboveArrived();
}

// Packets that may be in flight above the highest that has arrived.
double PathModel::windowAboveArrived() const
{
    const Micros minRtt = rtt_.minRtt();
    const double twoBdp = bandwidth() * seconds(std::max(2 * minRtt, minRtt + kLibrarySleep));
    if (phase_ == Phase::StartUp)
        return std::max(kMinStartUpWindow, twoBdp);
    const double repair = packets_.missing() > 0 ? bandwidth() * seconds(minRtt) / 2 : 0;
    if (standingQueue_) {
        const Micros time = std::max(minRtt * 3 / 2, minRtt + kLibrarySleep);
        return bandwidth() * seconds(time) + kWindowMargin + repair;
    }
    const Micros gap = std::min(minRtt, std::max(longestGap_, previousLongestGap_));
    return twoBdp + kWindowMargin + bandwidth() * seconds(gap) + repair;
}

bool PathModel::isAckStalled(Micros now) const
{
    const std::optional<Micros> oldest = packets_.sendTime(packets_.acknowledgedUpTo());
    return planner_.gaveUp() && timeoutsInARow_ == 0 && oldest && now > *oldest + resendTimeout();
}

// The timeout counts from when the oldest packet was last sent, not from the last feedback.
void PathModel::updateTimeout(Micros now)
{
    const Micros full = rtt_.retransmissionTimeout(timeoutsInARow_);
    pace_.timeout = full;
    const std::optional<Micros> oldest = packets_.sendTime(packets_.acknowledgedUpTo());
    if (timeoutsInARow_ == 0 && oldest)
        pace_.timeout = std::clamp<Micros>(*oldest + 2 * full - now, 10'000, 2 * full);
}

} // namespace quenmoor
