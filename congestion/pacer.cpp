#include "congestion/pacer.h"

#include <algorithm>

namespace quenmoor {
namespace {

constexpr std::size_t kPayload = 1456; // bytes in a packet; the last packet of a block is shorter
constexpr std::int64_t kBlockPackets = 12;
constexpr double kMinBacklogPackets = 48; // four blocks
constexpr double kMinBacklogTime = 1'000;
constexpr double kBurstTime = 12'000; // one and a half of the library's longest sleeps
constexpr double kMaxCatchUp = 2'000;
constexpr double kMaxCatchUpShallow = 300; // what a shallow buffer takes
constexpr double kMaxLimitCatchUp = 50'000;
constexpr double kSignalInterval = 250;
constexpr Micros kStallTimeout = 10'000'000; // also the library's limit for room in its buffer
constexpr Micros kCheckInterval = 10'000;

} // namespace

bool ReleaseSchedule::setPath(const PathState& path)
{
    path_ = path;
    const auto burst = static_cast<std::int64_t>(kMaxCatchUp / path.packetInterval);
    const std::int64_t most =
        path.shallowBuffer ? std::clamp(burst, kBlockPackets, minBacklog()) : minBacklog();
    return path.retransmitting || backlog_ > most;
}

std::int64_t ReleaseSchedule::minBacklog() const
{
    return static_cast<std::int64_t>(
        std::max(kMinBacklogPackets, kMinBacklogTime / path_.packetInterval));
}

std::int64_t ReleaseSchedule::backlogLimit() const
{
    if (!path_.retransmitting || path_.shallowBuffer)
        return minBacklog();
    return static_cast<std::int64_t>(kMinBacklogPackets + kBurstTime / path_.packetInterval);
}

Micros ReleaseSchedule::releaseTime(std::int64_t packets) const
{
    if (backlog_ > 0 && backlog_ + packets > backlogLimit())
        return kNever;
    const bool timed = !path_.retransmitting || path_.shallowBuffer;
    return timed ? static_cast<Micros>(nextRelease_) : 0;
}

void ReleaseSchedule::onReleased(std::int64_t packets, Micros now)
{
    const double catchUp = path_.shallowBuffer ? kMaxCatchUpShallow : kMaxCatchUp;
    nextRelease_ = std::max(nextRelease_, static_cast<double>(now) - catchUp) +
                   path_.packetInterval * static_cast<double>(packets);
    backlog_ += packets;
}

bool Pacer::setPath(const PathState& path)
{
    bool wake = false;
    bool libraryPaces = false;
    {
        const std::lock_guard lock(mutex_);
        libraryPaces = schedule_.setPath(path);
        wake = waiterMayRunEarlier();
    }
    if (wake)
        condition_.notify_one();
    return libraryPaces;
}

void Pacer::onPacketSent(Micros now)
{
    bool wake = false;
    {
        const std::lock_guard lock(mutex_);
        schedule_.onPacketSent();
        lastProgress_ = now;
        wake = waiterMayRunEarlier();
    }
    if (wake)
        condition_.notify_one();
}

void Pacer::onRepairSent()
{
    const std::lock_guard lock(mutex_);
    schedule_.onRepairSent();
}

void Pacer::onRetransmitted()
{
    const std::lock_guard lock(mutex_);
    schedule_.onRetransmitted();
}

void Pacer::onAcknowledged(Micros now)
{
    const std::lock_guard lock(mutex_);
    lastProgress_ = now;
}

// True once for each change by which the waiting block may be released before its thread wakes. The
// library calls for every packet with a lock of its own held, and each signal costs throughput.
// Therefore the backlog must also have room for the packets of kSignalInterval: at high rates the
// thread then releases several blocks for each signal.
bool Pacer::waiterMayRunEarlier()
{
    if (waiting_ == 0)
        return false;
    const auto room = static_cast<std::int64_t>(kSignalInterval / schedule_.packetInterval());
    const Micros release = schedule_.releaseTime(std::max(waiting_, room));
    if (release >= wakeTime_)
        return false;
    wakeTime_ = release;
    return true;
}

bool Pacer::waitToSend(std::size_t bytes, const std::function<bool()>& check)
{
    const auto packets = static_cast<std::int64_t>((bytes + kPayload - 1) / kPayload);
    std::unique_lock lock(mutex_);
    Micros now = clock_->now();
    const Micros began = now;
    Micros nextCheck = check ? now + kCheckInterval : ReleaseSchedule::kNever;
    while (schedule_.releaseTime(packets) > now) {
        const Micros deadline = std::max(began, lastProgress_) + kStallTimeout;
        if (now >= deadline)
            return false;
        if (now >= nextCheck) {
            nextCheck = now + kCheckInterval;
            lock.unlock();
            const bool linkIsUp = check();
            lock.lock();
            if (!linkIsUp)
                break;
        }
        wakeTime_ = std::min({schedule_.releaseTime(packets), deadline, nextCheck});
        waiting_ = packets;
        clock_->waitUntil(condition_, lock, wakeTime_);
        waiting_ = 0;
        now = clock_->now();
    }
    schedule_.onReleased(packets, now);
    return true;
}

void RateLimit::onReleased(std::size_t bytes, Micros now)
{
    nextRelease_ = std::max(nextRelease_, static_cast<double>(now) - kMaxLimitCatchUp) +
                   microsPerByte_ * static_cast<double>(bytes);
}

} // namespace quenmoor
