// quenmoor-bare-send PORT TOKEN COUNT SIZE: the transport library's own limit.
//
// Sends COUNT files of SIZE bytes from memory to a service on this machine, through the same two
// sockets as the client and in the same blocks, with nothing around them: no file, no queue, no
// status, no second thread of ours.
#include "protocol/documents.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <udt.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <stdexcept>
#include <string_view>

namespace quenmoor {
namespace {

constexpr int kBlock = 16384;
constexpr int kUdpReceiveBuffer = 5590000; // the client's
constexpr int kLingerSeconds = 2;

void must(bool fine, const char* what)
{
    if (!fine)
        throw std::runtime_error(
            fmt::format("{}: {}", what, UDT::getlasterror().getErrorMessage()));
}

std::int64_t number(std::string_view text)
{
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    if (std::from_chars(text.data(), end, value) != std::from_chars_result{end, std::errc()})
        throw std::runtime_error(fmt::format("\"{}\" is no number", text));
    return value;
}

UDTSOCKET openSocket()
{
    const UDTSOCKET made = UDT::socket(AF_INET, SOCK_STREAM, 0);
    const linger value{1, kLingerSeconds};
    UDT::setsockopt(made, 0, UDT_LINGER, &value, sizeof value);
    return made;
}

// Announces a file and meets the server; the two sockets.
std::array<UDTSOCKET, 2> meet(const sockaddr_in& server, const std::string& request)
{
    const auto* const address = reinterpret_cast<const sockaddr*>(&server);
    const UDTSOCKET announcing = openSocket();
    UDT::setsockopt(announcing, 0, UDP_RCVBUF, &kUdpReceiveBuffer, sizeof kUdpReceiveBuffer);
    must(UDT::connect(announcing, address, sizeof server) != UDT::ERROR, "connect");
    const int length = static_cast<int>(request.size());
    must(UDT::send(announcing, request.data(), length, 0) == length, "request");

    sockaddr_in local{};
    int size = sizeof local;
    must(UDT::getsockname(announcing, reinterpret_cast<sockaddr*>(&local), &size) != UDT::ERROR,
         "address");
    const UDTSOCKET carrying = openSocket();
    const bool rendezvous = true;
    UDT::setsockopt(carrying, 0, UDT_RENDEZVOUS, &rendezvous, sizeof rendezvous);
    must(UDT::bind(carrying, reinterpret_cast<sockaddr*>(&local), size) != UDT::ERROR, "bind");
    must(UDT::connect(carrying, address, sizeof server) != UDT::ERROR, "rendezvous");
    return {announcing, carrying};
}

void receiveMessage(UDTSOCKET socket)
{
    std::array<char, 65536> room{};
    must(UDT::recv(socket, room.data(), room.size(), 0) > 0, "message");
}

void sendFile(const sockaddr_in& server, const std::string& request, std::int64_t size)
{
    static const std::array<char, kBlock> block{};
    const auto sockets = meet(server, request);
    receiveMessage(sockets[1]);
    for (std::int64_t left = size; left > 0;) {
        const int offered = static_cast<int>(std::min<std::int64_t>(left, kBlock));
        const int taken = UDT::send(sockets[1], block.data(), offered, 0);
        must(taken != UDT::ERROR, "send");
        left -= taken;
    }
    receiveMessage(sockets[1]);
    UDT::close(sockets[1]);
    UDT::close(sockets[0]);
}

int run(std::string_view port, std::string_view token, std::string_view count,
        std::string_view size)
{
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(static_cast<std::uint16_t>(number(port)));
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    UDT::startup();
    for (std::int64_t i = 0; i < number(count); ++i) {
        const RequestContainer request{fmt::format("bare-{}", i), std::string(token), number(size)};
        sendFile(server, buildXML(request.XMLpayload(), "RequestContainer"), number(size));
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
        return quenmoor::run(argv[1], argv[2], argv[3], argv[4]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quenmoor-bare-send: %s\n", error.what());
        return 1;
    }
}
