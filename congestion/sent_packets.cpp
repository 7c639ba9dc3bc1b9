#include "congestion/sent_packets.h"

#include <algorithm>

namespace quenmoor {

std::optional<double> rateBetween(const Arrival& from, const Arrival& to)
{
    const Micros span = std::max(to.time - from.time, to.sent - from.sent);
    if (span <= 0 || to.delivered < from.delivered)
        return std::nullopt;
    return static_cast<double>(to.delivered - from.delivered) * 1e6 / static_cast<double>(span);
}

SentPackets::SentPackets(std::int64_t first, Micros now)
    : records_(kRecords),
      next_(first),
      ack_(first),
      countFrom_(first),
      timedOutAt_(now),
      resentUpTo_(first)
{
    last_ = {now, now, first, first, 0};
}

SentPackets::Record& SentPackets::record(std::int64_t number)
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

const SentPackets::Record& SentPackets::record(std::int64_t number) const
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

void SentPackets::sent(std::int64_t number, Micros now, double unused)
{
    if (number < next_) {
        record(number).lastSent = now;
        record(number).again = true;
        return;
    }
    record(number) = {now, now, unused, false};
    next_ = number + 1;
}

void SentPackets::measureFrom(Micros now, double unused)
{
    last_.time = now;
    last_.sent = now;
    last_.unused = unused;
}

std::optional<Micros> SentPackets::acknowledged(std::int64_t next, Micros now)
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

std::optional<Micros> SentPackets::reported(NumberRange range, Micros now)
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

void SentPackets::arrived(std::int64_t high, Micros now)
{
    if (high <= last_.high)
        return;
    const Record& newest = record(high - 1);
    last_ = {now, newest.firstSent, high, std::max(last_.delivered, high - lost_), newest.unused};
}

void SentPackets::timedOut(Micros now)
{
    timedOutAt_ = now;
    resentUpTo_ = next_;
}

bool SentPackets::resendsWaiting() const
{
    const bool afterTimeOut = resentUpTo_ > ack_ && record(resentUpTo_ - 1).lastSent < timedOutAt_;
    return afterTimeOut || (!missing_.empty() && !record(missing_.highest()).again);
}

std::optional<Micros> SentPackets::oldestSent() const
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
