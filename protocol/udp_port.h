// A UDP port for the transport library, which can be used beside it, and which drops the handshakes
// of a hostile peer before the library reads them.
//
// The library sizes its buffers by the packet size and the window that the peer announces. A
// negative or huge value takes gigabytes, or makes an allocation fail where the library permits no
// exception, which ends the process. Nothing can be checked after the library has read the packet.
#pragma once

#include <optional>
#include <span>

struct sockaddr_in;

namespace quenmoor {

struct UdtAddress;

sockaddr_in toSystem(const UdtAddress& address);

// Owns a descriptor of the port, which remains in use while there is one. Used by one thread at a
// time, except send() and refuseHandshakes().
class UdpPort {
public:
    // Takes the port of `address`, 0 for a free one. Returns nothing if it is not available. On
    // systems other than Linux, and where the kernel refuses the filter, it drops nothing.
    [[nodiscard]] static std::optional<UdpPort> open(const UdtAddress& address);

    ~UdpPort();
    UdpPort(UdpPort&& other) noexcept;
    UdpPort& operator=(UdpPort&& other) noexcept;

    // A second descriptor of the same port; nothing if there are too many.
    [[nodiscard]] std::optional<UdpPort> duplicate() const;

    int descriptor() const { return descriptor_; }

    // Gives up the ownership of the descriptor.
    int release();

    // Sends one datagram. Does not block: a datagram that the system cannot take is lost.
    void send(std::span<const char> datagram, const UdtAddress& peer) const;

    // Drops every handshake that arrives from now on; connections are not affected (Linux).
    void refuseHandshakes() const;

    // Blocks until the library has processed what arrived before the call: usually a millisecond,
    // at most a second.
    void awaitProcessed() const;

private:
    explicit UdpPort(int descriptor) : descriptor_(descriptor) {}

    int descriptor_ = -1;
};

} // namespace quenmoor
