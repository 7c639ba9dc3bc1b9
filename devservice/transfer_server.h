// Receives uploads over UDT: a listener, and one session with its own thread for each client.
//
// Listener and rendezvous sockets share one local port; the library distinguishes them by the
// socket id in each packet.
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
    std::uint16_t port = kTransferPort;    // 0 selects a free one
    // Clients that are served at once. A further one replaces the oldest that has not connected to
    // its rendezvous, and is rejected if there is none.
    std::size_t maxSessions = 64;
    TransferTimeouts timeouts;
};

// start(), stop() and the destructor: one thread. Everything else: any thread.
class TransferServer {
public:
    // Store and tokens must outlive the server.
    TransferServer(TransferServerSettings settings, UploadStore& store, TokenStore& tokens);

    // Calls stop().
    ~TransferServer();

    TransferServer(const TransferServer&) = delete;
    TransferServer& operator=(const TransferServer&) = delete;

    // Accepts clients once it has returned. Returns false, with a sentence in `error`, if the
    // address is not valid or not available. May be called once.
    [[nodiscard]] bool start(std::string& error);

    // The address that it listens on. Requires start().
    const UdtAddress& address() const { return address_; }
    std::uint16_t port() const { return address_.port; }

    // Applies `faults` to the next `attempts` clients, or to all if there is no number. Sessions
    // that have started keep the faults that they have.
    void setFaults(Faults faults, std::optional<int> attempts = std::nullopt);

    // The clients that connected so far, and those whose session has not ended.
    int attempts() const { return attempts_; }
    int openSessions() const { return openSessions_; }

    // Ends every session and waits for it: at most about two seconds, unless the disk takes
    // longer. The received bytes can be resumed. A second call has no effect.
    void stop();

private:
    struct Session {
        std::shared_ptr<StopSignal> stop = std::make_shared<StopSignal>();
        std::atomic<bool> done{false};
        std::atomic<SessionStage> stage{SessionStage::Unknown};
        std::thread thread;
    };

    void acceptClients();
    void startSession(UdtSocket socket, const UdtAddress& peer);
    void joinEndedSessions();
    bool makeRoom();
    Faults takeFaults();

    // Set once at construction.
    const TransferServerSettings settings_;
    TransferServices services_;

    // Set by start().
    std::optional<UdtSocket> listener_;
    UdtAddress address_;
    std::thread acceptThread_;

    // The accepting thread; stop() after that has ended.
    std::list<Session> sessions_;

    std::atomic<int> attempts_{0};
    std::atomic<int> openSessions_{0};

    std::mutex faultsMutex_;
    Faults faults_;                    // guarded by faultsMutex_
    std::optional<int> faultAttempts_; // guarded by faultsMutex_
};

} // namespace quenmoor
