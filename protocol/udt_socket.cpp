#include "protocol/udt_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <udt.h>

#include <array>
#include <utility>

namespace quenmoor {
namespace {

constexpr int kNoSocket = -1;
constexpr int kBacklog = 64;
constexpr int kSendTimeoutMs = 10000;
// By default closing waits 180 seconds for a peer that lives and does not read.
constexpr int kLingerSeconds = 2;

sockaddr_in toSystem(const UdtAddress& address)
{
    sockaddr_in system{};
    system.sin_family = AF_INET;
    system.sin_addr.s_addr = htonl(address.host);
    system.sin_port = htons(address.port);
    return system;
}

UdtAddress fromSystem(const sockaddr_in& system)
{
    return {ntohl(system.sin_addr.s_addr), ntohs(system.sin_port)};
}

sockaddr* generic(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

void setOption(int socket, UDT::SOCKOPT option, int value)
{
    UDT::setsockopt(socket, 0, option, &value, sizeof value);
}

// The library reads one byte.
void setOption(int socket, UDT::SOCKOPT option, bool value)
{
    UDT::setsockopt(socket, 0, option, &value, sizeof value);
}

std::string lastError()
{
    return UDT::getlasterror().getErrorMessage();
}

bool bindTo(int socket, const UdtAddress& address)
{
    sockaddr_in system = toSystem(address);
    return UDT::bind(socket, generic(system), sizeof system) != UDT::ERROR;
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

std::optional<UdtSocket> UdtSocket::listen(const UdtAddress& address, std::string& error)
{
    UdtSocket socket = open();
    if (!bindTo(socket.handle_, address) || UDT::listen(socket.handle_, kBacklog) == UDT::ERROR) {
        // The library's own words stop at "unable to create/configure UDP socket".
        error = "cannot listen on " + address.text() +
                ": the port is taken, or the address is not this machine's";
        return std::nullopt;
    }
    return socket;
}

std::optional<UdtSocket> UdtSocket::rendezvous(const UdtAddress& local, const UdtAddress& peer,
                                               std::string& error)
{
    UdtSocket socket = open();
    setOption(socket.handle_, UDT_RENDEZVOUS, true);
    // The library connects in the background then. A blocking rendezvous lasts 30 seconds when
    // the peer stays away, and nothing can end it.
    setOption(socket.handle_, UDT_RCVSYN, false);
    socket.waits_ = false;
    sockaddr_in system = toSystem(peer);
    if (!bindTo(socket.handle_, local) ||
        UDT::connect(socket.handle_, generic(system), sizeof system) == UDT::ERROR) {
        error = "cannot meet " + peer.text() + ": " + lastError();
        return std::nullopt;
    }
    return socket;
}

UdtSocket UdtSocket::open()
{
    UdtSocket socket(UDT::socket(AF_INET, SOCK_STREAM, 0));
    const linger value{1, kLingerSeconds};
    UDT::setsockopt(socket.handle_, 0, UDT_LINGER, &value, sizeof value);
    setOption(socket.handle_, UDT_SNDTIMEO, kSendTimeoutMs);
    setOption(socket.handle_, UDT_RCVTIMEO, static_cast<int>(kSlice.count()));
    return socket;
}

UdtSocket::~UdtSocket()
{
    close();
}

UdtSocket::UdtSocket(UdtSocket&& other) noexcept
    : handle_(std::exchange(other.handle_, kNoSocket)), waits_(other.waits_)
{
}

UdtSocket& UdtSocket::operator=(UdtSocket&& other) noexcept
{
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, kNoSocket);
        waits_ = other.waits_;
    }
    return *this;
}

void UdtSocket::close()
{
    if (handle_ != kNoSocket)
        UDT::close(handle_);
    handle_ = kNoSocket;
}

// The new socket has the listener's linger and time-outs.
std::optional<UdtSocket> UdtSocket::accept(UdtAddress& peer)
{
    sockaddr_in system{};
    int length = sizeof system;
    const int accepted = UDT::accept(handle_, generic(system), &length);
    if (accepted == UDT::INVALID_SOCK)
        return std::nullopt;
    peer = fromSystem(system);
    return UdtSocket(accepted);
}

void UdtSocket::interrupt() const
{
    UDT::close(handle_);
}

UdtAddress UdtSocket::localAddress() const
{
    sockaddr_in system{};
    int length = sizeof system;
    UDT::getsockname(handle_, generic(system), &length);
    return fromSystem(system);
}

bool UdtSocket::connected() const
{
    return UDT::getsockstate(handle_) == CONNECTED;
}

Received UdtSocket::receive(std::span<char> room)
{
    if (!waits_) {
        setOption(handle_, UDT_RCVSYN, true);
        waits_ = true;
    }
    const int count = UDT::recv(handle_, room.data(), static_cast<int>(room.size()), 0);
    if (count > 0)
        return {Received::Outcome::Bytes, static_cast<std::size_t>(count)};
    if (count == 0 || UDT::getlasterror().getErrorCode() == CUDTException::ETIMEOUT)
        return {Received::Outcome::NothingYet};
    return {Received::Outcome::Gone};
}

bool UdtSocket::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const int sent = UDT::send(handle_, bytes.data(), static_cast<int>(bytes.size()), 0);
        if (sent == UDT::ERROR)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

bool UdtSocket::acknowledged() const
{
    int packets = 0;
    int length = sizeof packets;
    return UDT::getsockopt(handle_, 0, UDT_SNDDATA, &packets, &length) != UDT::ERROR &&
           packets == 0;
}

} // namespace quenmoor
