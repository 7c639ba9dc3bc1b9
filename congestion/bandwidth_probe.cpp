#include "congestion/bandwidth_probe.h"

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr double kShallow = 0.6;

} // namespace

void BandwidthProbe::begin(const SentPackets& packets, double rate, bool standingQueue)
{
    rateBefore_ = rate;
    queueBefore_ = standingQueue;
    begin_ = packets.next();
    end_ = 0;
    first_ = last_ = packets.lastArrival();
    lossesBefore_ = packets.losses();
    losses_ = 0;
}

void BandwidthProbe::onFeedback(const SentPackets& packets)
{
    const Arrival& newest = packets.lastArrival();
    if (newest.high <= begin_) {
        first_ = last_ = newest;
        lossesBefore_ = packets.losses();
    } else if (end_ == 0 || last_.high < end_) {
        last_ = newest;
        losses_ = packets.losses() - lossesBefore_;
    }
}

bool BandwidthProbe::evaluate()
{
    const auto count = static_cast<double>(last_.high - first_.high);
    // Two per cent above the usual loss, two standard deviations of it, and four packets, so that
    // a short probe is not judged by chance.
    const double usual = count * usualLoss_;
    const double tolerated = usual + 2 * std::sqrt(usual) + 0.02 * count + 4;
    const bool shallow = !queueBefore_ && static_cast<double>(losses_) > tolerated;
    const bool grew = rate() > rateBefore_ * (1 + (gain_ - 1) / 2);
    scaleExcess(shallow ? kShallow : 1.3);
    return grew && !shallow;
}

void BandwidthProbe::onHeavyLoss(double share, bool standingQueue)
{
    if (!standingQueue && share > 2 * usualLoss_)
        scaleExcess(kShallow);
}

void BandwidthProbe::scaleExcess(double factor)
{
    gain_ = std::clamp(1 + (gain_ - 1) * factor, kMinGain, kMaxGain);
}

} // namespace quenmoor
