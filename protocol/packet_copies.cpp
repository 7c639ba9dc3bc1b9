#include "protocol/packet_copies.h"

#include <arpa/inet.h>

#include <cstring>

namespace quenmoor {
namespace {

constexpr std::size_t kCopies = 8192; // packets in the receiver's buffer, which limits the flight

std::size_t placeOf(std::int64_t number)
{
    return static_cast<std::size_t>(number) % kCopies;
}

} // namespace

void PacketCopies::keep(std::int64_t number, const DataPacket& packet)
{
    if (copies_.empty()) {
        copies_.resize(kCopies);
        datagrams_ = std::make_unique_for_overwrite<Datagram[]>(kCopies);
    }
    const std::size_t place = placeOf(number);
    const std::array words{packet.number, packet.message, packet.time, packet.peerSocket};
    const std::size_t size = sizeof words + packet.payload.size();
    if (size > kMaxDatagram) {
        copies_[place] = {};
        return;
    }
    copies_[place] = {number, size};
    char* out = datagrams_[place].data();
    for (const std::int32_t word : words) {
        const std::uint32_t wire = htonl(static_cast<std::uint32_t>(word));
        std::memcpy(out, &wire, sizeof wire);
        out += sizeof wire;
    }
    std::memcpy(out, packet.payload.data(), packet.payload.size());
}

std::span<const char> PacketCopies::read(std::int64_t number, Datagram& buffer) const
{
    if (copies_.empty() || copies_[placeOf(number)].number != number)
        return {};
    const std::size_t size = copies_[placeOf(number)].size;
    std::memcpy(buffer.data(), datagrams_[placeOf(number)].data(), size);
    return std::span(buffer).first(size);
}

} // namespace quenmoor
