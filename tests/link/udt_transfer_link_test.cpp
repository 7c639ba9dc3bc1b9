// The contract of the link, over real UDT and in real time.
#include "engine/clock.h"
#include "engine/upload_engine.h"
#include "protocol/documents.h"
#include "protocol/udt_congestion.h"
#include "protocol/udt_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/hostile_peer.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/in.h>

#include <tuple>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using std::chrono::steady_clock;

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
    EXPECT_EQ(stored("clip.mov"), "0123456789");
}

TEST_F(UdtLink, explainsAFailedNameLookUp)
{
    addrinfo* unused = nullptr;
    const int unknown = getaddrinfo("unknown.invalid", "9", nullptr, &unused);
    UdtTransferLink failing("unknown.invalid", 9);
    EXPECT_FALSE(failing.connectAndSendRequest(connectSocket, "text"));
    EXPECT_EQ(failing.failureReason(), "unknown.invalid: "s + gai_strerror(unknown));
    ASSERT_EQ(log.output().size(), 1U); // the local address
    EXPECT_FALSE(failing.rendezvousWithServer(connectSocket, rendezvousSocket));
    EXPECT_NE(log.output().back().find(" endpoint: "), std::string::npos);
}

TEST_F(UdtLink, survivesTheHandshakesOfAHostileServer)
{
    const auto words = [](int size) {
        return "the peer's handshake sets packets of " + std::to_string(size) +
               " bytes; usable are 576 to 1500";
    };
    const std::tuple<HostileHandshake, std::string> rows[]{
        {{HandshakeKind::Connect, 92}, words(92)},
        {{HandshakeKind::Connect, 1501}, words(1501)},
        {{HandshakeKind::Rendezvous, 575}, words(575)},
        {{HandshakeKind::Rendezvous, 65535}, words(65535)},
        {{HandshakeKind::Rendezvous, 576}, ""},
        {{HandshakeKind::Connect, 91}, "no answer"}, // the filter drops the handshake
        {{HandshakeKind::Connect, 65536}, "no answer"},
        {{HandshakeKind::Connect, 1500, 31}, "no answer"},
        {{HandshakeKind::Connect, 1500, (1 << 20) + 1}, "no answer"},
        {{HandshakeKind::Connect, 1500, 1 << 20}, ""}};
    for (const auto& [handshake, reason] : rows) {
        const HostilePeer peer(handshake);
        UdtTransferLink other("127.0.0.1", peer.port());
        EXPECT_EQ(connect(other, "request"), reason.empty());
        EXPECT_TRUE(other.failureReason().starts_with(reason)) << other.failureReason();
        const std::int64_t taken = other.send(rendezvousSocket, std::span("0123456789", 10));
        EXPECT_EQ(taken == 10, reason.empty()) << handshake.packetSize;
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
        std::string error;
        const auto listener = UdtSocket::listen({INADDR_LOOPBACK, 0}, error);
        const UdtAddress address = listener->localAddress().value();
        std::thread peer([&] {
            UdtAddress client;
            const auto announcing = listener->accept(client);
            auto socket = UdtSocket::rendezvous(address, client, error);
            for (int i = 0; i < 1000 && !socket->connected(); ++i)
                std::this_thread::sleep_for(10ms);
            EXPECT_TRUE(socket->send(sent));
        });
        UdtTransferLink other("127.0.0.1", address.port);
        EXPECT_TRUE(connect(other, "request"));
        EXPECT_EQ(other.receiveString(rendezvousSocket), received);
        EXPECT_EQ(other.failureReason(), reason);
        peer.join();
    }
}

TEST_F(UdtLink, limitsItsWaitsForAServerThatDoesNotRead)
{
    server->setFaults({{FaultKind::StopReading, 0}});
    ASSERT_TRUE(connect(link, request(1 << 30)));
    ASSERT_FALSE(link.receiveString(rendezvousSocket).empty());
    const std::string block(16384, 'x');
    while (link.send(rendezvousSocket, block) != kLinkError) {
    }
    EXPECT_EQ(link.failureReason(), "the server accepted no data for 10 s");
    // The pacer stops below the library's own limit of 8192 packets.
    const std::int32_t waiting = link.unacknowledged(rendezvousSocket).value_or(0);
    EXPECT_TRUE(waiting > 0 && waiting < 8000) << waiting;
    auto start = steady_clock::now();
    EXPECT_EQ(link.receiveString(rendezvousSocket), "");
    EXPECT_GE(steady_clock::now() - start, 9s);
    EXPECT_EQ(link.failureReason(), "no message from the server within 10 s");
    start = steady_clock::now();
    link.closeSockets(rendezvousSocket, connectSocket);
    EXPECT_LT(steady_clock::now() - start, 20s); // 180 s with the library's linger
}

TEST_F(UdtLink, resumesAFileBeyondFourGibibytes)
{
    const TempFolder folder;
    UploadQueues queues;
    FakeUploadView view;
    SystemClock clock;
    UploadEngine engine(queues, link, view, clock);
    constexpr std::int64_t kHeld = std::int64_t{1} << 32;
    const std::string tail = sampleContent(1'000'000);
    const auto path = folder.file("clip.mov", "");
    std::filesystem::resize_file(path, kHeld); // sparse
    std::ofstream(path, std::ios::app) << tail;
    std::string error;
    const auto size = static_cast<std::int64_t>(std::filesystem::file_size(path));
    ASSERT_TRUE(store->upload("clip.mov", size, error)->startOver());
    std::filesystem::resize_file(part("clip.mov"), kHeld);
    queues.addFiles(std::array{FileUrl::fromPath(path)});
    ASSERT_TRUE(queues.acceptToken(kToken));
    view.answer = [](const Alert&) { return kThirdButton; };
    view.onReload = [&] {
        if (queues.tableList().cell("Status", 0) == "Finished")
            clock.end();
    };
    engine.uploadFile();
    std::ifstream stored(root.path() / "clip.mov", std::ios::binary);
    stored.seekg(kHeld);
    EXPECT_EQ(std::string(std::istreambuf_iterator(stored), {}), tail);
}

} // namespace
} // namespace quenmoor
