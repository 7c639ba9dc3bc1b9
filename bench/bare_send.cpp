// quenmoor-bare-send PORT TOKEN COUNT SIZE: measures the transport library's own limit.
//
// Sends COUNT files of SIZE bytes from memory to a service on this machine, with the client's two
// sockets and block size, and without everything else of the client: file, queue, status, second
// thread.
#include "base/process_setup.h"
#include "base/text.h"
#include "protocol/documents.h"
#include "protocol/udt_transfer_link.h"

#include <fmt/format.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace quenmoor {
namespace {

constexpr std::size_t kBlock = 16384;

void require(bool succeeded, const char* operation)
{
    if (!succeeded)
        throw std::runtime_error(fmt::format("{}: {}", operation, UdtSocket::lastErrorMessage()));
}

std::int64_t number(const char* text)
{
    const auto value = wholeNumber(text);
    if (!value)
        throw std::runtime_error(fmt::format("\"{}\" is not a number", text));
    return *value;
}

struct Sockets {
    UdtSocket connected;
    UdtSocket rendezvous;
};

// Sends the request and establishes the rendezvous connection.
Sockets announce(const UdtAddress& server, const std::string& request)
{
    Sockets sockets;
    sockets.connected = UdtSocket::open(kConnectSocketOptions);
    require(sockets.connected.connect(server), "connect");
    require(sockets.connected.send(request), "request");
    const auto local = sockets.connected.localAddress();
    require(local.has_value(), "address");
    sockets.rendezvous = UdtSocket::open(kRendezvousSocketOptions);
    require(sockets.rendezvous.bind(*local), "bind");
    require(sockets.rendezvous.connect(server), "rendezvous");
    return sockets;
}

void receiveMessage(UdtSocket& socket)
{
    std::array<char, 65536> buffer{};
    require(socket.receive(buffer).outcome == Received::Outcome::Bytes, "message");
}

void sendFile(const UdtAddress& server, const std::string& request, std::int64_t size)
{
    static const std::array<char, kBlock> block{};
    Sockets sockets = announce(server, request);
    receiveMessage(sockets.rendezvous);
    for (std::int64_t left = size; left > 0;) {
        const auto offered = std::min(static_cast<std::size_t>(left), block.size());
        const auto taken = sockets.rendezvous.sendSome({block.data(), offered});
        require(taken.has_value(), "send");
        left -= *taken;
    }
    receiveMessage(sockets.rendezvous);
}

int run(const char* port, const char* token, std::int64_t count, std::int64_t size)
{
    UdtSocket::startLibrary();
    const auto server = UdtAddress::parse("127.0.0.1", static_cast<std::uint16_t>(number(port)));
    for (std::int64_t i = 0; i < count; ++i) {
        const RequestContainer request{fmt::format("bare-{}", i), token, size};
        sendFile(server.value(), buildXML(request.XMLpayload(), "RequestContainer"), size);
    }
    return 0;
}

} // namespace
} // namespace quenmoor

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fputs("usage: quenmoor-bare-send PORT TOKEN COUNT SIZE\n", stderr);
        return 2;
    }
    try {
        quenmoor::exitBesideThreads(
            quenmoor::run(argv[1], argv[2], quenmoor::number(argv[3]), quenmoor::number(argv[4])));
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quenmoor-bare-send: %s\n", error.what());
        return 1;
    }
}
