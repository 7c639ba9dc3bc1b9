#include "protocol/udt_transfer_link.h"

#include "base/log.h"
#include "base/text.h"
#include "protocol/udt_congestion.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <thread>

namespace quenmoor {
namespace {

using std::chrono::microseconds;
using std::chrono::steady_clock;

constexpr std::size_t kReceiveSize = 65536;
constexpr auto kRepairInterval = std::chrono::milliseconds(10);
constexpr const char* kSendTimedOut = "the server accepted no data for 10 s";

// Returns the first IPv4 address of `host`, or the wildcard address of this machine if `host` is
// null. May ask the network. On failure stores the resolver's message in `error`.
std::optional<UdtAddress> lookUp(const char* host, const char* service, std::string& error)
{
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    const int failure = getaddrinfo(host, service, &hints, &found);
    if (failure != 0) {
        error =
            failure == EAI_SYSTEM ? std::generic_category().message(errno) : gai_strerror(failure);
        return std::nullopt;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, &freeaddrinfo);
    sockaddr_in address{};
    std::memcpy(&address, list->ai_addr, sizeof address);
    return UdtAddress{ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

// The bytes of the system's address structure after the address family: port and host in network
// byte order, then zeros. The length is that of the whole structure, two bytes more than it has.
std::string rawAddress(const UdtAddress& address)
{
    std::string bytes(sizeof(sockaddr_in), '\0');
    const std::uint16_t port = htons(address.port);
    const std::uint32_t host = htonl(address.host);
    std::memcpy(bytes.data(), &port, sizeof port);
    std::memcpy(bytes.data() + sizeof port, &host, sizeof host);
    return bytes;
}

// The library's message without its full stop. It forgets a socket some time after the peer has
// closed the connection.
std::string libraryReason()
{
    if (UdtSocket::lastErrorIsNoSocket())
        return "Connection was broken";
    std::string message = UdtSocket::lastErrorMessage();
    if (message.ends_with('.'))
        message.pop_back();
    return message;
}

// Why the connect() of `socket`, which was the library's last call, failed.
std::string connectFailure(const UdtSocket& socket, std::string timedOut)
{
    if (std::string fault = socket.handshakeFault(); !fault.empty())
        return fault;
    return UdtSocket::lastErrorIsTimeout() ? std::move(timedOut) : libraryReason();
}

} // namespace

std::optional<UdtAddress> lookUpServer(const std::string& host, std::uint16_t port,
                                       std::string& error)
{
    return lookUp(host.c_str(), std::to_string(port).c_str(), error);
}

std::optional<std::int32_t> grantedReceiveBuffer()
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        return std::nullopt;
    const int requested = kConnectSocketOptions.udpReceiveBuffer.value_or(0);
    int granted = 0;
    socklen_t length = sizeof granted;
    const bool known =
        setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &requested, sizeof requested) == 0 &&
        getsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &granted, &length) == 0;
    close(descriptor);
    if (!known)
        return std::nullopt;
#ifdef __linux__
    granted /= 2; // the system adds as much for its own use, see socket(7)
#endif
    return granted;
}

UdtTransferLink::UdtTransferLink(std::string host, std::uint16_t port, Congestion congestion,
                                 std::int64_t rateLimit)
    : host_(std::move(host)), port_(std::to_string(port)), congestion_(congestion)
{
    if (rateLimit > 0)
        rateLimit_.emplace(rateLimit);
}

bool UdtTransferLink::connectAndSendRequest(std::int32_t& connectSocket, const std::string& text)
{
    UdtSocket::startLibrary();
    pacerTimedOut_ = false;
    std::string error;
    const auto local = lookUp(nullptr, "10000", error);
    if (!local)
        return failWith(error);
    connectSocket_ = UdtSocket::open(kConnectSocketOptions);
    connectSocket = connectSocket_.handle();
    logOutputBytes("local address: " + rawAddress(*local));

    const auto server = lookUp(host_.c_str(), port_.c_str(), error);
    if (!server)
        return failWith(host_ + ": " + error);
    logSystem("Connecting to the production address.");
    udpPort_ = connectSocket_.bindPort({});
    if (!udpPort_)
        return failWith("no UDP port is available");
    if (!connectSocket_.connect(*server))
        return failWith(
            connectFailure(connectSocket_, "no answer from " + host_ + ":" + port_ +
                                               " within 3 s; a firewall may block UDP"));
    return sendString(connectSocket, text);
}

bool UdtTransferLink::rendezvousWithServer(std::int32_t connectSocket,
                                           std::int32_t& rendezvousSocket)
{
    const auto local = socketOf(connectSocket).localAddress();
    if (!local)
        return failWithOutput("local endpoint: ");
    const auto remote = socketOf(connectSocket).peerAddress();
    if (!remote)
        return failWithOutput("remote endpoint: ");
    std::string error;
    if (!lookUp(nullptr, port_.c_str(), error)) {
        logOutputBytes("incorrect network address.\n");
        return failWith(error);
    }
    rendezvousSocket_ = UdtSocket::open(kRendezvousSocketOptions);
    rendezvousSocket = rendezvousSocket_.handle();
    pacer_ = nullptr;
    repairs_ = nullptr;
    if (congestion_ == Congestion::Paced && udpPort_) {
        PacedControl control = usePacedControl(rendezvousSocket, *std::move(udpPort_), *remote);
        udpPort_.reset();
        pacer_ = std::move(control.pacer);
        repairs_ = std::move(control.repairs);
        if (pacer_ == nullptr)
            logOutput("congestion control: " + lastErrorMessage());
    }

    if (!rendezvousSocket_.bind(*local)) {
        (void)failWithOutput("bind: ");
        logOutputBytes(rawAddress(*local));
        return false;
    }
    if (!rendezvousSocket_.connectRendezvous(*remote)) {
        std::string reason =
            connectFailure(rendezvousSocket_, "no answer to the rendezvous within 30 s");
        logOutput("connect: " + lastErrorMessage());
        return failWith(std::move(reason));
    }
    return true;
}

bool UdtTransferLink::sendString(std::int32_t socket, const std::string& text)
{
    // The documents are far smaller than the library's send buffer, so it takes them whole.
    return sendOrExplain(socket, text.c_str()).has_value();
}

std::string UdtTransferLink::receiveString(std::int32_t socket)
{
    std::array<char, kReceiveSize + 1> buffer{}; // one more for the NUL that ends the text
    const Received received = socketOf(socket).receive(std::span(buffer).first<kReceiveSize>());
    buffer[received.count] = '\0';
    std::string text(buffer.data());
    logOutput("received: " + text);
    if (received.outcome == Received::Outcome::Broken)
        failureReason_ = libraryReason();
    else if (received.outcome == Received::Outcome::TimedOut)
        failureReason_ = "no message from the server within 10 s";
    else if (text.empty())
        failureReason_ = "the server sent an empty message";
    if (isUtf8(text))
        return text;
    failureReason_ = "the server sent a message that is not valid UTF-8";
    return {};
}

void UdtTransferLink::waitForLimit(std::int32_t socket)
{
    const auto release = steady_clock::time_point(microseconds(rateLimit_->releaseTime()));
    while (steady_clock::now() < release && socketOf(socket).connected()) {
        if (repairs_ != nullptr)
            repairs_->send();
        std::this_thread::sleep_until(std::min(release, steady_clock::now() + kRepairInterval));
    }
}

std::int32_t UdtTransferLink::send(std::int32_t socket, std::span<const char> block)
{
    const auto repairAndCheck = [&] {
        repairs_->send();
        return socketOf(socket).connected();
    };
    if (rateLimit_ && !block.empty())
        waitForLimit(socket);
    if (repairs_ != nullptr)
        repairs_->send();
    pacerTimedOut_ =
        pacer_ != nullptr && !block.empty() && !pacer_->waitToSend(block.size(), repairAndCheck);
    if (pacerTimedOut_) {
        failureReason_ = kSendTimedOut;
        return kLinkError;
    }
    const auto taken = sendOrExplain(socket, {block.data(), block.size()});
    if (rateLimit_ && taken)
        rateLimit_->onReleased(
            static_cast<std::size_t>(*taken),
            duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count());
    return taken.value_or(kLinkError);
}

std::optional<std::int32_t> UdtTransferLink::sendOrExplain(std::int32_t socket,
                                                           std::string_view bytes)
{
    const auto taken = socketOf(socket).sendSome(bytes);
    if (!taken)
        failureReason_ = UdtSocket::lastErrorIsTimeout() ? kSendTimedOut : libraryReason();
    return taken;
}

std::optional<std::int32_t> UdtTransferLink::unacknowledged(std::int32_t socket)
{
    if (repairs_ != nullptr)
        repairs_->send();
    return socketOf(socket).unacknowledgedPackets();
}

std::optional<std::int32_t> UdtTransferLink::socketState(std::int32_t socket)
{
    return socketOf(socket).state();
}

std::string UdtTransferLink::lastErrorMessage()
{
    return pacerTimedOut_ ? failureReason_ : UdtSocket::lastErrorMessage();
}

void UdtTransferLink::closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket)
{
    logSystem("Close sockets called.");
    socketOf(rendezvousSocket).close();
    socketOf(connectSocket).close();
    logSystem("Sockets closed.");
}

UdtSocket& UdtTransferLink::socketOf(std::int32_t handle)
{
    if (handle == rendezvousSocket_.handle())
        return rendezvousSocket_;
    return handle == connectSocket_.handle() ? connectSocket_ : noSocket_;
}

// Both return false, the result of the operation that failed.
bool UdtTransferLink::failWith(std::string reason)
{
    failureReason_ = std::move(reason);
    return false;
}

bool UdtTransferLink::failWithOutput(const char* call)
{
    logOutput(call + UdtSocket::lastErrorMessage());
    return failWith(libraryReason());
}

} // namespace quenmoor
