#include "devservice/https_server.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>

namespace quenmoor {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// Threads for connections that are being ended, besides those that are served.
constexpr std::size_t kSpareThreads = 8;

// For a client to read the response and close, so that closing does not discard the response.
constexpr milliseconds kCloseTime{500};

struct FreeTls {
    void operator()(SSL* tls) const { SSL_free(tls); }
};

// A TLS connection with a limit of its time and of the received bytes. Used by one thread.
class ConnectionStream : public httplib::Stream {
public:
    ConnectionStream(SSL_CTX* context, socket_t socket) : tls_(SSL_new(context)), socket_(socket)
    {
        fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    }

    SSL* tls() const { return tls_.get(); }

    // Returns false if no encrypted connection was established.
    [[nodiscard]] bool handshake()
    {
        if (!tls_ || SSL_set_fd(tls(), socket_) != 1)
            return false;
        return complete([this] { return SSL_accept(tls()); }) > 0;
    }

    // Sends the end of the connection and waits a moment for the client's.
    void finish()
    {
        SSL_shutdown(tls());
        ::shutdown(socket_, SHUT_WR);
        deadline_ = std::min(deadline_, steady_clock::now() + kCloseTime);
        std::array<char, 4096> discarded{};
        while (received_ < kMaxReceivedBytes && await(POLLIN)) {
            const ssize_t count = ::recv(socket_, discarded.data(), discarded.size(), 0);
            if (count <= 0)
                return;
            received_ += static_cast<std::size_t>(count);
        }
    }

    bool is_readable() const override { return SSL_pending(tls()) > 0 || await(POLLIN); }
    bool is_writable() const override { return await(POLLOUT); }

    ssize_t read(char* bytes, std::size_t size) override
    {
        if (received_ >= kMaxReceivedBytes)
            return -1;
        const auto wanted = static_cast<int>(std::min(size, kMaxReceivedBytes - received_));
        const int count = complete([&] { return SSL_read(tls(), bytes, wanted); });
        received_ += static_cast<std::size_t>(std::max(count, 0));
        return count;
    }

    ssize_t write(const char* bytes, std::size_t size) override
    {
        const auto wanted = static_cast<int>(std::min(size, std::size_t{1} << 20U));
        return complete([&] { return SSL_write(tls(), bytes, wanted); });
    }

    void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    socket_t socket() const override { return socket_; }

private:
    // Repeats a TLS call until it succeeds or fails. Returns a number below 1 on failure and at the
    // time limit.
    template <typename Call>
    int complete(Call call)
    {
        for (;;) {
            const int result = call();
            const int reason = result > 0 ? SSL_ERROR_NONE : SSL_get_error(tls(), result);
            const bool reads = reason == SSL_ERROR_WANT_READ;
            if (!reads && reason != SSL_ERROR_WANT_WRITE)
                return result;
            if (!await(reads ? POLLIN : POLLOUT))
                return -1;
        }
    }

    bool await(short events) const
    {
        const auto left = std::chrono::ceil<milliseconds>(deadline_ - steady_clock::now());
        pollfd descriptor{socket_, events, 0};
        return left > milliseconds(0) && poll(&descriptor, 1, static_cast<int>(left.count())) > 0;
    }

    const std::unique_ptr<SSL, FreeTls> tls_;
    const socket_t socket_;
    steady_clock::time_point deadline_ = steady_clock::now() + kMaxConnectionTime;
    std::size_t received_ = 0;
};

} // namespace

HttpsServer::HttpsServer(const std::function<bool(SSL_CTX&)>& prepareTls) : SSLServer(prepareTls)
{
    new_task_queue = [] { return new httplib::ThreadPool(kMaxConnections + kSpareThreads); };
}

void HttpsServer::lengthenBacklog()
{
    ::listen(svr_sock_, SOMAXCONN);
}

void HttpsServer::endConnections()
{
    const std::lock_guard lock(mutex_);
    ending_ = true;
    for (const socket_t socket : open_)
        ::shutdown(socket, SHUT_RDWR);
}

// Called by the library, on one of its threads, for each accepted connection.
bool HttpsServer::process_and_close_socket(socket_t socket)
{
    bool served = false;
    if (add(socket)) {
        ConnectionStream stream(ssl_context(), socket);
        if (stream.handshake()) {
            bool closed = false;
            served =
                process_request(stream, /*close_connection*/ true, closed,
                                [&](httplib::Request& request) { request.ssl = stream.tls(); });
            stream.finish();
        }
        remove(socket);
    }
    ::close(socket);
    return served;
}

// Returns false if no connection may be served.
bool HttpsServer::add(socket_t socket)
{
    const std::lock_guard lock(mutex_);
    if (ending_)
        return false;
    if (open_.size() >= kMaxConnections) {
        ::shutdown(open_.front(), SHUT_RDWR);
        open_.pop_front();
    }
    open_.push_back(socket);
    return true;
}

void HttpsServer::remove(socket_t socket)
{
    const std::lock_guard lock(mutex_);
    open_.remove(socket);
}

} // namespace quenmoor
