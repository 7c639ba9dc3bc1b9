// Takes uploads over UDT: a listener, and a session on a thread of its own for every client.
//
// Listener and rendezvous sockets share one local port; the library tells them apart.
#pragma once

#include "devservice/transfer_session.h"
#include "protocol/udt_transfer_link.h"

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quenmoor {

struct TransferServerSettings {
    std::string bindAddress = "127.0.0.1"; // IPv4; 0.0.0.0 for every address of the machine
    std::uint16_t port = kTransferPort;    // 0 takes a free one
    std::size_t mostSessions = 64;         // further clients are turned away
    TransferLimits limits;
};

// start() and stop() belong to the thread that made the server; the rest is for any thread.
class TransferServer {
public:
    // Store and tokens must outlive the server.
    TransferServer(TransferServerSettings settings, UploadStore& store, const TokenStore& tokens);

    // Stops.
    ~TransferServer();

    TransferServer(const TransferServer&) = delete;
    TransferServer& operator=(const TransferServer&) = delete;

    // Listens from its return on. False, with a sentence in `error`, when the address is none or
    // cannot be had. Once only.
    [[nodiscard]] bool start(std::string& error);

    // Where it listens; after start().
    const UdtAddress& address() const { return address_; }
    std::uint16_t port() const { return address_.port; }

    // The next `attempts` clients meet these faults, all of them without a number. Sessions that
    // have begun go on as they are.
    void setFaults(Faults faults, std::optional<int> attempts = std::nullopt);

    // Clients that came, and those that are being served.
    int attempts() const { return attempts_; }
    int openSessions() const { return openSessions_; }

    // Ends every session and waits for it: about two seconds at most, unless the disk takes
    // longer. What came in stays resumable. Harmless when repeated.
    void stop();

private:
    struct Session {
        std::shared_ptr<SessionSignal> signal = std::make_shared<SessionSignal>();
        std::atomic<bool> done{false};
        std::thread thread;
    };

    void acceptClients();
    void admit(UdtSocket socket, const UdtAddress& peer);
    void joinFinished();
    Faults nextFaults();

    // Set once at construction.
    const TransferServerSettings settings_;
    TransferServices services_;

    // Set by start().
    std::optional<UdtSocket> listener_;
    UdtAddress address_;
    std::thread acceptThread_;

    // The accepting thread; stop() once that has ended.
    std::list<Session> sessions_;

    std::atomic<int> attempts_{0};
    std::atomic<int> openSessions_{0};

    std::mutex faultsMutex_;
    Faults faults_;                    // guarded by faultsMutex_
    std::optional<int> faultAttempts_; // guarded by faultsMutex_
};

} // namespace quenmoor
