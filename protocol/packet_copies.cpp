#include "protocol/packet_copies.h"

#include <arpa/inet.h>

#include <cstring>

namespace quenmoor {
namespace {

constexpr std::size_t kMaxCopies = 8192; // the receiver's buffer, which limits the flight

} // namespace

void PacketCopies::keep(std::int64_t number, const DataPacket& packet)
{
    const std::int64_t next = oldest_ + static_cast<std::int64_t>(copies_.size());
    drop(number == next ? next - static_cast<std::int64_t>(kMaxCopies) + 1 : next);
    if (copies_.empty())
        oldest_ = number;
    if (unused_.empty())
        unused_.push_back(std::make_unique_for_overwrite<Datagram>());
    copies_.push_back({0, std::move(unused_.back())});
    unused_.pop_back();
    Copy& copy = copies_.back();
    const std::array words{packet.number, packet.message, packet.time, packet.peerSocket};
    const std::size_t size = sizeof words + packet.payload.size();
    if (size > kMaxDatagram)
        return;
    copy.size = size;
    char* out = copy.datagram->data();
    for (const std::int32_t word : words) {
        const std::uint32_t wire = htonl(static_cast<std::uint32_t>(word));
        std::memcpy(out, &wire, sizeof wire);
        out += sizeof wire;
    }
    std::memcpy(out, packet.payload.data(), packet.payload.size());
}

void PacketCopies::drop(std::int64_t next)
{
    for (; oldest_ < next && !copies_.empty(); ++oldest_) {
        unused_.push_back(std::move(copies_.front().datagram));
        copies_.pop_front();
    }
}

std::span<const char> PacketCopies::read(std::int64_t number, Datagram& buffer) const
{
    const std::int64_t index = number - oldest_;
    if (index < 0 || index >= static_cast<std::int64_t>(copies_.size()))
        return {};
    const Copy& copy = copies_[static_cast<std::size_t>(index)];
    std::memcpy(buffer.data(), copy.datagram->data(), copy.size);
    return std::span(buffer).first(copy.size);
}

} // namespace quenmoor
