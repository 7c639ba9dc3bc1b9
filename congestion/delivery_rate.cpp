#include "congestion/delivery_rate.h"

#include <algorithm>

namespace quenmoor {
namespace {

// Packets. The library sends in bursts of up to 10 ms; 16 packets cover a slow pace.
double burst(double rate)
{
    return rate * 0.01 + 16;
}

} // namespace

std::optional<double> rateBetween(const Arrival& from, const Arrival& to)
{
    const Micros span = std::max(to.time - from.time, to.sent - from.sent);
    if (span <= 0 || to.delivered < from.delivered)
        return std::nullopt;
    return static_cast<double>(to.delivered - from.delivered) * 1e6 / static_cast<double>(span);
}

double MaxRateFilter::maximum() const
{
    return *std::max_element(rates_.begin(), rates_.end());
}

void MaxRateFilter::add(double rate)
{
    rates_.front() = std::max(rates_.front(), rate);
}

void MaxRateFilter::beginRound()
{
    std::rotate(rates_.begin(), rates_.end() - 1, rates_.end());
    rates_.front() = 0;
}

void MaxRateFilter::keepNewest(int rounds)
{
    std::fill(rates_.begin() + rounds, rates_.end(), 0.0);
}

void MaxRateFilter::restart(double rate)
{
    rates_.fill(0);
    rates_.front() = rate;
}

bool AppLimit::onSent(Micros now, double rate, bool windowLimited)
{
    const double left = windowLimited ? 0 : unusedSinceLast(now, rate);
    unused_ += left;
    tokens_ = windowLimited ? -1 : std::min(tokens(now, rate), burst(rate)) - 1;
    lastSent_ = now;
    return left > 0;
}

double AppLimit::unusedSinceLast(Micros now, double rate) const
{
    return std::max(tokens(now, rate) - burst(rate), 0.0);
}

double AppLimit::tokens(Micros now, double rate) const
{
    return std::max(tokens_, -burst(rate)) + static_cast<double>(now - lastSent_) * 1e-6 * rate;
}

} // namespace quenmoor
