// Releases the blocks of a file to the transport library at the rate of the path.
//
// The library can pace by itself, but its sending thread sleeps for 4 to 8 ms at a time and then
// sends all packets that are due: a burst that overflows a short queue and adds delay to a long
// one. The caller's thread sleeps to within 0.1 ms. The pacer therefore gives the library only what
// is due, and the library sends it at once. The library paces only what does not pass the pacer,
// which is retransmissions if there are many, and the backlog that forms behind them.
//
// A block is due when the blocks before it have had their time; a late caller catches up by 2 ms at
// most. In addition a block waits while the library's backlog of unsent packets is at its limit.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

#include "congestion/delivery_rate.h"

namespace quenmoor {

// The monotonic clock by which a pacer sends. Any thread.
class PacingClock {
public:
    virtual ~PacingClock() = default;

    virtual Micros now() const = 0;

    // Blocks until `condition` is notified or the time `until`; may return earlier. `lock` is held
    // at the call and at the return, and not while the thread is blocked.
    virtual void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                           Micros until) const = 0;
};

// What the pacer needs to know of the path.
struct PathState {
    double packetInterval = 100; // microseconds between two packets
    bool retransmitting = false; // the library has to pace retransmissions
    bool shallowBuffer = false;  // the path's queue overflows before its delay can be measured
};

// The decision when a block may be given to the library. Used by one thread at a time; times never
// decrease.
class ReleaseSchedule {
public:
    static constexpr Micros kNever = INT64_MAX;

    // Sets the rate of the blocks that follow. Returns true if the library must pace what it sends
    // until the next call: retransmissions, and the backlog that they left if it is more than the
    // path's queue may take. False if the library may send its backlog at once.
    [[nodiscard]] bool setPath(const PathState& path);

    // The earliest time for a block of this many packets; kNever while the backlog has no room for
    // it. A block larger than the limit needs an empty backlog.
    Micros releaseTime(std::int64_t packets) const;

    // Records that a block was given to the library.
    void onReleased(std::int64_t packets, Micros now);

    // Records that the library sent a packet for the first time.
    void onPacketSent() { backlog_ -= backlog_ > 0 ? 1 : 0; } // messages have no release

    // Delays the blocks that follow by one packet, which was sent without the library.
    void onRepairSent() { nextRelease_ += path_.packetInterval; }

    // The same for a packet that the library retransmitted without pacing it.
    void onRetransmitted() { nextRelease_ += path_.retransmitting ? 0 : path_.packetInterval; }

    double packetInterval() const { return path_.packetInterval; }

private:
    std::int64_t minBacklog() const;   // packets the library may always hold
    std::int64_t backlogLimit() const; // packets the library may hold now

    PathState path_;
    std::int64_t backlog_ = 0; // packets given to the library and not yet sent
    double nextRelease_ = 0;   // when the next block is due
};

// The thread that gives blocks to the library by a ReleaseSchedule. Any thread, except for
// waitToSend(). Every time that is passed comes from the pacer's clock.
class Pacer {
public:
    explicit Pacer(std::shared_ptr<const PacingClock> clock) : clock_(std::move(clock)) {}

    // The same as for ReleaseSchedule.
    [[nodiscard]] bool setPath(const PathState& path);
    void onPacketSent(Micros now);
    void onRepairSent();
    void onRetransmitted();

    // Records that the peer acknowledged packets.
    void onAcknowledged(Micros now);

    // Blocks until a block of `bytes` may be given to the library, and adds it to the backlog.
    // Returns false if for ten seconds of waiting no packet was sent and none was acknowledged.
    // `check` is called every 10 ms of the wait, without a lock. If it returns false, the link is
    // lost, and the wait ends with true: the send that follows fails with the library's reason.
    // One thread only.
    [[nodiscard]] bool waitToSend(std::size_t bytes, const std::function<bool()>& check = {});

private:
    bool waiterMayRunEarlier(); // requires mutex_

    // Set once at construction.
    const std::shared_ptr<const PacingClock> clock_;

    std::mutex mutex_;
    std::condition_variable condition_; // signals that a block may be released before wakeTime_

    // Guarded by mutex_.
    ReleaseSchedule schedule_;
    Micros lastProgress_ = 0;  // when a packet was last sent or acknowledged
    std::int64_t waiting_ = 0; // packets of the block that waits, 0 for none
    Micros wakeTime_ = 0;      // when its thread wakes without a signal
};

// The rate that the user allows, whatever the path permits: a block is due when the blocks before
// it have had their time. A late caller catches up by 50 ms at most, so that the mean is the limit
// also on a busy machine. One thread; every time that is passed comes from one monotonic clock.
class RateLimit {
public:
    // Requires a positive rate.
    explicit RateLimit(std::int64_t bytesPerSecond)
        : microsPerByte_(1e6 / static_cast<double>(bytesPerSecond))
    {
    }

    // The earliest time for the next block.
    Micros releaseTime() const { return static_cast<Micros>(nextRelease_); }

    // Records that `bytes` were released at the time `now`.
    void onReleased(std::size_t bytes, Micros now);

private:
    const double microsPerByte_;
    double nextRelease_ = 0;
};

} // namespace quenmoor
