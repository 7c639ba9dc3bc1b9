// An https server that bounds what its clients use.
//
// Each connection carries one request and lasts at most ten seconds. At most 64 are served at once;
// a further one ends the oldest. Slow, silent or endless clients therefore cannot keep others out.
#pragma once

#include <httplib.h>

#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>

namespace quenmoor {

inline constexpr std::size_t kMaxConnections = 64;
inline constexpr std::size_t kMaxReceivedBytes = 65'536; // for one connection, without TLS
inline constexpr std::chrono::seconds kMaxConnectionTime{10};

// Any thread may end the connections; otherwise as its base class.
class HttpsServer : public httplib::SSLServer {
public:
    explicit HttpsServer(const std::function<bool(SSL_CTX&)>& prepareTls);

    // Lets more clients wait to be accepted than the library does: five, beyond which a client
    // repeats its request after a second. Requires that the port is bound.
    void lengthenBacklog();

    // Ends all connections, and later ones as soon as they are accepted.
    void endConnections();

private:
    bool process_and_close_socket(socket_t socket) override;
    bool add(socket_t socket);
    void remove(socket_t socket);

    std::mutex mutex_;
    std::list<socket_t> open_; // the oldest first, without those being ended; guarded by mutex_
    bool ending_ = false;      // guarded by mutex_
};

} // namespace quenmoor
