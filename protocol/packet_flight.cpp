#include "protocol/packet_flight.h"

#include <algorithm>

namespace quenmoor {

std::optional<double> rateBetween(const Arrival& from, const Arrival& to)
{
    const Micros span = std::max(to.time - from.time, to.sent - from.sent);
    if (span <= 0 || to.delivered < from.delivered)
        return std::nullopt;
    return static_cast<double>(to.delivered - from.delivered) * 1e6 / static_cast<double>(span);
}

PacketFlight::PacketFlight(std::int64_t first, Micros now)
    : records_(kRecords),
      next_(first),
      ack_(first),
      countFrom_(first),
      timedOutAt_(now),
      resentUpTo_(first)
{
    last_ = {now, now, first, first, 0};
}

PacketFlight::Record& PacketFlight::record(std::int64_t number)
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

const PacketFlight::Record& PacketFlight::record(std::int64_t number) const
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

void PacketFlight::sent(std::int64_t number, Micros now, double unused)
{
    if (number < next_) {
        record(number).lastSent = now;
        record(number).again = true;
        return;
    }
    record(number) = {now, now, unused, false};
    next_ = number + 1;
}

void PacketFlight::measureFrom(Micros now, double unused)
{
    last_.time = now;
    last_.sent = now;
    last_.unused = unused;
}

std::optional<Micros> PacketFlight::acknowledged(std::int64_t next, Micros now)
{
    if (next <= ack_ || next > next_)
        return std::nullopt;
    const Record& newest = record(next - 1);
    const bool held = !missing_.empty() || record(ack_).again || newest.again;
    ack_ = next;
    missing_.eraseBelow(next);
    arrived(next, now);
    if (held)
        return std::nullopt;
    return now - newest.firstSent;
}

std::optional<Micros> PacketFlight::reported(NumberRange range, Micros now)
{
    const NumberRange known{std::max(range.first, ack_), std::min(range.last, next_ - 2)};
    if (known.first > known.last)
        return std::nullopt;
    const std::int64_t added = missing_.insert(known);
    lost_ += added;
    countedLosses_ += std::min(added, std::max<std::int64_t>(known.last + 1 - countFrom_, 0));
    arrived(known.last + 2, now);
    const Record& cause = record(known.last + 1);
    if (cause.again)
        return std::nullopt;
    return now - cause.firstSent;
}

void PacketFlight::arrived(std::int64_t high, Micros now)
{
    if (high <= last_.high)
        return;
    const Record& newest = record(high - 1);
    last_ = {now, newest.firstSent, high, std::max(last_.delivered, high - lost_), newest.unused};
}

void PacketFlight::timedOut(Micros now)
{
    timedOutAt_ = now;
    resentUpTo_ = next_;
}

bool PacketFlight::resendsWaiting() const
{
    const bool afterTimeOut = resentUpTo_ > ack_ && record(resentUpTo_ - 1).lastSent < timedOutAt_;
    return afterTimeOut || (!missing_.empty() && !record(missing_.highest()).again);
}

std::optional<Micros> PacketFlight::oldestSent() const
{
    if (out() == 0)
        return std::nullopt;
    const Record& oldest = record(ack_);
    const bool waits = missing_.contains(ack_) && !oldest.again;
    if (waits || oldest.lastSent < timedOutAt_)
        return std::nullopt;
    return oldest.lastSent;
}

} // namespace quenmoor
