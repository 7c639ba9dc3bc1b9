// Emulates a network path between a sender and a service on this machine with two UDP sockets. It
// needs neither privileges nor a kernel module.
//
// Both directions have the same quality: a drop-tail queue, a link rate, random loss, damage,
// duplication and reordering, a delay. A lost packet has taken its transmission time.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quenmoor {

struct PathQuality {
    std::chrono::microseconds delay{0}; // one way
    double loss = 0;                    // share of the transmitted packets
    double rate = 0;                    // bits per second with UDP and IP headers; 0 is no limit
    std::chrono::microseconds queue = std::chrono::seconds(1); // the longest queueing delay
    double duplicated = 0;                                     // share of the delivered packets
    double reordered = 0; // share of the delivered packets; each arrives 2 ms late
    // Share of the delivered packets with damage that UDP's checksum does not detect: one bit is
    // inverted, or the end is missing. Spares the sequence numbers, lengths and contents of data
    // packets unless `damagesContent`.
    double damaged = 0;
    bool damagesContent = false;
};

// Counts of the direction from the sender to the service.
struct PathCounts {
    std::int64_t dataPackets = 0;
    std::int64_t retransmitted = 0; // of the data packets
    std::int64_t queueDrops = 0;
    std::int64_t duplicated = 0;
    std::int64_t reordered = 0;
    std::int64_t damaged = 0;
    std::chrono::microseconds medianWait{0}; // the queueing delay of all packets
};

// Serves one sender at a time: packets of the service go to the sender of the latest packet. Any
// thread, except for construction and destruction.
class UdpRelay {
public:
    // Changes a packet of the service. Called by the relay's thread.
    using Edit = std::function<void(std::string& packet)>;

    // Relays to 127.0.0.1:`servicePort`. Throws std::runtime_error if a socket cannot be opened.
    explicit UdpRelay(std::uint16_t servicePort, PathQuality quality, unsigned seed = 1,
                      Edit edit = {});
    ~UdpRelay();
    UdpRelay(const UdpRelay&) = delete;
    UdpRelay& operator=(const UdpRelay&) = delete;

    // The port to which the sender connects instead of the service's.
    std::uint16_t port() const;

    // Applies to the packets that enter the path from then on.
    void setQuality(const PathQuality& quality);

    // Stops relaying and returns the final counts.
    PathCounts stop();

private:
    class Path;

    std::optional<PathQuality> takeQuality();

    std::unique_ptr<Path> path_; // used by the thread while it runs
    std::mutex mutex_;
    std::optional<PathQuality> nextQuality_; // guarded by mutex_
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

} // namespace quenmoor
