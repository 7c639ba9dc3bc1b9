// The contract of the link, over real UDT and in real time.
#include "bench/udp_relay.h"
#include "protocol/documents.h"
#include "protocol/udt_congestion.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

namespace quenmoor {
namespace {

using namespace std::string_literals;

struct UdtLink : testing::Test, LocalService {
    std::int32_t connectSocket = 0;
    std::int32_t rendezvousSocket = 0;
    UdtTransferLink link{"localhost", startedPort(), Congestion::Paced};

    std::uint16_t startedPort()
    {
        startServer();
        return server->port();
    }

    static std::string request(std::int64_t size)
    {
        return buildXML(RequestContainer{"clip.mov", kToken, size}.XMLpayload(),
                        "RequestContainer");
    }

    bool connect(UdtTransferLink& to, const std::string& text)
    {
        return to.connectAndSendRequest(connectSocket, text) &&
               to.rendezvousWithServer(connectSocket, rendezvousSocket);
    }

    void TearDown() override { link.closeSockets(rendezvousSocket, connectSocket); }
};

TEST_F(UdtLink, sendsTheRequestUpToItsNulAndReceivesTheResponse)
{
    // The service would read a terminator or a length prefix as a part of the request.
    const std::string text = request(10) + '\0' + "<originFilename>other</originFilename>";
    ASSERT_TRUE(connect(link, text));
    EXPECT_EQ(usePacedControl(connectSocket, *UdpPort::open({}), {}).pacer, nullptr)
        << "the socket is connected already";
    const std::string response = link.receiveString(rendezvousSocket);
    EXPECT_NE(response.find("<exists>false</exists>"), std::string::npos) << response;
    ASSERT_EQ(link.send(rendezvousSocket, std::span("0123456789", 10)), 10);
    EXPECT_NE(link.receiveString(rendezvousSocket).find("<size>10</size>"), std::string::npos);
    EXPECT_EQ(link.socketState(rendezvousSocket), kSocketConnected);
    // Port 10000, host 0.0.0.0 and zeros up to the length of the whole address.
    EXPECT_EQ(log.output().front(), "local address: \x27\x10"s + std::string(14, '\0'));
    EXPECT_EQ(log.output()[1], "received: " + response);

    link.closeSockets(rendezvousSocket, connectSocket);
    EXPECT_EQ(link.socketState(rendezvousSocket).value_or(kSocketBroken), kSocketBroken);
    link.closeSockets(rendezvousSocket, connectSocket); // closing twice has no effect
    EXPECT_FALSE(link.rendezvousWithServer(connectSocket, rendezvousSocket));
    EXPECT_NE(log.output().back().find(" endpoint: "), std::string::npos);
    EXPECT_EQ(stored("clip.mov"), "0123456789");
}

TEST_F(UdtLink, survivesTheHandshakesOfAHostileServer)
{
    const std::string size = "the peer's handshake sets packets of ";
    struct Row {
        bool rendezvous;
        int packetSize; // bytes
        int window;     // packets
        std::string reason;
    };
    for (const Row& row : {
             Row{false, 92, 25600, size + "92 bytes; usable are 576 to 1500"},
             {false, 1501, 25600, size + "1501 "},
             {true, 575, 25600, size + "575 "},
             {true, 65535, 25600, size + "65535 "},
             {true, 576, 25600, ""},
             {false, 91, 25600, "no answer"}, // the filter drops the handshake
             {false, 65536, 25600, "no answer"},
             {false, 1500, 31, "no answer"},
             {false, 1500, -1, "no answer"},
             {false, 1500, (1 << 20) + 1, "no answer"},
             {false, 1500, 1 << 20, ""},
         }) {
        UdpRelay relay(server->port(), {}, 1, [&](std::string& packet) {
            std::array<std::uint32_t, 16> fields{};
            if (packet.size() != sizeof fields || packet.compare(0, 2, "\x80\0", 2) != 0)
                return; // not a handshake
            packet.copy(reinterpret_cast<char*>(fields.data()), sizeof fields);
            const bool isRendezvous = fields[9] != htonl(1) && fields[11] == 0; // request, cookie
            if (isRendezvous == row.rendezvous) {
                fields[7] = htonl(static_cast<std::uint32_t>(row.packetSize));
                fields[8] = htonl(static_cast<std::uint32_t>(row.window));
            }
            packet.assign(reinterpret_cast<const char*>(fields.data()), sizeof fields);
        });
        UdtTransferLink other("127.0.0.1", relay.port());
        EXPECT_EQ(connect(other, request(10)), row.reason.empty());
        EXPECT_TRUE(other.failureReason().starts_with(row.reason)) << other.failureReason();
        const std::int64_t taken = other.send(rendezvousSocket, std::span("0123456789", 10));
        EXPECT_EQ(taken == 10, row.reason.empty()) << row.packetSize;
        other.closeSockets(rendezvousSocket, connectSocket);
    }
}

TEST_F(UdtLink, endsAReceivedTextAtItsNulAndRejectsInvalidUtf8)
{
    const std::array<std::string, 3> rows[]{
        {"a\0b"s, "a", ""},
        {"\0b"s, "", "the server sent an empty message"},
        {"caf\xE9", "", "the server sent a message that is not valid UTF-8"}};
    for (const auto& [sent, received, reason] : rows) {
        UdpRelay relay(server->port(), {}, 1, [&text = sent](std::string& packet) {
            if (const std::size_t at = packet.find("<?xml"); at != std::string::npos)
                packet.replace(at, packet.size(), text);
        });
        UdtTransferLink other("127.0.0.1", relay.port());
        EXPECT_TRUE(connect(other, request(10)));
        EXPECT_EQ(other.receiveString(rendezvousSocket), received);
        EXPECT_EQ(other.failureReason(), reason);
    }
}

TEST_F(UdtLink, pacesBelowTheLibrarysOwnLimitOf8192Packets)
{
    server->setFaults({{FaultKind::StopReading, 0}});
    ASSERT_TRUE(connect(link, request(1 << 30)));
    ASSERT_FALSE(link.receiveString(rendezvousSocket).empty());
    while (link.send(rendezvousSocket, std::string(16384, 'x')) != kLinkError) {
    }
    const std::int32_t waiting = link.unacknowledged(rendezvousSocket).value_or(0);
    EXPECT_TRUE(waiting > 0 && waiting < 8000) << waiting;
}

} // namespace
} // namespace quenmoor
