#include "congestion/sent_packets.h"

#include <algorithm>
#include <iterator>

namespace quenmoor {

std::vector<NumberRange> decodeLossReport(std::span<const std::int32_t> report, std::int64_t near)
{
    std::vector<NumberRange> ranges;
    for (std::size_t i = 0; i < report.size(); ++i) {
        const bool isPair = report[i] < 0;
        const std::int64_t first = unwrapped(report[i] & INT32_MAX, near);
        if (!isPair)
            ranges.push_back({first, first});
        else if (++i < report.size())
            ranges.push_back({first, unwrapped(report[i] & INT32_MAX, near)});
    }
    return ranges;
}

std::int64_t LossRanges::insert(NumberRange range)
{
    const std::int64_t before = count_;
    auto at = ranges_.upper_bound(range.first);
    if (at != ranges_.begin() && std::prev(at)->second + 1 >= range.first)
        --at;
    while (at != ranges_.end() && at->first <= range.last + 1) {
        range.first = std::min(range.first, at->first);
        range.last = std::max(range.last, at->second);
        count_ -= at->second - at->first + 1;
        at = ranges_.erase(at);
    }
    ranges_.emplace_hint(at, range.first, range.last);
    count_ += range.last - range.first + 1;
    return count_ - before;
}

void LossRanges::eraseBelow(std::int64_t number)
{
    while (!ranges_.empty() && ranges_.begin()->first < number) {
        const auto [first, last] = *ranges_.begin();
        ranges_.erase(ranges_.begin());
        count_ -= last - first + 1;
        if (last >= number) {
            ranges_.emplace(number, last);
            count_ += last - number + 1;
        }
    }
}

std::optional<std::int64_t> LossRanges::firstFrom(std::int64_t number) const
{
    const auto after = ranges_.upper_bound(number);
    if (after != ranges_.begin() && std::prev(after)->second >= number)
        return number;
    return after != ranges_.end() ? std::optional(after->first) : std::nullopt;
}

SentPackets::SentPackets(std::int64_t first, Micros now)
    : records_(kRecords),
      next_(first),
      ack_(first),
      last_{now, now, first, first, 0},
      timedOutAt_(now),
      timeoutEnd_(first)
{
}

SentPackets::Record& SentPackets::record(std::int64_t number)
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

const SentPackets::Record& SentPackets::record(std::int64_t number) const
{
    return records_[static_cast<std::size_t>(number) % kRecords];
}

void SentPackets::onSent(std::int64_t number, Micros now, double unused)
{
    if (number < next_) {
        record(number).lastSent = now;
        record(number).retransmitted = true;
        return;
    }
    record(number) = {now, now, unused, false};
    next_ = number + 1;
}

std::optional<Micros> SentPackets::onAcknowledged(std::int64_t next, Micros now)
{
    if (next <= ack_ || next > next_)
        return std::nullopt;
    const Record& newest = record(next - 1);
    const bool ambiguous = !missing_.empty() || record(ack_).retransmitted || newest.retransmitted;
    ack_ = next;
    missing_.eraseBelow(next);
    raiseHighestArrived(next, now);
    if (ambiguous)
        return std::nullopt;
    return now - newest.firstSent;
}

std::optional<Micros> SentPackets::onReportedLost(NumberRange range, Micros now)
{
    // The packet after the range must be in flight: it caused the report.
    const NumberRange valid{std::max(range.first, ack_), std::min(range.last, next_ - 2)};
    if (valid.first > valid.last)
        return std::nullopt;
    lost_ += missing_.insert(valid);
    raiseHighestArrived(valid.last + 2, now);
    const Record& cause = record(valid.last + 1);
    if (cause.retransmitted)
        return std::nullopt;
    return now - cause.firstSent;
}

void SentPackets::onResent(std::int64_t number, Micros now)
{
    if (number >= ack_ && number < next_)
        onSent(number, now, 0);
}

void SentPackets::onTimeout(Micros now)
{
    timedOutAt_ = now;
    timeoutEnd_ = next_;
}

void SentPackets::restartRateSample(Micros now, double unused)
{
    last_.time = now;
    last_.sent = now;
    last_.unused = unused;
}

void SentPackets::raiseHighestArrived(std::int64_t high, Micros now)
{
    if (high <= last_.high)
        return;
    const Record& newest = record(high - 1);
    last_ = {now, newest.firstSent, high, std::max(last_.delivered, high - lost_), newest.unused};
}

bool SentPackets::retransmissionPending() const
{
    const bool afterTimeout = timeoutEnd_ > ack_ && record(timeoutEnd_ - 1).lastSent < timedOutAt_;
    return afterTimeout || (!missing_.empty() && !record(missing_.highest()).retransmitted);
}

std::optional<Micros> SentPackets::sendTime(std::int64_t number) const
{
    if (number < ack_ || number >= next_)
        return std::nullopt;
    const Record& packet = record(number);
    const bool pending = !packet.retransmitted && missing_.contains(number);
    if (pending || (number < timeoutEnd_ && packet.lastSent < timedOutAt_))
        return std::nullopt;
    return packet.lastSent;
}

} // namespace quenmoor
