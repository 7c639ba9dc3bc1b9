#include "congestion/rtt_estimator.h"

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr Micros kMinRttLifetime = 10'000'000;
constexpr Micros kLibraryTimeout = 300'000;
constexpr Micros kShortestTimeout = 100'000;

// On a lossy link several retransmissions of one packet may be lost in a row, so the timeout grows
// only after this number of them.
constexpr int kTimeoutsBeforeBackoff = 8;

} // namespace

void RttEstimator::add(Micros sample, Micros now)
{
    sample = std::max<Micros>(sample, 1);
    const auto value = static_cast<double>(sample);
    if (!known()) {
        smoothed_ = value;
        deviation_ = value / 2;
    }
    deviation_ += (std::abs(value - smoothed_) - deviation_) / 16;
    smoothed_ += (value - smoothed_) / 8;
    if (!known() || sample < minRtt_) {
        minRtt_ = sample;
        minRttSeenAt_ = now;
    } else if (sample <= minRttPlus(1.0 / 16, 1000)) {
        minRttSeenAt_ = now;
    }
    roundMinRtt_ = std::min(roundMinRtt_.value_or(sample), sample);
    if (probeMinRtt_)
        probeMinRtt_ = *probeMinRtt_ == 0 ? sample : std::min(*probeMinRtt_, sample);
}

Micros RttEstimator::minRttPlus(double share, Micros time) const
{
    const auto part = static_cast<Micros>(static_cast<double>(minRtt()) * share);
    return minRtt() + std::max(part, time);
}

bool RttEstimator::minRttExpired(Micros now) const
{
    return known() && now - minRttSeenAt_ > kMinRttLifetime;
}

void RttEstimator::endProbeRtt(Micros now)
{
    if (probeMinRtt_.value_or(0) > 0) {
        minRtt_ = *probeMinRtt_;
        minRttSeenAt_ = now;
    }
    probeMinRtt_.reset();
}

Micros RttEstimator::retransmissionTimeout(int timeoutsInARow) const
{
    const auto estimate = static_cast<Micros>(1.25 * smoothed_ + 4 * deviation_ + 20'000);
    const Micros single = known() ? std::max(kShortestTimeout, estimate) : kLibraryTimeout;
    if (timeoutsInARow < kTimeoutsBeforeBackoff)
        return single;
    return std::max(single, (timeoutsInARow + 1) * kLibraryTimeout);
}

} // namespace quenmoor
