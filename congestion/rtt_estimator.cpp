#include "congestion/rtt_estimator.h"

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr Micros kBelievedFor = 10'000'000;
constexpr Micros kLibraryTimeOut = 300'000;
constexpr int kPatience = 8; // lossy links lose the packet that was sent again as well

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
    if (!known() || sample < minimum_) {
        minimum_ = sample;
        metAt_ = now;
    } else if (sample <= above(1.0 / 16, 1000)) {
        metAt_ = now;
    }
    ofRound_ = std::min(ofRound_.value_or(sample), sample);
    if (renewal_)
        renewal_ = *renewal_ == 0 ? sample : std::min(*renewal_, sample);
}

Micros RttEstimator::above(double share, Micros time) const
{
    const auto part = static_cast<Micros>(static_cast<double>(minimum()) * share);
    return minimum() + std::max(part, time);
}

bool RttEstimator::stale(Micros now) const
{
    return known() && now - metAt_ > kBelievedFor;
}

void RttEstimator::endRenewal(Micros now)
{
    if (renewal_.value_or(0) > 0) {
        minimum_ = *renewal_;
        metAt_ = now;
    }
    renewal_.reset();
}

Micros RttEstimator::timeOut(int silent) const
{
    const double patient = std::max(100'000.0, 1.25 * smoothed_ + 4 * deviation_ + 20'000);
    const auto once = known() ? static_cast<Micros>(patient) : kLibraryTimeOut;
    if (silent < kPatience)
        return once;
    return std::max(once, (silent + 1) * kLibraryTimeOut);
}

} // namespace quenmoor
