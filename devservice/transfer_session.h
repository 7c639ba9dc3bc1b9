// One attempt of a client, from its request to the closing document.
#pragma once

#include "base/log.h"
#include "devservice/attempt_turns.h"
#include "devservice/faults.h"
#include "devservice/session_signal.h"
#include "devservice/token_store.h"
#include "devservice/upload_store.h"
#include "protocol/documents.h"
#include "protocol/udt_socket.h"

#include <chrono>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace quenmoor {

// How long a session waits for what.
struct TransferLimits {
    std::chrono::milliseconds request{10'000};
    std::chrono::milliseconds rendezvous{30'000};      // as long as a client tries
    std::chrono::milliseconds confirmation{3'600'000}; // somebody is being asked
    std::chrono::milliseconds silence{30'000};         // without a byte while bytes are due
    std::chrono::milliseconds displacement{5'000};     // for an older attempt to let go
    std::chrono::milliseconds goodbye{10'000};         // for the client to close
    // Between having met and the response. The peer's library drops a packet that comes while it
    // takes the new link up, and repeating one takes it 0.4 seconds.
    std::chrono::milliseconds settling{20};
    // Between the response and the closing document of a file without bytes. A client that reads
    // them in one piece takes the second for a part of the first, and waits for it in vain.
    std::chrono::milliseconds betweenDocuments{250};
};

// What all sessions share. Outlives them.
struct TransferServices {
    UploadStore& store;
    const TokenStore& tokens;
    const TransferLimits limits;
    AttemptTurns turns;
};

struct AcceptedClient {
    UdtSocket socket; // brings the request and nothing else
    UdtAddress local; // of the listener
    UdtAddress peer;
    int attempt;
    Faults faults;
};

// Used by one thread. Everything that came in is on disk when run() returns, whatever ended it.
class TransferSession {
public:
    TransferSession(TransferServices& services, AcceptedClient client,
                    std::shared_ptr<SessionSignal> signal);

    // Blocks for the whole attempt. After the signal it returns within the time that closing
    // and the disk take.
    void run();

private:
    using Time = std::chrono::steady_clock::time_point;

    // In this order. After false, which has been logged, the attempt is over.
    std::optional<RequestContainer> receiveRequest();
    bool meetClient();
    void serve(const RequestContainer& request);
    bool respond(const StoredUpload& upload);
    bool settle(StoredUpload& upload);
    bool receiveFile(StoredUpload& upload);
    void sendClosing(std::int64_t held);

    void refuse(const std::string& reason);
    bool gather(UdtSocket& socket, std::string& text, std::size_t longest, Time deadline);
    Received receiveBytes(std::span<char> room);
    bool keepPace(Time start, std::int64_t received);
    bool stopEarly(std::int64_t received);
    bool awaitAcknowledgement();
    void awaitClose(std::chrono::milliseconds longest);
    bool drop(const std::string& reason);

    bool has(FaultKind kind) const { return findFault(client_.faults, kind) != nullptr; }
    std::int64_t valueOf(FaultKind kind, std::int64_t without) const;

    template <typename... Args>
    void say(fmt::format_string<Args...> format, Args&&... args) const
    {
        logSystem("Attempt {}: {}", client_.attempt,
                  fmt::format(format, std::forward<Args>(args)...));
    }

    TransferServices& services_;
    AcceptedClient client_;
    const std::shared_ptr<SessionSignal> signal_;
    std::optional<UdtSocket> link_; // carries everything after the request
    std::string early_;             // file bytes that came along with the confirmation
};

} // namespace quenmoor
