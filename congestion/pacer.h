// Feeds the transport library block by block, at the pace of the path.
//
// The library can pace by itself, but its thread sleeps for 4 to 8 ms at a time and then sends all
// that is due at once: more than a short queue holds, and in a long one half of it is delay. The
// caller's thread sleeps to a twentieth of a millisecond. So the library is handed what may go out
// now and sends it without a pace of its own. It paces only what does not pass here: packets that
// go out again, and what has gathered behind them.
//
// A block is due when the ones before have had their time, packets * period; a late caller makes
// up for 2 ms at most. It waits as well while the library has not sent max(48 packets, 1 ms of
// them). While packets go out again there is no time, and room for 12 ms more, one and a half
// sleeps of the library; not so on a short queue, where its bunches would be lost again.
#pragma once

#include <cstddef>
#include <mutex>
#include <optional>

#include "congestion/sent_packets.h"

namespace quenmoor {

// What the model says of the path, after every word from the peer.
struct Feed {
    double period = 100;     // microseconds between two packets
    bool resending = false;  // packets are missing, or all go out again
    bool shortQueue = false; // the path's queue is too short to show itself
};

// Any thread, but for admit() and pass().
class Pacer {
public:
    // True when the library has to pace by itself now; false when it may send all it has.
    [[nodiscard]] bool set(const Feed& feed);

    // The library has sent a packet for the first time.
    void packetSent();

    // The peer has more than before.
    void acknowledged();

    // The sending thread only. 0 when a block of `bytes` may be handed over now, and is counted
    // as such; else the microseconds after which to ask again. Nothing when ten seconds of
    // asking have seen no packet sent and none acknowledged.
    [[nodiscard]] std::optional<Micros> admit(std::size_t bytes, Micros now);

    // The sending thread only. Blocks until the block is admitted; false when admit() gives up.
    [[nodiscard]] bool pass(std::size_t bytes);

private:
    // Packets, with mutex_ held: what may always wait in the library, and what may now.
    std::int64_t few() const;
    std::int64_t room() const;

    std::mutex mutex_;

    // Guarded by mutex_.
    Feed feed_;
    bool libraryPaces_ = false;
    std::int64_t ahead_ = 0;    // packets handed over and not sent
    std::int64_t progress_ = 0; // packets sent, and acknowledgements

    // Sending thread only.
    double due_ = 0; // when the next block is
    std::int64_t progressBefore_ = 0;
    std::optional<Micros> progressAt_; // of the library, while a block waits
};

} // namespace quenmoor
