// A network path of chosen quality between a sender and a service on this machine, made of two UDP
// sockets: no privilege, no kernel module.
//
// Both directions are alike: a queue that drops what does not fit, the wire at its rate, random
// loss, the delay. A lost packet has used its time on the wire. Order is kept.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

namespace quenmoor {

struct PathQuality {
    std::chrono::microseconds delay{0}; // one way
    double loss = 0;                    // share of the packets that reach the wire
    double rate = 0;                    // bits a second, headers included; 0 is no limit
    std::chrono::microseconds queue = std::chrono::seconds(1); // longest wait for the wire
};

// What the sender's direction has carried.
struct PathCounts {
    std::int64_t dataPackets = 0; // came from the sender
    std::int64_t resent = 0;      // of them, those that had come before
    std::int64_t queueDrops = 0;
    std::chrono::microseconds medianWait{0}; // of all packets, in the queue
};

// Carries one sender at a time: the one that spoke last. Any thread, but for the ends of its life.
class UdpRelay {
public:
    // To 127.0.0.1:`servicePort`. Throws std::runtime_error when there is no socket to be had.
    explicit UdpRelay(std::uint16_t servicePort, PathQuality quality, unsigned seed = 1);
    ~UdpRelay();
    UdpRelay(const UdpRelay&) = delete;
    UdpRelay& operator=(const UdpRelay&) = delete;

    // Where the sender finds the service.
    std::uint16_t port() const;

    // Nothing comes through while it is cut.
    void setCut(bool cut) { cut_ = cut; }

    // Ends the relay; the counts are whole from here on.
    PathCounts stop();

private:
    class Path;

    std::unique_ptr<Path> path_; // of the thread, while it runs
    std::atomic<bool> cut_ = false;
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

} // namespace quenmoor
