// Copies of the data packets that were sent last, to retransmit them without the library.
//
// The receiver cannot tell such a datagram from one of the library: it reads the sequence number
// and the payload, and drops what it has.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace quenmoor {

// In host byte order.
struct DataPacket {
    std::int32_t number; // sequence number, 31 bits
    std::int32_t message;
    std::int32_t time;
    std::int32_t peerSocket;
    std::span<const char> payload;
};

// Used by one thread at a time.
class PacketCopies {
public:
    static constexpr std::size_t kMaxDatagram = 1500 - 28; // without the headers of IP and UDP
    using Datagram = std::array<char, kMaxDatagram>;

    // Keeps `packet` as `number`, its sequence number unwrapped. A number that does not follow the
    // one before drops all earlier copies.
    void keep(std::int64_t number, const DataPacket& packet);

    // Drops the packets below `next`. The packets that follow use their memory again, the latest
    // first, so that it is still in the processor's cache.
    void drop(std::int64_t next);

    // Stores the datagram in `buffer` and returns its part of it, empty if there is no copy.
    std::span<const char> read(std::int64_t number, Datagram& buffer) const;

private:
    struct Copy {
        std::size_t size = 0; // 0 for none
        std::unique_ptr<Datagram> datagram;
    };

    std::deque<Copy> copies_; // the first is that of oldest_
    std::int64_t oldest_ = 0;
    std::vector<std::unique_ptr<Datagram>> unused_;
};

} // namespace quenmoor
