#include "protocol/handshake_filter.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#ifdef __linux__
#include <linux/filter.h>

#include <array>
#endif

namespace quenmoor {
namespace {

#ifdef __linux__
// Offsets in a datagram with its UDP header of 8 bytes and the library's header of 16 bytes. All
// fields are big-endian words.
constexpr std::uint32_t kTypeOffset = 8;
constexpr std::uint32_t kPacketSizeOffset = 36;
constexpr std::uint32_t kWindowOffset = 40;

constexpr std::uint32_t kTypeMask = 0xFFFF0000;
constexpr std::uint32_t kHandshake = 0x80000000;
// In bytes with all headers. The library copies its handshake into a packet of this size.
constexpr std::uint32_t kMinPacketSize = 28 + 16 + 48;
constexpr std::uint32_t kMaxPacketSize = 65535;
constexpr std::uint32_t kMinWindow = 32;        // packets; the library announces more
constexpr std::uint32_t kMaxWindow = 1U << 20U; // packets; the library allocates 24 bytes for each
constexpr std::uint32_t kWholeDatagram = 0x40000; // more than its length

constexpr sock_filter load(std::uint32_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offset);
}
constexpr sock_filter jump(std::uint16_t condition, std::uint32_t value, std::uint8_t ifTrue,
                           std::uint8_t ifFalse)
{
    return BPF_JUMP(static_cast<std::uint16_t>(BPF_JMP | BPF_K | condition), value, ifTrue,
                    ifFalse);
}

// A load beyond the end of a datagram drops it: a handshake that is too short.
void attachFilter(int socket)
{
    std::array program{
        load(kTypeOffset),
        sock_filter BPF_STMT(BPF_ALU | BPF_AND | BPF_K, kTypeMask),
        jump(BPF_JEQ, kHandshake, 0, 6), // any other packet passes
        load(kPacketSizeOffset),
        jump(BPF_JGE, kMinPacketSize, 0, 5),
        jump(BPF_JGT, kMaxPacketSize, 4, 0),
        load(kWindowOffset),
        jump(BPF_JGE, kMinWindow, 0, 2),
        jump(BPF_JGT, kMaxWindow, 1, 0),
        sock_filter BPF_STMT(BPF_RET | BPF_K, kWholeDatagram),
        sock_filter BPF_STMT(BPF_RET | BPF_K, 0), // drops the datagram
    };
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}
#else
void attachFilter(int /*socket*/) {}
#endif

} // namespace

std::optional<int> openFilteredUdpSocket(const sockaddr_in& address)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    if (descriptor < 0)
        return std::nullopt;
    attachFilter(descriptor); // first: no packet may arrive without it
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(descriptor);
        return std::nullopt;
    }
    return descriptor;
}

} // namespace quenmoor
