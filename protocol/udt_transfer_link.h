// The transfer link over real UDT.
#pragma once

#include "protocol/congestion.h"
#include "protocol/transfer_link.h"

#include <memory>

#include "congestion/pacer.h"

namespace quenmoor {

// The transfer server listens here unless a link is told otherwise.
inline constexpr std::uint16_t kTransferPort = 65000;

// Used by one thread at a time. The library is started by the first attempt and stays started.
class UdtTransferLink : public TransferLink {
public:
    // `host` is a name or an IPv4 address; it is looked up anew in every attempt.
    UdtTransferLink(std::string host, std::uint16_t port,
                    Congestion congestion = kBuiltInCongestion);

    bool connectAndSendRequest(std::int32_t& connectSocket, const std::string& text) override;
    bool rendezvousWithServer(std::int32_t connectSocket, std::int32_t& rendezvousSocket) override;
    bool sendString(std::int32_t socket, const std::string& text) override;
    std::string receiveString(std::int32_t socket) override;
    std::int32_t send(std::int32_t socket, std::span<const char> block) override;
    std::optional<std::int32_t> unacknowledged(std::int32_t socket) override;
    std::optional<std::int32_t> socketState(std::int32_t socket) override;
    std::string lastErrorMessage() override;
    std::string failureReason() override { return lastErrorMessage(); }
    void closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket) override;

private:
    // Set once at construction.
    const std::string host_;
    const std::string port_;
    const Congestion congestion_;

    // What the rendezvous socket's blocks pass; nullptr with the library's own control.
    std::shared_ptr<Pacer> gate_;
    bool stalled_ = false; // the last block did not pass
};

} // namespace quenmoor
