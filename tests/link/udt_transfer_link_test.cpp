// The link's own promises, over real UDT.
#include "protocol/documents.h"
#include "protocol/udt_congestion.h"
#include "tests/link/service_fixture.h"

#include <netdb.h>

#include <chrono>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

std::string request(const std::string& name, std::int64_t size, const std::string& token)
{
    return buildXML(RequestContainer{name, token, size}.XMLpayload(), "RequestContainer");
}

struct UdtLink : ServiceFixture {
    std::int32_t connectSocket = 0;
    std::int32_t rendezvousSocket = 0;

    static std::chrono::milliseconds timed(const auto& action)
    {
        const auto start = std::chrono::steady_clock::now();
        action();
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            std::chrono::steady_clock::now() - start);
    }

    bool meet(UdtTransferLink& link, const std::string& text)
    {
        return link.connectAndSendRequest(connectSocket, text) &&
               link.rendezvousWithServer(connectSocket, rendezvousSocket);
    }

    std::vector<std::string> outputStarting(const std::string& text) const
    {
        std::vector<std::string> lines;
        for (const std::string& line : log.output()) {
            if (line.starts_with(text))
                lines.push_back(line);
        }
        return lines;
    }
};

TEST_F(UdtLink, announcesAndReadsTheResponse)
{
    UdtTransferLink link("localhost", server->port());
    ASSERT_TRUE(meet(link, request("clip.mov", 10, kToken)));
    const std::string text = link.receiveString(rendezvousSocket);
    EXPECT_NE(text.find("<exists>false</exists>"), std::string::npos) << text;
    EXPECT_EQ(link.socketState(rendezvousSocket), kSocketConnected);
    EXPECT_EQ(outputStarting("received: "), std::vector<std::string>{"received: " + text});

    link.closeSockets(rendezvousSocket, connectSocket);
    EXPECT_EQ(link.socketState(rendezvousSocket).value_or(kSocketBroken), kSocketBroken);
    link.closeSockets(rendezvousSocket, connectSocket); // the second close is harmless
}

TEST_F(UdtLink, writesTheLocalAddressAsItsBytesAndNothingBeyond)
{
    UdtTransferLink link("127.0.0.1", server->port());
    ASSERT_TRUE(link.connectAndSendRequest(connectSocket, request("a", 1, kToken)));
    link.closeSockets(0, connectSocket);
    // port 10000, address 0.0.0.0, and zeros to the length of the whole address
    const std::string bytes("\x27\x10\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
    EXPECT_EQ(outputStarting("local address: "),
              std::vector<std::string>{"local address: " + bytes});
}

TEST_F(UdtLink, saysNothingMoreWhenTheHostIsUnknown)
{
    UdtTransferLink link("no-such-host.invalid", 65000);
    addrinfo* unused = nullptr;
    const std::string nameError =
        gai_strerror(getaddrinfo("no-such-host.invalid", "1", nullptr, &unused));
    EXPECT_FALSE(link.connectAndSendRequest(connectSocket, "text"));
    EXPECT_EQ(log.output().size(), 1U);
    EXPECT_EQ(link.failureReason(), "no-such-host.invalid: " + nameError);
    link.closeSockets(rendezvousSocket, connectSocket);
}

TEST_F(UdtLink, givesUpADeadPortInSeconds)
{
    UdtTransferLink link("127.0.0.1", 9);
    bool connected = true;
    const auto time = timed([&] { connected = link.connectAndSendRequest(connectSocket, "text"); });
    EXPECT_FALSE(connected);
    EXPECT_LT(time, 10s);
    EXPECT_EQ(link.failureReason(),
              "no answer from 127.0.0.1:9 within 3 s; a firewall may block UDP");
    EXPECT_FALSE(link.rendezvousWithServer(connectSocket, rendezvousSocket));
    EXPECT_EQ(
        outputStarting("local endpoint: ").size() + outputStarting("remote endpoint: ").size(), 1U);
    link.closeSockets(rendezvousSocket, connectSocket);
}

TEST_F(UdtLink, sendsATextUpToItsFirstNulWithoutATerminator)
{
    // The service reads the request whole: a terminator or a prefix would be part of it.
    UdtTransferLink link("127.0.0.1", server->port());
    std::string text = request("clip.mov", 10, kToken);
    text += '\0';
    text += "<originFilename>other</originFilename>";
    ASSERT_TRUE(meet(link, text));
    EXPECT_FALSE(link.receiveString(rendezvousSocket).empty());
    ASSERT_EQ(link.send(rendezvousSocket, std::span("0123456789", 10)), 10);
    EXPECT_NE(link.receiveString(rendezvousSocket).find("<size>10</size>"), std::string::npos);
    link.closeSockets(rendezvousSocket, connectSocket);
    EXPECT_EQ(stored("clip.mov"), "0123456789");
}

TEST_F(UdtLink, waitsTenSecondsForAMessageThatDoesNotCome)
{
    server->setFaults({{FaultKind::NeverAnswer}});
    UdtTransferLink link("127.0.0.1", server->port());
    ASSERT_TRUE(meet(link, request("clip.mov", 10, kToken)));
    std::string text = "something";
    const auto time = timed([&] { text = link.receiveString(rendezvousSocket); });
    EXPECT_EQ(text, "");
    EXPECT_GE(time, 9s);
    EXPECT_LT(time, 20s);
    EXPECT_EQ(link.failureReason(), "no message from the server within 10 s");
    link.closeSockets(rendezvousSocket, connectSocket);
}

TEST_F(UdtLink, closesWithinItsLingerWhenNobodyReads)
{
    server->setFaults({{FaultKind::StopReading, 0}});
    UdtTransferLink link("127.0.0.1", server->port(), Congestion::Paced);
    ASSERT_TRUE(meet(link, request("clip.mov", 1 << 30, kToken)));
    ASSERT_FALSE(link.receiveString(rendezvousSocket).empty());
    const std::string block(16384, 'x');
    std::int64_t taken = 0;
    for (std::int32_t sent = 0; sent != kLinkError; taken += sent)
        sent = link.send(rendezvousSocket, block);
    EXPECT_EQ(link.failureReason(), "the server accepted no data for 10 s");
    EXPECT_GT(taken, 1000000);
    // The pacer stops below the library's own limit of 8192 packets.
    const std::int32_t waiting = link.unacknowledged(rendezvousSocket).value_or(0);
    EXPECT_GT(waiting, 0);
    EXPECT_LT(waiting, 8000);
    EXPECT_LT(timed([&] { link.closeSockets(rendezvousSocket, connectSocket); }), 8s);
}

TEST_F(UdtLink, refusesPacedControlOnceTheSocketIsConnected)
{
    UdtTransferLink link("127.0.0.1", server->port());
    ASSERT_TRUE(link.connectAndSendRequest(connectSocket, "<plist/>"));
    EXPECT_EQ(usePacedControl(connectSocket), nullptr);
    link.closeSockets(0, connectSocket);
}

} // namespace
} // namespace quenmoor
