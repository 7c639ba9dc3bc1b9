// The transfer link over real UDT.
#pragma once

#include "protocol/transfer_link.h"
#include "protocol/udt_socket.h"

#include <memory>

#include "congestion/pacer.h"

namespace quenmoor {

class Repairs;

// The congestion control of a sender. The packet format does not depend on it.
enum class Congestion : std::uint8_t {
    Library, // the transport library's own
    Paced,   // PathModel, see docs/congestion.md
};

// Chosen when the program is built.
inline constexpr Congestion kBuiltInCongestion = Congestion::QUENMOOR_CONGESTION;

// The default port of the transfer server.
inline constexpr std::uint16_t kTransferPort = 65000;

// The options of the client's two sockets.
inline constexpr UdtOptions kConnectSocketOptions{.udpReceiveBuffer = 5590000};
inline constexpr UdtOptions kRendezvousSocketOptions{.receiveTimeout = std::chrono::seconds(10),
                                                     .rendezvous = true};

// Returns the first IPv4 address of `host`. Blocks; may ask the network. On failure stores the
// reason in `error`. Any thread.
[[nodiscard]] std::optional<UdtAddress> lookUpServer(const std::string& host, std::uint16_t port,
                                                     std::string& error);

// The bytes that the system grants of the UDP receive buffer that the connect socket requests, or
// nothing if no socket can be opened. Any thread.
[[nodiscard]] std::optional<std::int32_t> grantedReceiveBuffer();

// Keeps the sockets that it opened and gives out their handles; an operation on any other handle
// fails. Opening a socket closes the one of the attempt before. The first attempt starts the
// library, whose threads then run until the program ends; see exitBesideThreads().
class UdtTransferLink : public TransferLink {
public:
    // `host` is a name or an IPv4 address. Every attempt looks it up again. send() takes at most
    // `rateLimit` bytes per second with either congestion control; 0 for no limit.
    UdtTransferLink(std::string host, std::uint16_t port,
                    Congestion congestion = kBuiltInCongestion, std::int64_t rateLimit = 0);

    bool connectAndSendRequest(std::int32_t& connectSocket, const std::string& text) override;
    bool rendezvousWithServer(std::int32_t connectSocket, std::int32_t& rendezvousSocket) override;
    bool sendString(std::int32_t socket, const std::string& text) override;
    std::string receiveString(std::int32_t socket) override;
    std::int32_t send(std::int32_t socket, std::span<const char> block) override;
    std::optional<std::int32_t> unacknowledged(std::int32_t socket) override;
    std::optional<std::int32_t> socketState(std::int32_t socket) override;
    std::string lastErrorMessage() override;
    std::string failureReason() override { return failureReason_; }
    void closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket) override;

private:
    UdtSocket& socketOf(std::int32_t handle);
    // Blocks until the rate limit permits a block, or the link is lost.
    void waitForLimit(std::int32_t socket);
    std::optional<std::int32_t> sendOrExplain(std::int32_t socket, std::string_view bytes);
    bool failWith(std::string reason);
    bool failWithOutput(const char* call);

    // Set once at construction.
    const std::string host_;
    const std::string port_;
    const Congestion congestion_;

    UdtSocket connectSocket_;
    UdtSocket rendezvousSocket_;
    UdtSocket noSocket_;             // of every other handle
    std::optional<UdpPort> udpPort_; // of both sockets, until the control of the second has it
    std::optional<RateLimit> rateLimit_;
    // Of the rendezvous socket; null with Congestion::Library.
    std::shared_ptr<Pacer> pacer_;
    std::shared_ptr<Repairs> repairs_;
    bool pacerTimedOut_ = false; // in the last send()
    std::string failureReason_;
};

} // namespace quenmoor
