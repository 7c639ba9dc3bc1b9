// A UDT stream socket that closes itself: the only user of the transport library's socket calls.
//
// Closing waits up to two seconds for data that the peer has not acknowledged. With the library's
// default it would wait 180 seconds for a peer that is alive and does not read.
#pragma once

#include "protocol/udp_port.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quenmoor {

// An IPv4 endpoint in host byte order.
struct UdtAddress {
    std::uint32_t host = 0;
    std::uint16_t port = 0;

    // Returns nothing unless `host` is an IPv4 address in dotted decimal form.
    [[nodiscard]] static std::optional<UdtAddress> parse(const std::string& host,
                                                         std::uint16_t port);
    std::string text() const; // "127.0.0.1:65000"
};

// Options that differ between sockets. All others have the library's defaults, except the linger.
struct UdtOptions {
    std::optional<int> udpReceiveBuffer = {}; // bytes
    std::optional<std::chrono::milliseconds> receiveTimeout = {};
    bool rendezvous = false;
};

struct Received {
    enum class Outcome : std::uint8_t { Bytes, TimedOut, Broken };

    Outcome outcome{};
    std::size_t count = 0; // more than 0 with Bytes, otherwise 0
};

// Used by one thread at a time, except interrupt(). Sends wait up to ten seconds for space in the
// send buffer. The operations of a default-constructed, moved-from or closed socket fail.
class UdtSocket {
public:
    // The time limit of receive() for the sockets of listen() and rendezvous(). It is short so that
    // their users can check for other events between two calls.
    static constexpr std::chrono::milliseconds kReceiveSlice{200};
    static constexpr std::chrono::seconds kSendTimeout{10};

    // The library runs while startLibrary() has been called more often than stopLibrary(). Every
    // socket is opened and closed while it runs.
    static void startLibrary();
    static void stopLibrary();

    // Opens a socket whose operations block. Check handle() before relying on it: it is negative
    // when the library could not open a socket.
    [[nodiscard]] static UdtSocket open(const UdtOptions& options);

    // Opens a listener on `address`; port 0 takes a free one. On failure returns nothing and stores
    // a sentence in `error`.
    [[nodiscard]] static std::optional<UdtSocket> listen(const UdtAddress& address,
                                                         std::string& error);

    // Starts a rendezvous connection to `peer` from `local`, which may be the address of a
    // listener, and returns at once; connected() reports when it is established. A peer that never
    // answers is not an error. On failure returns nothing and stores a sentence in `error`.
    [[nodiscard]] static std::optional<UdtSocket>
    rendezvous(const UdtAddress& local, const UdtAddress& peer, std::string& error);

    UdtSocket() = default;
    ~UdtSocket();
    UdtSocket(UdtSocket&& other) noexcept;
    UdtSocket& operator=(UdtSocket&& other) noexcept;

    // The library's handle; negative without a socket.
    std::int32_t handle() const { return handle_; }

    // Takes a UDP port that drops the handshakes which the library does not survive; port 0 takes a
    // free one. Returns a descriptor of it for use beside the library, or nothing on failure.
    [[nodiscard]] std::optional<UdpPort> bindPort(const UdtAddress& address) const;

    // Shares the port, and its filter, of the socket that is bound to `address`.
    [[nodiscard]] bool bind(const UdtAddress& address) const;

    // Blocks for up to 3 seconds while the peer does not answer, and nothing can interrupt it.
    // Fails if handshakeFault() returns a fault. After any other failure the socket is closed.
    [[nodiscard]] bool connect(const UdtAddress& peer);

    // The same for a socket with the rendezvous option, for up to 29.5 seconds.
    [[nodiscard]] bool connectRendezvous(const UdtAddress& peer);

    // Returns why the connection must be closed, without a full stop; empty for a sound connection,
    // and before it is established. The packet size is the peer's choice, and the library divides
    // by the part of it that is left for data. A rendezvous that was started with rendezvous() has
    // to be checked once it is connected().
    [[nodiscard]] std::string handshakeFault() const;

    // Blocks until a client connects, whose address is stored in `peer`, or until interrupt();
    // returns nothing then. Clients with a handshakeFault() are turned away. Listeners only.
    [[nodiscard]] std::optional<UdtSocket> accept(UdtAddress& peer) const;

    // Any thread, while the socket exists. Ends the connection: a blocked accept() or receive()
    // returns at once. A listener accepts no further client.
    void interrupt() const;

    std::optional<UdtAddress> localAddress() const;
    std::optional<UdtAddress> peerAddress() const;

    // False before the connection is established, and after the peer has closed it or is lost.
    [[nodiscard]] bool connected() const;

    // The library's state of the socket; nothing once it is gone.
    std::optional<std::int32_t> state() const;

    // Blocks until there are bytes, the time limit or the end of the connection. Bytes that arrived
    // before the peer closed are delivered first.
    [[nodiscard]] Received receive(std::span<char> buffer);

    // Returns the number of bytes that the library took, or nothing on failure. A broken connection
    // is a failure for an empty `bytes` too, and a handshakeFault() for any.
    [[nodiscard]] std::optional<std::int32_t> sendSome(std::string_view bytes);

    // Returns true once the library has taken all of `bytes`.
    [[nodiscard]] bool send(std::string_view bytes);

    // The number of packets that the peer has not acknowledged; nothing once the socket is gone.
    std::optional<std::int32_t> unacknowledgedPackets() const;

    // Closing a closed socket has no effect. A rendezvous that the library gave up, because the
    // process was frozen or the system's time was changed, stays open until the process ends.
    // A listener is interrupted, and is the last of the sockets of its port to be closed.
    void close();

    // Describe the last failed call of any socket on the calling thread.
    static std::string lastErrorMessage();
    static bool lastErrorIsTimeout();
    static bool lastErrorIsNoSocket();

private:
    explicit UdtSocket(std::int32_t handle) : handle_(handle) {}

    bool startRendezvous(const UdtAddress& peer);

    std::int32_t handle_ = -1;
    std::optional<UdpPort> listenPort_; // of a listener
    bool receiveBlocks_ = true;
    bool handshakeChecked_ = false; // by sendSome()
};

} // namespace quenmoor
