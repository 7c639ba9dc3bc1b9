#include "congestion/path_model.h"

#include <algorithm>

namespace quenmoor {
namespace {

constexpr double kStartUpGain = 2.8;
constexpr double kSlowGain = 0.5;  // drain and renew
constexpr double kSeekGain = 0.35; // until the first answer after a time-out
constexpr double kRecoverGain = 0.75;
constexpr double kQueueGain = 0.97;
constexpr double kSlowestRate = 20; // packets a second, 230 kbit/s

constexpr Micros kShortestRound = 20'000;
constexpr Micros kTick = 8'000; // the library wakes every 4 to 8 ms
constexpr double kSpare = 48;   // packets: four acknowledgements

constexpr double kLeastStartUp = 64; // packets

constexpr std::int64_t kFewLosses = 8;
constexpr double kToleratedLoss = 0.06;

double seconds(Micros time)
{
    return static_cast<double>(time) * 1e-6;
}

} // namespace

PathModel::PathModel(std::int64_t first, Micros now)
    : flight_(first, now),
      roundTrip_(now),
      allowance_(now),
      roundStart_(flight_.lastArrival()),
      roundBegan_(now),
      roundEnd_(first),
      arrivedAt_(now),
      recoverUntil_(first)
{
    arrivals_.push_back(roundStart_);
}

double PathModel::rate() const
{
    const double known = rates_.maximum();
    return known > 0 ? std::max(known, kSlowestRate) : 0;
}

// What the pace lets through, in packets a second.
double PathModel::allowed() const
{
    return 1e6 * kPairs / pace_.period;
}

void PathModel::sent(std::int64_t number, Micros now)
{
    const bool rested = allowance_.sent(now, allowed(), held_) && flight_.out() == 0;
    flight_.sent(number, now, allowance_.unused());
    held_ = static_cast<double>(flight_.out() + 1) > pace_.window;
    if (rested) {
        flight_.measureFrom(now, allowance_.unused());
        arrivals_.assign(1, flight_.lastArrival());
        arrivedAt_ = now;
    }
}

void PathModel::acknowledged(std::int64_t next, Micros now)
{
    settle(flight_.acknowledged(next, now), now);
}

void PathModel::reported(NumberRange lost, Micros now)
{
    settle(flight_.reported(lost, now), now);
}

void PathModel::timedOut(Micros now)
{
    ++silent_;
    // The library sends everything again only when nothing waits to be sent again.
    if (!flight_.resendsWaiting() && flight_.out() > 0) {
        const std::int64_t ack = flight_.acknowledgedUpTo();
        if (recovering() && ack == timedOutAck_) {
            repeated_ = true;
            if (rate() > 0)
                rates_.restart(rate() / 2);
        }
        timedOutAck_ = ack;
        recoverUntil_ = flight_.next();
        flight_.timedOut(now);
    }
    if (roundOver(now))
        endRound(now);
    setPace(now);
}

// After every word from the peer.
void PathModel::settle(std::optional<Micros> sample, Micros now)
{
    silent_ = 0;
    longestGap_ = std::max(longestGap_, now - arrivedAt_);
    arrivedAt_ = flight_.lastArrival().time;
    if (sample)
        roundTrip_.add(*sample, now);
    if (repeated_ && !recovering()) {
        repeated_ = false;
        enter(Phase::StartUp, 0);
    }
    if (phase_ == Phase::StartUp)
        watchStartUp(sample, now);
    if (phase_ == Phase::Drain && drained(sample))
        enter(Phase::Cruise, 2);
    if (phase_ == Phase::Up || phase_ == Phase::Down)
        probe_.watch(flight_);
    if (roundOver(now))
        endRound(now);
    setPace(now);
}

void PathModel::watchStartUp(std::optional<Micros> sample, Micros now)
{
    sampleStartUp();
    if (sample)
        lateSamples_ = *sample > roundTrip_.above(1.0 / 8, 5000) ? lateSamples_ + 1 : 0;
    const Round running = measure();
    const bool heavy = running.lost >= kFewLosses && running.lossShare > 2 * kToleratedLoss;
    if (heavy)
        endRound(now); // which cuts the rate and ends start-up
    else if (lateSamples_ >= 3)
        leaveStartUp();
}

// Takes the rate of the last max(8 ms, 0.9 minimum) at every arrival: a whole round would be
// waited for in vain while the rate doubles.
void PathModel::sampleStartUp()
{
    const Arrival& newest = flight_.lastArrival();
    if (newest.high == arrivals_.back().high)
        return;
    arrivals_.push_back(newest);
    const Micros span = std::max<Micros>(8000, roundTrip_.minimum() * 9 / 10);
    const auto isOld = [&](const Arrival& arrival) { return newest.time - arrival.time >= span; };
    const auto young = std::find_if_not(arrivals_.begin(), arrivals_.end(), isOld);
    if (young == arrivals_.begin())
        return;
    arrivals_.erase(arrivals_.begin(), young - 1);
    const Arrival& old = arrivals_.front();
    const std::optional<double> rate = rateBetween(old, newest);
    const double known = rates_.maximum();
    if (rate && (usedUp(old, newest) || (known > 0 && *rate > known)))
        rates_.add(*rate);
}

// Between the two arrivals the sender used what it was allowed, but for a quarter.
bool PathModel::usedUp(const Arrival& from, const Arrival& to) const
{
    const auto count = static_cast<double>(to.high - from.high);
    const bool resting = !held_ && allowance_.unusedAt(to.time, allowed()) > 0;
    return to.unused - from.unused < count / 4 && !resting;
}

void PathModel::leaveStartUp()
{
    rates_.keepNewest(2);
    // A short file may end start-up before any rate is known.
    if (rates_.maximum() <= 0)
        rates_.restart(32 / seconds(roundTrip_.smoothed()));
    enter(Phase::Drain, 4);
}

bool PathModel::drained(std::optional<Micros> sample) const
{
    const double product = rate() * seconds(roundTrip_.minimum());
    return (sample && *sample <= roundTrip_.above(1.0 / 16, 2000)) ||
           (static_cast<double>(flight_.unheard()) <= 1.02 * product &&
            static_cast<double>(flight_.missing()) <= product / 8);
}

bool PathModel::roundOver(Micros now) const
{
    const Micros age = now - roundBegan_;
    if (age >= std::max(kShortestRound, roundTrip_.smoothed()) * 5 / 2)
        return true;
    return flight_.lastArrival().high > roundEnd_ &&
           age >= std::max(kShortestRound, roundTrip_.minimum() * 9 / 10);
}

PathModel::Round PathModel::measure() const
{
    const Arrival& end = flight_.lastArrival();
    Round round;
    round.rate = rateBetween(roundStart_, end);
    const auto count = static_cast<double>(end.high - roundStart_.high);
    round.atLimit = usedUp(roundStart_, end);
    round.queue = roundTrip_.ofRound().value_or(0) > roundTrip_.above(1.0 / 8, 4000);
    round.lost = flight_.countedLosses() - roundLosses_;
    round.lossShare = count > 0 ? std::min(static_cast<double>(round.lost) / count, 1.0) : 0;
    return round;
}

void PathModel::endRound(Micros now)
{
    const Round round = measure();
    ++rounds_;
    learnRate(round);
    if (round.lost >= kFewLosses && round.lossShare > kToleratedLoss)
        cutRate(round);
    if (roundTrip_.ofRound().value_or(0) > roundTrip_.above(1.5, 10'000))
        rates_.keepNewest(3); // the path is slower than it was
    turn(round, now);
    queueStands_ = round.queue;

    sendRate_ = static_cast<double>(flight_.next() - roundEnd_) /
                std::max(seconds(now - roundBegan_), 1e-3);
    roundStart_ = flight_.lastArrival();
    roundBegan_ = now;
    roundEnd_ = flight_.next();
    roundLosses_ = flight_.countedLosses();
    roundTrip_.beginRound();
    longestGapBefore_ = longestGap_;
    longestGap_ = 0;
}

// Slow rounds that the sender chose count only upwards.
void PathModel::learnRate(const Round& round)
{
    if (!round.rate || phase_ == Phase::StartUp)
        return;
    const bool chosen =
        !round.atLimit || recovering() || phase_ == Phase::Drain || phase_ == Phase::Renew;
    if (chosen && *round.rate <= rates_.maximum())
        return;
    rates_.nextRound();
    rates_.add(*round.rate);
}

void PathModel::cutRate(const Round& round)
{
    const double now = rate();
    if (now <= 0)
        return;
    const double carried = std::max(round.rate.value_or(0), sendRate_ * (1 - round.lossShare));
    rates_.restart(std::min(now, std::max(carried, now / 2)));
    flight_.countLossesAnew();
}

void PathModel::turn(const Round& round, Micros now)
{
    if (phase_ == Phase::StartUp) {
        turnStartUp(round);
        return;
    }
    if (phase_ == Phase::Cruise)
        probe_.learnLoss(round.lossShare);
    if (--roundsLeft_ > 0)
        return;
    switch (phase_) {
    case Phase::Cruise:
        if (roundTrip_.stale(now)) {
            roundTrip_.beginRenewal();
            enter(Phase::Renew, 2);
        } else {
            enter(Phase::Up, 1);
        }
        break;
    case Phase::Up:
        probe_.end(flight_);
        enter(Phase::Down, 1);
        break;
    case Phase::Down:
        if (probe_.judge() && !round.queue) {
            rates_.add(probe_.rate());
            enter(Phase::Up, 1);
        } else {
            enter(Phase::Cruise, 6);
        }
        break;
    case Phase::Renew:
        roundTrip_.endRenewal(now);
        enter(Phase::Cruise, 6);
        break;
    default: enter(Phase::Cruise, 2); break;
    }
}

void PathModel::turnStartUp(const Round& round)
{
    if (round.atLimit)
        rates_.nextRound();
    const double best = rates_.maximum();
    if (best > 1.25 * grownTo_) {
        grownTo_ = best;
        flatRounds_ = 0;
    } else if (round.atLimit && best > 0) {
        flatRounds_ += round.lost == 0 ? 2 : 1; // holes keep the news back
    }
    ++roundsLeft_; // counts up: how many there were
    const bool queue =
        roundsLeft_ > 3 && roundTrip_.ofRound().value_or(0) > roundTrip_.above(0.5, 4000);
    const bool heavy = round.lost >= kFewLosses && round.lossShare > kToleratedLoss;
    if (flatRounds_ >= 6 || queue || heavy)
        leaveStartUp();
}

void PathModel::enter(Phase phase, int rounds)
{
    phase_ = phase;
    roundsLeft_ = rounds;
    if (phase == Phase::StartUp) {
        arrivals_.assign(1, flight_.lastArrival());
        lateSamples_ = 0;
        flatRounds_ = 0;
        grownTo_ = 0;
    } else if (phase == Phase::Up) {
        probe_.begin(flight_, rate(), queueStands_);
    }
}

double PathModel::gain() const
{
    // After a time-out everything goes out again, though usually one packet was missing and the
    // rest has arrived. Little is sent until that is known.
    if (recovering())
        return flight_.acknowledgedUpTo() == timedOutAck_ ? kSeekGain : kRecoverGain;
    switch (phase_) {
    case Phase::StartUp: return kStartUpGain;
    case Phase::Up: return probe_.gain();
    case Phase::Down: return 2 - probe_.gain();
    case Phase::Cruise: return queueStands_ ? kQueueGain : 1.0;
    default: return kSlowGain;
    }
}

void PathModel::setPace(Micros now)
{
    setTimeOut(now);
    const double known = rate();
    if (known <= 0)
        return;
    const Micros minimum = roundTrip_.minimum();
    const double product = known * seconds(minimum);
    const Micros gap = std::min(minimum, std::max(longestGap_, longestGapBefore_));
    const double twice = known * seconds(std::max(2 * minimum, minimum + kTick));
    double room = twice + kSpare + known * seconds(gap);
    if (phase_ == Phase::StartUp)
        room = std::max(kLeastStartUp, twice);
    else if (queueStands_)
        room = known * seconds(std::max(minimum * 3 / 2, minimum + kTick)) + kSpare;
    if (flight_.missing() > 0 && phase_ != Phase::StartUp)
        room += product / 2;
    pace_.window = static_cast<double>(flight_.arrivedAhead()) + room;
    pace_.period = 1e6 * kPairs / (gain() * known);
    if (stuck(now))
        pace_.window = 0;
}

// A lost resend or report holds the acknowledgement back for good, until the library's timer
// sends everything again; and the timer stands still while anything is heard. So nothing new is
// sent: the silence that follows one round trip later lets the timer strike.
bool PathModel::stuck(Micros now) const
{
    const std::optional<Micros> oldest = flight_.oldestSent();
    return silent_ == 0 && oldest && now > *oldest + roundTrip_.timeOut(0);
}

void PathModel::setTimeOut(Micros now)
{
    const Micros full = roundTrip_.timeOut(silent_);
    pace_.timeOut = full;
    const std::optional<Micros> oldest = flight_.oldestSent();
    if (silent_ == 0 && oldest)
        pace_.timeOut = std::clamp<Micros>(*oldest + full - now, 10'000, full);
}

} // namespace quenmoor
