#include "protocol/udt_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <udt.h>

#include <array>
#include <thread>
#include <utility>

namespace quenmoor {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::int32_t kNoSocket = -1;
constexpr int kBacklog = 64;
constexpr int kLingerSeconds = 2;
// In bytes, for each client of a listener, which sends only a request: a client that sends more
// fills this instead of the library's default of 12 MB.
constexpr int kAcceptedBuffer = 65'536;
// In bytes, with the headers: what every IPv4 host accepts (RFC 1122, section 3.3.2), and the
// library's default, above which it never negotiates.
constexpr std::int32_t kMinPacketSize = 576;
constexpr std::int32_t kMaxPacketSize = 1500;
// After its own time limit, 30 seconds, the library keeps a pointer to the socket beyond close().
constexpr milliseconds kRendezvousTime{29'500};
constexpr milliseconds kRendezvousPoll{1};
// For the library's receiving thread to complete a connection that it has begun.
constexpr milliseconds kCompletionTime{20};

UdtAddress fromSystem(const sockaddr_in& system)
{
    return {ntohl(system.sin_addr.s_addr), ntohs(system.sin_port)};
}

sockaddr* generic(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

// The library reads as many bytes as the option's type has: one for a boolean. Results are not
// checked: a value that the library refuses leaves its default.
template <typename Value>
void setOption(std::int32_t socket, UDT::SOCKOPT option, const Value& value)
{
    UDT::setsockopt(socket, 0, option, &value, sizeof value);
}

void setOption(std::int32_t socket, UDT::SOCKOPT option, milliseconds value)
{
    setOption(socket, option, static_cast<int>(value.count()));
}

std::optional<std::int32_t> readOption(std::int32_t socket, UDT::SOCKOPT option)
{
    std::int32_t value = 0;
    int length = sizeof value;
    if (UDT::getsockopt(socket, 0, option, &value, &length) == UDT::ERROR)
        return std::nullopt;
    return value;
}

// Whether the library gave up connecting the socket in the background. It then uses the socket
// beyond its close(). Sets the thread's last error.
bool isAbandoned(std::int32_t socket)
{
    return UDT::getsockstate(socket) == BROKEN && UDT::send(socket, "", 0, 0) == UDT::ERROR &&
           UDT::getlasterror().getErrorCode() == CUDTException::ENOCONN;
}

// `getName` is UDT::getsockname or UDT::getpeername.
std::optional<UdtAddress> readAddress(std::int32_t socket, int (*getName)(int, sockaddr*, int*))
{
    sockaddr_in system{};
    int length = sizeof system;
    if (getName(socket, generic(system), &length) == UDT::ERROR)
        return std::nullopt;
    return fromSystem(system);
}

} // namespace

std::optional<UdtAddress> UdtAddress::parse(const std::string& host, std::uint16_t port)
{
    in_addr parsed{};
    if (inet_pton(AF_INET, host.c_str(), &parsed) != 1)
        return std::nullopt;
    return UdtAddress{ntohl(parsed.s_addr), port};
}

std::string UdtAddress::text() const
{
    std::array<char, INET_ADDRSTRLEN> dotted{};
    const in_addr system{htonl(host)};
    inet_ntop(AF_INET, &system, dotted.data(), dotted.size());
    return std::string(dotted.data()) + ":" + std::to_string(port);
}

void UdtSocket::startLibrary()
{
    UDT::startup();
}

void UdtSocket::stopLibrary()
{
    UDT::cleanup();
}

// The order in which the options are set is part of the link's contract.
UdtSocket UdtSocket::open(const UdtOptions& options)
{
    UdtSocket socket(UDT::socket(AF_INET, SOCK_STREAM, 0));
    if (options.udpReceiveBuffer)
        setOption(socket.handle_, UDP_RCVBUF, *options.udpReceiveBuffer);
    setOption(socket.handle_, UDT_SNDTIMEO, milliseconds(kSendTimeout));
    if (options.receiveTimeout)
        setOption(socket.handle_, UDT_RCVTIMEO, *options.receiveTimeout);
    if (options.rendezvous)
        setOption(socket.handle_, UDT_RENDEZVOUS, true);
    setOption(socket.handle_, UDT_LINGER, linger{1, kLingerSeconds});
    return socket;
}

std::optional<UdtSocket> UdtSocket::listen(const UdtAddress& address, std::string& error)
{
    UdtSocket socket = open({.receiveTimeout = kReceiveSlice});
    setOption(socket.handle_, UDT_RCVBUF, kAcceptedBuffer);
    socket.listenPort_ = socket.bindPort(address);
    if (!socket.listenPort_ || UDT::listen(socket.handle_, kBacklog) == UDT::ERROR) {
        // The library's message is only "unable to create/configure UDP socket".
        error = "cannot listen on " + address.text() +
                ": the port is in use, or the address is not an address of this machine";
        return std::nullopt;
    }
    return socket;
}

std::optional<UdtSocket> UdtSocket::rendezvous(const UdtAddress& local, const UdtAddress& peer,
                                               std::string& error)
{
    UdtSocket socket = open({.receiveTimeout = kReceiveSlice, .rendezvous = true});
    if (!socket.bind(local) || !socket.startRendezvous(peer)) {
        error = "cannot start a rendezvous with " + peer.text() + ": " + lastErrorMessage();
        return std::nullopt;
    }
    return socket;
}

UdtSocket::~UdtSocket()
{
    close();
}

UdtSocket::UdtSocket(UdtSocket&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoSocket)),
      listenPort_(std::exchange(other.listenPort_, std::nullopt)),
      receiveBlocks_(other.receiveBlocks_),
      handshakeChecked_(other.handshakeChecked_)
{
}

UdtSocket& UdtSocket::operator=(UdtSocket&& other) noexcept
{
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, kNoSocket);
        listenPort_ = std::exchange(other.listenPort_, std::nullopt);
        receiveBlocks_ = other.receiveBlocks_;
        handshakeChecked_ = other.handshakeChecked_;
    }
    return *this;
}

void UdtSocket::close()
{
    if (handle_ != kNoSocket && UDT::getsockstate(handle_) == CONNECTING) {
        // The library ends the process if the socket is closed while its thread connects it. The
        // thread does not connect a socket whose receive blocks.
        setOption(handle_, UDT_RCVSYN, true);
        std::this_thread::sleep_for(kCompletionTime);
    }
    if (listenPort_) {
        // The library releases a listener while its thread connects a client to it.
        interrupt();
        listenPort_->awaitProcessed();
        listenPort_.reset();
    }
    if (handle_ != kNoSocket && !isAbandoned(handle_))
        UDT::close(handle_);
    handle_ = kNoSocket;
}

bool UdtSocket::bind(const UdtAddress& address) const
{
    sockaddr_in system = toSystem(address);
    return UDT::bind(handle_, generic(system), sizeof system) != UDT::ERROR;
}

std::optional<UdpPort> UdtSocket::bindPort(const UdtAddress& address) const
{
    std::optional<UdpPort> port = UdpPort::open(address);
    std::optional<UdpPort> second = port ? port->duplicate() : std::nullopt;
    // The library closes the descriptor only if it took it.
    if (!second || UDT::bind2(handle_, second->descriptor()) == UDT::ERROR)
        return std::nullopt;
    second->release();
    return port;
}

bool UdtSocket::connect(const UdtAddress& peer)
{
    sockaddr_in system = toSystem(peer);
    if (UDT::connect(handle_, generic(system), sizeof system) == UDT::ERROR) {
        close(); // a few milliseconds later the library would use it beyond close()
        return false;
    }
    return handshakeFault().empty();
}

// Makes the library connect in the background.
bool UdtSocket::startRendezvous(const UdtAddress& peer)
{
    setOption(handle_, UDT_RCVSYN, false);
    receiveBlocks_ = false;
    sockaddr_in system = toSystem(peer);
    return UDT::connect(handle_, generic(system), sizeof system) != UDT::ERROR;
}

bool UdtSocket::connectRendezvous(const UdtAddress& peer)
{
    const auto deadline = steady_clock::now() + kRendezvousTime;
    if (!startRendezvous(peer))
        return false;
    while (!connected()) {
        if (steady_clock::now() >= deadline) {
            close();
            UDT::getlasterror() = CUDTException(1, 1, 0); // what the library's own limit sets
            return false;
        }
        std::this_thread::sleep_for(kRendezvousPoll);
    }
    return handshakeFault().empty();
}

std::string UdtSocket::handshakeFault() const
{
    if (handle_ == kNoSocket)
        return {}; // and the last error remains
    const std::int32_t size = readOption(handle_, UDT_MSS).value_or(kMaxPacketSize);
    if (size >= kMinPacketSize && size <= kMaxPacketSize)
        return {};
    return "the peer's handshake sets packets of " + std::to_string(size) + " bytes; usable are " +
           std::to_string(kMinPacketSize) + " to " + std::to_string(kMaxPacketSize);
}

// The new socket inherits the listener's options.
std::optional<UdtSocket> UdtSocket::accept(UdtAddress& peer) const
{
    while (true) {
        // If accept() is to return the address too, the library looks the client up a second time
        // and crashes when the client has left in between.
        UdtSocket accepted(UDT::accept(handle_, nullptr, nullptr));
        if (accepted.handle_ == UDT::INVALID_SOCK)
            return std::nullopt;
        const auto address = accepted.peerAddress();
        if (!address || !accepted.handshakeFault().empty())
            continue;
        peer = *address;
        return accepted;
    }
}

void UdtSocket::interrupt() const
{
    if (listenPort_)
        listenPort_->refuseHandshakes();
    UDT::close(handle_);
}

std::optional<UdtAddress> UdtSocket::localAddress() const
{
    return readAddress(handle_, UDT::getsockname);
}

std::optional<UdtAddress> UdtSocket::peerAddress() const
{
    return readAddress(handle_, UDT::getpeername);
}

bool UdtSocket::connected() const
{
    return UDT::getsockstate(handle_) == CONNECTED;
}

std::optional<std::int32_t> UdtSocket::state() const
{
    return readOption(handle_, UDT_STATE);
}

Received UdtSocket::receive(std::span<char> buffer)
{
    if (!receiveBlocks_) {
        setOption(handle_, UDT_RCVSYN, true);
        receiveBlocks_ = true;
    }
    const int count = UDT::recv(handle_, buffer.data(), static_cast<int>(buffer.size()), 0);
    if (count > 0)
        return {Received::Outcome::Bytes, static_cast<std::size_t>(count)};
    if (count == 0 || lastErrorIsTimeout())
        return {Received::Outcome::TimedOut};
    return {Received::Outcome::Broken};
}

std::optional<std::int32_t> UdtSocket::sendSome(std::string_view bytes)
{
    if (!handshakeChecked_ && !handshakeFault().empty())
        return std::nullopt;
    handshakeChecked_ = true;
    const int taken = UDT::send(handle_, bytes.data(), static_cast<int>(bytes.size()), 0);
    return taken != UDT::ERROR ? std::optional(taken) : std::nullopt;
}

bool UdtSocket::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto taken = sendSome(bytes);
        if (!taken)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(*taken));
    }
    return true;
}

std::optional<std::int32_t> UdtSocket::unacknowledgedPackets() const
{
    return readOption(handle_, UDT_SNDDATA);
}

std::string UdtSocket::lastErrorMessage()
{
    return UDT::getlasterror().getErrorMessage();
}

bool UdtSocket::lastErrorIsNoSocket()
{
    return UDT::getlasterror().getErrorCode() == CUDTException::EINVSOCK;
}

bool UdtSocket::lastErrorIsTimeout()
{
    const int code = UDT::getlasterror().getErrorCode();
    return code == CUDTException::ETIMEOUT || code == CUDTException::ENOSERVER;
}

} // namespace quenmoor
