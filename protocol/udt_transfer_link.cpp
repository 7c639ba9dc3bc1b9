#include "protocol/udt_transfer_link.h"

#include "base/log.h"
#include "base/text.h"
#include "protocol/udt_congestion.h"

#include <netdb.h>
#include <sys/socket.h>
#include <udt.h>

#include <array>
#include <cstring>
#include <memory>

namespace quenmoor {
namespace {

constexpr int kTimeoutMs = 10000;
constexpr int kUdpReceiveBuffer = 5590000;
// By default closing waits 180 seconds for a peer that lives and does not read.
constexpr int kLingerSeconds = 2;
constexpr std::size_t kReceiveSize = 65536;
constexpr std::size_t kAddressHeader = 2; // the address family, before port and address

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

// The first IPv4 stream address of `host`, or of this machine with nullptr. May ask the network.
AddressList lookUp(const char* host, const char* service)
{
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE;
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host, service, &hints, &found) != 0)
        found = nullptr;
    return {found, &freeaddrinfo};
}

// An address as the library fills it in, with the length that it counts by.
struct Endpoint {
    sockaddr_storage address{};
    int length = sizeof(sockaddr_storage);

    sockaddr* get() { return reinterpret_cast<sockaddr*>(&address); }
};

// Port and address in network byte order. As many bytes as the whole address has, although the
// first two are left out: the two past its end are zero, never what stands behind it in memory.
std::string rawAddress(const void* address, std::size_t length)
{
    std::array<char, sizeof(sockaddr_storage) + kAddressHeader> padded{};
    length = std::min(length, sizeof(sockaddr_storage));
    std::memcpy(padded.data(), address, length);
    return {padded.data() + kAddressHeader, length};
}

UDTSOCKET openSocket(const addrinfo& parameters)
{
    return UDT::socket(parameters.ai_family, parameters.ai_socktype, parameters.ai_protocol);
}

void setOption(UDTSOCKET socket, UDT::SOCKOPT option, int value)
{
    UDT::setsockopt(socket, 0, option, &value, sizeof value);
}

void setLinger(UDTSOCKET socket)
{
    const linger value{1, kLingerSeconds};
    UDT::setsockopt(socket, 0, UDT_LINGER, &value, sizeof value);
}

std::optional<std::int32_t> readOption(std::int32_t socket, UDT::SOCKOPT option)
{
    std::int32_t value = 0;
    int length = sizeof value;
    if (UDT::getsockopt(socket, 0, option, &value, &length) == UDT::ERROR)
        return std::nullopt;
    return value;
}

} // namespace

UdtTransferLink::UdtTransferLink(std::string host, std::uint16_t port, Congestion congestion)
    : host_(std::move(host)), port_(std::to_string(port)), congestion_(congestion)
{
}

bool UdtTransferLink::connectAndSendRequest(std::int32_t& connectSocket, const std::string& text)
{
    UDT::startup();
    stalled_ = false;
    const AddressList local = lookUp(nullptr, "10000");
    if (local == nullptr)
        return false;
    connectSocket = openSocket(*local);
    setOption(connectSocket, UDP_RCVBUF, kUdpReceiveBuffer);
    setOption(connectSocket, UDT_SNDTIMEO, kTimeoutMs);
    setLinger(connectSocket);
    logOutput("local address: " + rawAddress(local->ai_addr, local->ai_addrlen));

    const AddressList server = lookUp(host_.c_str(), port_.c_str());
    if (server == nullptr)
        return false;
    logSystem("Connecting to the production address.");
    if (UDT::connect(connectSocket, server->ai_addr, static_cast<int>(server->ai_addrlen)) ==
        UDT::ERROR)
        return false;
    return sendString(connectSocket, text);
}

bool UdtTransferLink::rendezvousWithServer(std::int32_t connectSocket,
                                           std::int32_t& rendezvousSocket)
{
    Endpoint local;
    if (UDT::getsockname(connectSocket, local.get(), &local.length) == UDT::ERROR) {
        logOutput("local endpoint: " + lastErrorMessage());
        return false;
    }
    Endpoint remote;
    if (UDT::getpeername(connectSocket, remote.get(), &remote.length) == UDT::ERROR) {
        logOutput("remote endpoint: " + lastErrorMessage());
        return false;
    }
    const AddressList parameters = lookUp(nullptr, port_.c_str());
    if (parameters == nullptr) {
        logOutput("incorrect network address.\n");
        return false;
    }
    rendezvousSocket = openSocket(*parameters);
    setOption(rendezvousSocket, UDT_SNDTIMEO, kTimeoutMs);
    setOption(rendezvousSocket, UDT_RCVTIMEO, kTimeoutMs);
    const bool rendezvous = true;
    UDT::setsockopt(rendezvousSocket, 0, UDT_RENDEZVOUS, &rendezvous, sizeof rendezvous);
    setLinger(rendezvousSocket);
    gate_ = nullptr;
    if (congestion_ == Congestion::Paced) {
        gate_ = usePacedControl(rendezvousSocket);
        if (gate_ == nullptr)
            logOutput("congestion control: " + lastErrorMessage());
    }

    if (UDT::bind(rendezvousSocket, local.get(), local.length) == UDT::ERROR) {
        logOutput("bind: " + lastErrorMessage());
        logOutput(rawAddress(&local.address, static_cast<std::size_t>(local.length)));
        return false;
    }
    if (UDT::connect(rendezvousSocket, remote.get(), remote.length) == UDT::ERROR) {
        logOutput("connect: " + lastErrorMessage());
        return false;
    }
    return true;
}

bool UdtTransferLink::sendString(std::int32_t socket, const std::string& text)
{
    const auto length = static_cast<int>(std::strlen(text.c_str()));
    return UDT::send(socket, text.data(), length, 0) != UDT::ERROR;
}

std::string UdtTransferLink::receiveString(std::int32_t socket)
{
    std::array<char, kReceiveSize + 1> buffer{}; // one more for the NUL that ends the text
    const int received = UDT::recv(socket, buffer.data(), kReceiveSize, 0);
    buffer[received == UDT::ERROR ? 0 : static_cast<std::size_t>(received)] = '\0';
    std::string text(buffer.data());
    logOutput("received: " + text);
    return isUtf8(text) ? text : std::string();
}

std::int32_t UdtTransferLink::send(std::int32_t socket, std::span<const char> block)
{
    stalled_ = gate_ != nullptr && !block.empty() && !gate_->pass(block.size());
    if (stalled_)
        return kLinkError;
    return UDT::send(socket, block.data(), static_cast<int>(block.size()), 0);
}

std::optional<std::int32_t> UdtTransferLink::unacknowledged(std::int32_t socket)
{
    return readOption(socket, UDT_SNDDATA);
}

std::optional<std::int32_t> UdtTransferLink::socketState(std::int32_t socket)
{
    return readOption(socket, UDT_STATE);
}

std::string UdtTransferLink::lastErrorMessage()
{
    if (stalled_)
        return CUDTException(6, 3).getErrorMessage(); // "transmission timed out"
    return UDT::getlasterror().getErrorMessage();
}

void UdtTransferLink::closeSockets(std::int32_t rendezvousSocket, std::int32_t connectSocket)
{
    logSystem("Close sockets called.");
    UDT::close(rendezvousSocket);
    UDT::close(connectSocket);
    logSystem("Sockets closed.");
}

} // namespace quenmoor
