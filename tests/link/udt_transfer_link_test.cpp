// The contract of the link, over real UDT and in real time.
#include "bench/udp_relay.h"
#include "protocol/udt_congestion.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <netinet/in.h>

namespace quenmoor {
namespace {

using namespace std::string_literals;

struct UdtLink : testing::Test, LocalService {
    UdtLink() { startServer(); }
};

TEST_F(UdtLink, sendsTheRequestUpToItsNulAndReceivesTheResponse)
{
    // The service would read a terminator or a length prefix as a part of the request.
    ServiceClient link(server->port());
    const std::string response =
        link.announce("clip.mov</originFilename>\n</RequestContainer>\0other"s, 10);
    EXPECT_EQ(usePacedControl(link.connectSocket, *UdpPort::open({}), {}).pacer, nullptr)
        << "the socket is connected already";
    EXPECT_NE(response.find("<exists>false</exists>"), std::string::npos) << response;
    ASSERT_TRUE(link.sendAll("0123456789"));
    EXPECT_NE(link.receive().find("<size>10</size>"), std::string::npos);
    EXPECT_EQ(link.state(), kSocketConnected);
    // Port 10000, host 0.0.0.0 and zeros up to the length of the whole address.
    EXPECT_EQ(log.output().front(), "local address: \x27\x10"s + std::string(14, '\0'));
    EXPECT_EQ(log.output()[1], "received: " + response);

    link.closeSockets(link.rendezvousSocket, link.connectSocket);
    EXPECT_EQ(link.state(), kSocketBroken);
    link.closeSockets(link.rendezvousSocket, link.connectSocket); // closing twice has no effect
    EXPECT_FALSE(link.rendezvous());
    EXPECT_NE(log.output().back().find(" endpoint: "), std::string::npos);
    EXPECT_EQ(stored("clip.mov"), "0123456789");
}

TEST_F(UdtLink, survivesTheHandshakesOfAHostileServer)
{
    const std::string size = "the peer's handshake sets packets of ";
    // In the rendezvous; the size of a packet in bytes; the window in packets; the reason.
    const std::tuple<bool, int, int, std::string> rows[]{
        {false, 92, 25600, size + "92 bytes; usable are 576 to 1500"},
        {false, 1501, 25600, size + "1501 "},
        {true, 575, 25600, size + "575 "},
        {true, 65535, 25600, size + "65535 "},
        {true, 576, 25600, ""},
        {false, 91, 25600, "no answer"}, // the filter drops the handshake
        {false, 65536, 25600, "no answer"},
        {false, 1500, 31, "no answer"},
        {false, 1500, -1, "no answer"},
        {false, 1500, (1 << 20) + 1, "no answer"},
        {false, 1500, 1 << 20, ""}};
    for (const auto& [rendezvous, packetSize, window, reason] : rows) {
        const auto edit = [in = rendezvous, bytes = packetSize, packets = window](auto& packet) {
            std::array<std::uint32_t, 16> fields{};
            if (packet.size() != sizeof fields || packet.compare(0, 2, "\x80\0", 2) != 0)
                return; // not a handshake
            packet.copy(reinterpret_cast<char*>(fields.data()), sizeof fields);
            const bool isRendezvous = fields[9] != htonl(1) && fields[11] == 0; // request, cookie
            if (isRendezvous == in) {
                fields[7] = htonl(static_cast<std::uint32_t>(bytes));
                fields[8] = htonl(static_cast<std::uint32_t>(packets));
            }
            packet.assign(reinterpret_cast<const char*>(fields.data()), sizeof fields);
        };
        UdpRelay relay(server->port(), {}, 1, edit);
        ServiceClient link(relay.port());
        EXPECT_EQ(link.sendRequest("clip.mov", 10) && link.rendezvous(), reason.empty());
        EXPECT_TRUE(link.failureReason().starts_with(reason)) << link.failureReason();
        EXPECT_EQ(link.sendAll("0123456789"), reason.empty()) << packetSize;
    }
    // The library itself lets clients connect to a listener that was closed.
    std::string error;
    const auto listener = UdtSocket::listen({INADDR_LOOPBACK, 0}, error);
    ServiceClient late(listener->localAddress()->port);
    listener->interrupt();
    EXPECT_FALSE(late.sendRequest("clip.mov", 10));
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
        ServiceClient link(relay.port());
        EXPECT_EQ(link.announce("clip.mov", 10), received);
        EXPECT_EQ(link.failureReason(), reason);
    }
}

TEST_F(UdtLink, pacesBelowTheLibrarysOwnLimitOf8192Packets)
{
    server->setFaults({{FaultKind::StopReading, 0}});
    ServiceClient link(server->port());
    ASSERT_FALSE(link.announce("clip.mov", 1 << 30).empty());
    while (link.send(link.rendezvousSocket, std::string(16384, 'x')) != kLinkError) {
    }
    const std::int32_t waiting = link.unacknowledged(link.rendezvousSocket).value_or(0);
    EXPECT_TRUE(waiting > 0 && waiting < 8000) << waiting;
}

} // namespace
} // namespace quenmoor
