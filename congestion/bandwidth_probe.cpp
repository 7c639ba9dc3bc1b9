#include "congestion/bandwidth_probe.h"

#include <algorithm>
#include <cmath>

namespace quenmoor {

void BandwidthProbe::begin(const SentPackets& flight, double rate, bool queue)
{
    rateBefore_ = rate;
    queueBefore_ = queue;
    begin_ = flight.next();
    end_ = 0;
    first_ = last_ = flight.lastArrival();
    lossesBefore_ = flight.countedLosses();
    losses_ = 0;
}

void BandwidthProbe::watch(const SentPackets& flight)
{
    const Arrival& newest = flight.lastArrival();
    if (newest.high <= begin_) {
        first_ = last_ = newest;
        lossesBefore_ = flight.countedLosses();
    } else if (end_ == 0 || last_.high < end_) {
        last_ = newest;
        losses_ = flight.countedLosses() - lossesBefore_;
    }
}

bool BandwidthProbe::judge()
{
    const auto count = static_cast<double>(last_.high - first_.high);
    // Two per cent above the usual, and above what chance makes of a few packets.
    const double usual = count * usualLoss_;
    const double tolerated = usual + 2 * std::sqrt(usual) + 0.02 * count + 4;
    const bool shallow = !queueBefore_ && static_cast<double>(losses_) > tolerated;
    const bool grew = rate() > rateBefore_ * (1 + (gain_ - 1) / 2);
    gain_ = std::clamp(1 + (gain_ - 1) * (shallow ? 0.6 : 1.3), kSmallest, kLargest);
    return grew && !shallow;
}

} // namespace quenmoor
