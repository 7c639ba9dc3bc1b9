// One attempt of a client, from its request to the closing document.
#pragma once

#include "base/log.h"
#include "devservice/active_attempts.h"
#include "devservice/faults.h"
#include "devservice/tokens.h"
#include "devservice/upload_store.h"
#include "protocol/documents.h"
#include "protocol/udt_socket.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

struct TransferTimeouts {
    std::chrono::milliseconds request{10'000}; // for the whole request to arrive
    // For the client to connect to the rendezvous. After 30 seconds the library abandons a
    // rendezvous and keeps a pointer to it beyond its close(), so that it must be closed before.
    std::chrono::milliseconds rendezvous{25'000};
    std::chrono::milliseconds refusal{5'000}; // the same without a valid token, to read the refusal
    std::chrono::milliseconds confirmation{3'600'000}; // the user is asked meanwhile
    std::chrono::milliseconds idle{30'000};            // without a byte of an incomplete file
    std::chrono::milliseconds takeover{5'000};         // for an older attempt to end
    std::chrono::milliseconds close{10'000};           // for the client to close the link

    // Pause between the rendezvous and the response. The library drops a packet that arrives
    // while the client still accepts the rendezvous, and retransmits it after 0.4 seconds.
    std::chrono::milliseconds responsePause{20};
    // Pause between the response and the closing document of an empty file. A client that receives
    // both at once takes the second for a part of the first and waits for it until its time-out.
    std::chrono::milliseconds closingPause{250};
};

// Shared by all sessions, which it must outlive.
struct TransferServices {
    UploadStore& store;
    TokenStore& tokens;
    const TransferTimeouts timeouts;
    ActiveAttempts attempts;
};

// How far an attempt has come. The server ends lower ones in favour of newer clients.
enum class SessionStage : std::uint8_t {
    Unknown,   // no valid token so far
    Accepted,  // with a valid token
    Connected, // and connected to the rendezvous; not ended for others
};

struct AcceptedClient {
    UdtSocket socket; // carries only the request
    UdtAddress local; // of the listener
    UdtAddress peer;
    int attempt;
    Faults faults;
};

// Used by one thread. The bytes that were received are on disk when run() returns.
class TransferSession {
public:
    // `stage` is updated during run() and must outlive it.
    TransferSession(TransferServices& services, AcceptedClient client,
                    std::shared_ptr<StopSignal> stop, std::atomic<SessionStage>& stage);

    // Blocks for the whole attempt. Once `stop` is requested, it returns after the time that the
    // link takes to close and the disk to write.
    void run();

private:
    using Time = std::chrono::steady_clock::time_point;

    // The steps of an attempt, in their order. Each logs a failure; after false the attempt ends.
    std::optional<RequestContainer> receiveRequest();
    bool connectRendezvous(std::chrono::milliseconds timeout);
    void serveRequest(const RequestContainer& request);
    bool sendResponse(const StoredUpload& upload);
    bool prepareCopy(StoredUpload& upload);
    bool receiveFile(StoredUpload& upload);
    bool sendClosingDocument(std::int64_t held);

    void refuse(const std::string& reason);
    bool receiveMore(UdtSocket& socket, std::string& text, std::size_t maxBytes, Time deadline);
    Received receiveFileBytes(std::span<char> buffer);
    bool limitRate(Time start, std::int64_t received);
    bool endOnFault(std::int64_t received);
    bool awaitAcknowledgement();
    void awaitClose(std::chrono::milliseconds timeout);
    bool logEnd(const std::string& reason) const;

    bool hasFault(FaultKind kind) const { return findFault(client_.faults, kind) != nullptr; }
    std::int64_t faultValue(FaultKind kind, std::int64_t otherwise) const;

    template <typename... Args>
    void logAttempt(fmt::format_string<Args...> format, Args&&... args) const
    {
        logSystem("Attempt {}: {}", client_.attempt,
                  fmt::format(format, std::forward<Args>(args)...));
    }

    TransferServices& services_;
    AcceptedClient client_;
    const std::shared_ptr<StopSignal> stop_;
    std::atomic<SessionStage>& stage_;
    std::optional<UdtSocket> link_; // carries everything after the request
    std::string pending_;           // received after the confirmation; the first bytes of the file
};

} // namespace quenmoor
