#include "protocol/udp_port.h"

#include "protocol/udt_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#ifdef __linux__
#include <linux/filter.h>
#include <sys/syscall.h>

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

#ifdef QUENMOOR_THREAD_SANITIZER
// The library closes the socket where ThreadSanitizer does not see it. If its creation were seen,
// the next use of the descriptor would look like a race with it.
int makeSocket()
{
    return static_cast<int>(syscall(SYS_socket, AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}
bool bindTo(int descriptor, const sockaddr_in& address)
{
    return syscall(SYS_bind, descriptor, &address, sizeof address) == 0;
}
#else
int makeSocket()
{
    return socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
}
bool bindTo(int descriptor, const sockaddr_in& address)
{
    return bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}
#endif

} // namespace

sockaddr_in toSystem(const UdtAddress& address)
{
    sockaddr_in system{};
    system.sin_family = AF_INET;
    system.sin_addr.s_addr = htonl(address.host);
    system.sin_port = htons(address.port);
    return system;
}

std::optional<UdpPort> UdpPort::open(const UdtAddress& address)
{
    UdpPort port(makeSocket());
    if (port.descriptor_ < 0)
        return std::nullopt;
    attachFilter(port.descriptor_); // first: no packet may arrive without it
    const sockaddr_in system = toSystem(address);
    if (!bindTo(port.descriptor_, system))
        return std::nullopt;
    return port;
}

UdpPort::~UdpPort()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}

UdpPort::UdpPort(UdpPort&& other) noexcept : descriptor_(other.release()) {}

UdpPort& UdpPort::operator=(UdpPort&& other) noexcept
{
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

std::optional<UdpPort> UdpPort::duplicate() const
{
    UdpPort copy(fcntl(descriptor_, F_DUPFD_CLOEXEC, 0));
    return copy.descriptor_ >= 0 ? std::optional(std::move(copy)) : std::nullopt;
}

int UdpPort::release()
{
    return std::exchange(descriptor_, -1);
}

void UdpPort::send(std::span<const char> datagram, const UdtAddress& peer) const
{
    const sockaddr_in system = toSystem(peer);
    (void)sendto(descriptor_, datagram.data(), datagram.size(), MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&system), sizeof system);
}

} // namespace quenmoor
