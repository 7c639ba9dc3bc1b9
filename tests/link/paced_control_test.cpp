// Our congestion control inside the real library, over loopback.
#include "protocol/udt_congestion.h"
#include "tests/link/service_fixture.h"

namespace quenmoor {
namespace {

struct Paced : SendingFixture {
    Paced() { congestion = Congestion::Paced; }
};

TEST_F(Paced, aFileArrivesByteForByte)
{
    const std::string content = queue("clip.mov", 40'000'001);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
    EXPECT_EQ(view.statuses(0).back(), "Finished");
}

TEST_F(Paced, smallFilesArriveOneAfterTheOther)
{
    const std::vector<std::size_t> sizes{0, 1, 1455, 16384, 16385, 300'000};
    for (const std::size_t size : sizes)
        queue("clip" + std::to_string(size), size);
    send();
    for (const std::size_t size : sizes)
        EXPECT_EQ(stored("clip" + std::to_string(size)), sampleContent(size)) << size;
}

TEST_F(Paced, aDroppedLinkIsResumed)
{
    server->setFaults({{FaultKind::DropAfter, 5'000'000}}, 1);
    const std::string content = queue("clip.mov", 12'000'000);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(Paced, aServerThatReadsSlowlyIsWaitedFor)
{
    server->setFaults({{FaultKind::SlowReading, 8'000'000}}, 1);
    const std::string content = queue("clip.mov", 32'000'000);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(Paced, isRefusedOnceTheSocketIsConnected)
{
    UdtTransferLink link("127.0.0.1", server->port());
    std::int32_t socket = 0;
    ASSERT_TRUE(link.connectAndSendRequest(socket, "<plist/>"));
    EXPECT_EQ(usePacedControl(socket), nullptr);
    link.closeSockets(0, socket);
}

} // namespace
} // namespace quenmoor
