#include "protocol/udp_port.h"

#include "protocol/udt_socket.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#ifdef __linux__
#include <linux/filter.h>
#include <sys/syscall.h>
#endif

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto kProcessingTime = 1s;
constexpr auto kProcessingPoll = 1ms;

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

constexpr sock_filter kMaskType = BPF_STMT(BPF_ALU | BPF_AND | BPF_K, kTypeMask);
constexpr sock_filter kPass = BPF_STMT(BPF_RET | BPF_K, kWholeDatagram);
constexpr sock_filter kDrop = BPF_STMT(BPF_RET | BPF_K, 0);

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

template <std::size_t Size>
void attach(int socket, std::array<sock_filter, Size> program)
{
    const sock_fprog filter{Size, program.data()};
    setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter);
}

// A load beyond the end of a datagram drops it: a handshake that is too short.
void attachFilter(int socket)
{
    attach(socket, std::array{
                       load(kTypeOffset),
                       kMaskType,
                       jump(BPF_JEQ, kHandshake, 0, 6), // any other packet passes
                       load(kPacketSizeOffset),
                       jump(BPF_JGE, kMinPacketSize, 0, 5),
                       jump(BPF_JGT, kMaxPacketSize, 4, 0),
                       load(kWindowOffset),
                       jump(BPF_JGE, kMinWindow, 0, 2),
                       jump(BPF_JGT, kMaxWindow, 1, 0),
                       kPass,
                       kDrop,
                   });
}

void attachFilterWithoutHandshakes(int socket)
{
    attach(socket,
           std::array{load(kTypeOffset), kMaskType, jump(BPF_JEQ, kHandshake, 1, 0), kPass, kDrop});
}
#else
void attachFilter(int /*socket*/) {}
void attachFilterWithoutHandshakes(int /*socket*/) {}
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

void UdpPort::refuseHandshakes() const
{
    attachFilterWithoutHandshakes(descriptor_);
}

void UdpPort::awaitProcessed() const
{
    sockaddr_in self{};
    socklen_t length = sizeof self;
    getsockname(descriptor_, reinterpret_cast<sockaddr*>(&self), &length);
    if (self.sin_addr.s_addr == htonl(INADDR_ANY))
        self.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto deadline = steady_clock::now() + kProcessingTime;
    const auto awaitEmpty = [&] {
        pollfd waiting{descriptor_, POLLIN, 0};
        do
            std::this_thread::sleep_for(kProcessingPoll);
        while (poll(&waiting, 1, 0) > 0 && steady_clock::now() < deadline);
    };
    awaitEmpty();
    // The library has processed a datagram when it has read the next one. It ignores this one,
    // which is for a socket that does not exist.
    constexpr std::array<char, 16> kIgnored{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    (void)sendto(descriptor_, kIgnored.data(), kIgnored.size(), MSG_DONTWAIT,
                 reinterpret_cast<const sockaddr*>(&self), sizeof self);
    awaitEmpty();
}

} // namespace quenmoor
