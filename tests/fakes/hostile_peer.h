// A UDP socket of 127.0.0.1 that answers the transport library's handshakes with any values and
// sends nothing else.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <thread>

namespace quenmoor {

enum class HandshakeKind : std::uint8_t { Connect, Rendezvous };

// What the answers of one kind contain. The others contain the library's own values.
struct HostileHandshake {
    HandshakeKind kind{};
    std::int32_t packetSize = 1500; // bytes
    std::int32_t window = 25600;    // packets
};

class HostilePeer {
public:
    explicit HostilePeer(const HostileHandshake& hostile) : hostile_(hostile)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        const timeval limit{0, 50'000};
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        thread_ = std::thread([this] {
            while (!stopping_)
                answerOne();
        });
    }
    ~HostilePeer()
    {
        stopping_ = true;
        thread_.join();
        close(socket_);
    }
    HostilePeer(const HostilePeer&) = delete;
    HostilePeer& operator=(const HostilePeer&) = delete;

    std::uint16_t port() const
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

private:
    // Words of a handshake: four of the header, then version, type, first number, packet size,
    // window, request, socket, cookie and four of the address.
    enum Word : std::size_t { Destination = 3, PacketSize = 7, Window, Request, Socket, Cookie };

    void answerOne()
    {
        std::array<std::uint32_t, 16> words{};
        sockaddr_in peer{};
        socklen_t length = sizeof peer;
        auto* const from = reinterpret_cast<sockaddr*>(&peer);
        const ssize_t got = recvfrom(socket_, words.data(), sizeof words, 0, from, &length);
        if (got != sizeof words || ntohl(words[0]) != 0x80000000U)
            return;
        // An ordinary client repeats the cookie of the first answer; a rendezvous has none.
        const bool first = ntohl(words[Request]) == 1;
        const bool rendezvous = !first && words[Cookie] == 0;
        if (rendezvous == (hostile_.kind == HandshakeKind::Rendezvous)) {
            words[PacketSize] = htonl(static_cast<std::uint32_t>(hostile_.packetSize));
            words[Window] = htonl(static_cast<std::uint32_t>(hostile_.window));
        }
        words[Destination] = words[Socket];
        words[Socket] = htonl(rendezvous ? 777 : 778);
        words[Cookie] = rendezvous ? 0 : htonl(12345);
        sendto(socket_, words.data(), sizeof words, 0, from, length);
    }

    const HostileHandshake hostile_;
    const int socket_ = socket(AF_INET, SOCK_DGRAM, 0);
    std::atomic<bool> stopping_ = false;
    std::thread thread_;
};

} // namespace quenmoor
