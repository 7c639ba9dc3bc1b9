#include "congestion/resend_planner.h"

#include <algorithm>

namespace quenmoor {
namespace {

// docs/congestion.md has the source of each constant.
constexpr Micros kAcknowledgementDelay = 12'000;
constexpr double kMaxCatchUp = 300; // what a shallow buffer takes
constexpr std::int64_t kMaxBatch = 256;
constexpr int kMaxBackOff = 3; // doublings of the timeout

} // namespace

// A packet is overdue if a packet that was first sent later, by more than what delays its
// acknowledgement, has arrived, or if the timeout has passed.
bool ResendPlanner::isOverdue(const SentPackets& packets, std::int64_t number) const
{
    const std::optional<Micros> sent = packets.sendTime(number);
    if (!sent)
        return false;
    const auto delay = kAcknowledgementDelay + static_cast<Micros>(2 * interval_);
    const int backOff = number == head_ ? std::clamp(headRepairs_ - 1, 0, kMaxBackOff) : 0;
    return packets.lastArrival().sent > *sent + delay || now_ > *sent + (timeout_ << backOff);
}

// Starts a batch if the acknowledgement has moved from one overdue packet to another.
void ResendPlanner::followAcknowledgement(const SentPackets& packets)
{
    if (packets.acknowledgedUpTo() == head_)
        return;
    head_ = packets.acknowledgedUpTo();
    headRepairs_ = 0;
    batch_ = batch_ > 0 && isOverdue(packets, head_) ? std::min(2 * batch_, kMaxBatch) : 0;
    batchLeft_ = batch_;
    cursor_ = head_;
}

std::optional<std::int64_t> ResendPlanner::next(const SentPackets& packets, Micros timeout,
                                                double interval, Micros now)
{
    timeout_ = timeout;
    interval_ = interval;
    now_ = now;
    followAcknowledgement(packets);
    if (static_cast<double>(now) < nextRepair_)
        return std::nullopt;
    if (batchLeft_ == 0 && !gaveUp() && isOverdue(packets, head_)) {
        batch_ = std::max<std::int64_t>(batch_, 1);
        batchLeft_ = 1;
        cursor_ = head_;
    }
    while (batchLeft_ > 0) {
        const std::optional<std::int64_t> number =
            cursor_ == head_ ? head_ : packets.firstMissingFrom(cursor_);
        if (!number) {
            batchLeft_ = 0;
            break;
        }
        cursor_ = *number + 1;
        if (!isOverdue(packets, *number))
            continue;
        --batchLeft_;
        headRepairs_ += *number == head_ ? 1 : 0;
        nextRepair_ = std::max(nextRepair_, static_cast<double>(now) - kMaxCatchUp) + interval;
        return number;
    }
    return std::nullopt;
}

} // namespace quenmoor
