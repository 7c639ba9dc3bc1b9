#include "tests/devservice/upload_client.h"
#include "tests/fakes/local_service.h"

#include <gtest/gtest.h>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

class TransferServerTest : public ::testing::Test, protected LocalService {
protected:
    TransferServerTest()
    {
        for (const char* const other : {"other", "t0", "t1", "t2", "t3"})
            tokens.add(other);
        startServer();
    }

    UploadClient client() const { return UploadClient(server->port()); }

    // Leaves a copy of the first `held` bytes.
    void leavePart(const std::string& name, const std::string& content, std::int64_t held)
    {
        server->setFaults({{FaultKind::DropAfter, held}}, 1);
        UploadClient cut = client();
        const auto response = cut.announce(name, std::ssize(content));
        ASSERT_TRUE(response && !response->exists);
        (void)cut.send(content);
        ASSERT_TRUE(awaitIdle());
    }

    // A whole upload; the size in the closing document.
    std::optional<std::int64_t> upload(const std::string& name, const std::string& content,
                                       const std::string& token = "token") const
    {
        UploadClient whole = client();
        const auto response = whole.announce(name, std::ssize(content), token);
        EXPECT_TRUE(response && !response->exists);
        EXPECT_TRUE(whole.send(content));
        const auto size = whole.finished();
        EXPECT_EQ(stored(name), content);
        return size;
    }
};

void expectResponse(const std::optional<ResponseContainer>& response, HeldCopy expected)
{
    ASSERT_TRUE(response);
    EXPECT_EQ(response->exists, expected.exists);
    EXPECT_EQ(response->equal, expected.equal);
    EXPECT_EQ(response->complete, expected.complete);
    EXPECT_EQ(response->size, expected.size);
    EXPECT_EQ(response->response, 0);
}

} // namespace

TEST_F(TransferServerTest, aNewFileArrivesByteForByteUnderAnyName)
{
    const std::string content = sampleContent(3'000'001);
    for (const char* const name : {"clip.mov", "a&b <c> \"50%\"\n#?.mov", "caf\xE9.mov"})
        EXPECT_EQ(upload(name, content), std::ssize(content));
    EXPECT_EQ(server->attempts(), 3);
}

TEST_F(TransferServerTest, aCutUploadGoesOnWhereItStoodAlsoAfterARestart)
{
    const std::string content = sampleContent(1'000'000);
    leavePart("clip.mov", content, 300'000);
    startServer();

    UploadClient rest = client();
    expectResponse(rest.announce("clip.mov", 1'000'000), {true, true, false, 300'000});
    // confirmation and file in one message
    ASSERT_TRUE(rest.send(UploadClient::confirmation(true, false) + content.substr(300'000)));
    EXPECT_EQ(rest.finished(), 1'000'000);
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(TransferServerTest, aClientThatClosesInTheMiddleLosesNothing)
{
    const std::string content = sampleContent(100'000);
    {
        UploadClient leaving = client();
        ASSERT_TRUE(leaving.announce("clip.mov", 100'000));
        ASSERT_TRUE(leaving.send(content.substr(0, 60'000)));
    }
    ASSERT_TRUE(awaitIdle());
    UploadClient again = client();
    expectResponse(again.announce("clip.mov", 100'000), {true, true, false, 60'000});
}

TEST_F(TransferServerTest, anOverwriteReplacesTheFileAtItsEnd)
{
    upload("clip.mov", "the first one");
    UploadClient second = client();
    expectResponse(second.announce("clip.mov", 10), {true, false, true, 13});
    ASSERT_TRUE(second.send(UploadClient::confirmation(true, true)));
    ASSERT_TRUE(second.send("the se"));
    EXPECT_EQ(stored("clip.mov"), "the first one");
    ASSERT_TRUE(second.send("cond"));
    EXPECT_EQ(second.finished(), 10);
    EXPECT_EQ(stored("clip.mov"), "the second");
}

TEST_F(TransferServerTest, aCopyStaysWhenItIsOfAnotherFileOrTheUploadIsCancelled)
{
    leavePart("clip.mov", sampleContent(1000), 400);
    for (const std::int64_t size : {1000, 2000}) {
        UploadClient leaving = client();
        expectResponse(leaving.announce("clip.mov", size), {true, size == 1000, false, 400});
        ASSERT_TRUE(leaving.send(UploadClient::confirmation(size != 1000, false)));
        EXPECT_TRUE(leaving.wasDropped());
    }
    UploadClient again = client();
    expectResponse(again.announce("clip.mov", 1000), {true, true, false, 400});
}

TEST_F(TransferServerTest, aFileWithoutBytesGetsTwoSeparateDocuments)
{
    transferSettings.timeouts.closingPause = 400ms;
    startServer();
    UploadClient empty = client();
    expectResponse(empty.announce("empty.mov", 0), {});
    const auto between = std::chrono::steady_clock::now();
    EXPECT_EQ(empty.finished(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - between, 200ms);
    EXPECT_TRUE(std::filesystem::exists(root.path() / "empty.mov"));
}

TEST_F(TransferServerTest, unknownTokensAndNamesThatEscapeAreRefused)
{
    EXPECT_TRUE(client().refused("clip.mov", 1, "stranger"));
    EXPECT_TRUE(client().refused("../clip.mov", 1));
    EXPECT_TRUE(client().refused("..", 1));
    EXPECT_TRUE(client().refused("", 1));
    EXPECT_TRUE(client().refused("clip.mov", -1));
    EXPECT_FALSE(std::filesystem::exists(root.path().parent_path() / "clip.mov"));
}

TEST_F(TransferServerTest, aNewerAttemptTakesThePlaceOfAnOlderOne)
{
    const std::string content = sampleContent(50'000);
    UploadClient older = client();
    ASSERT_TRUE(older.announce("clip.mov", 50'000));
    ASSERT_TRUE(older.send(content.substr(0, 20'000)));
    const auto part = root.path() / ".quenmoor/parts/clip.mov";
    for (int i = 0; i < 500 && contentOf(part).size() < 20'000; ++i)
        std::this_thread::sleep_for(10ms);

    // one with another token has to stay away
    EXPECT_TRUE(client().refused("clip.mov", 50'000, "other"));

    UploadClient newer = client();
    expectResponse(newer.announce("clip.mov", 50'000), {true, true, false, 20'000});
    EXPECT_TRUE(older.wasDropped());
    ASSERT_TRUE(newer.send(UploadClient::confirmation(true, false)));
    ASSERT_TRUE(newer.send(content.substr(20'000)));
    EXPECT_EQ(newer.finished(), 50'000);
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(TransferServerTest, manyClientsAreServedAtOnce)
{
    std::vector<std::thread> clients;
    for (unsigned i = 0; i < 4; ++i)
        clients.emplace_back([this, i] {
            const std::string number = std::to_string(i);
            EXPECT_EQ(upload("clip" + number, sampleContent(2'000'000, i), "t" + number),
                      2'000'000);
        });
    for (std::thread& thread : clients)
        thread.join();
}

TEST_F(TransferServerTest, clientsThatFallSilentAreLetGo)
{
    transferSettings.timeouts.rendezvous = 1500ms;
    transferSettings.timeouts.idle = 300ms;
    startServer();
    UploadClient absent = client();
    ASSERT_TRUE(absent.request("absent.mov", 10));
    UploadClient silent = client();
    ASSERT_TRUE(silent.announce("silent.mov", 10, "other"));
    EXPECT_TRUE(silent.wasDropped());
    ASSERT_TRUE(awaitIdle());
}

TEST_F(TransferServerTest, clientsBeyondTheLimitAreTurnedAway)
{
    transferSettings.maxSessions = 1;
    startServer();
    UploadClient first = client();
    ASSERT_TRUE(first.announce("first.mov", 10));
    UploadClient second = client();
    (void)second.request("second.mov", 10, "other");
    ASSERT_TRUE(first.send("ten bytes!"));
    EXPECT_EQ(first.finished(), 10);
    EXPECT_FALSE(std::filesystem::exists(root.path() / ".quenmoor/parts/second.mov"));
}

TEST_F(TransferServerTest, stoppingEndsClientsInEveryPhaseAndKeepsWhatCame)
{
    upload("held.mov", "held");
    UploadClient absent = client();
    ASSERT_TRUE(absent.request("absent.mov", 10));
    UploadClient asking = client();
    ASSERT_TRUE(asking.announce("held.mov", 4, "t0"));
    UploadClient sending = client();
    ASSERT_TRUE(sending.announce("sending.mov", 1000, "t1"));
    ASSERT_TRUE(sending.send(sampleContent(600)));
    std::this_thread::sleep_for(50ms);

    const auto before = std::chrono::steady_clock::now();
    server->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, 5s);
    EXPECT_EQ(stored(".quenmoor/parts/sending.mov"), sampleContent(600));
}

TEST_F(TransferServerTest, aTakenAddressIsAnError)
{
    std::string error;
    for (const std::string address : {"127.0.0.1", "localhost", ""}) {
        TransferServerSettings same = transferSettings;
        same.port = server->port();
        same.bindAddress = address;
        TransferServer second(same, *store, tokens);
        EXPECT_FALSE(second.start(error));
        EXPECT_FALSE(error.empty());
    }
}

TEST_F(TransferServerTest, aSpoiltResponseStoresNothing)
{
    for (const FaultKind kind : {FaultKind::GarbageResponse, FaultKind::CutOffResponse}) {
        server->setFaults({{kind}}, 1);
        UploadClient confused = client();
        EXPECT_FALSE(confused.announce("clip.mov", 10));
        (void)confused.send(UploadClient::confirmation(true, false));
        confused.close();
        ASSERT_TRUE(awaitIdle());
        EXPECT_FALSE(std::filesystem::exists(root.path() / ".quenmoor/parts/clip.mov"));
    }
}

TEST_F(TransferServerTest, faultsInTheClosingDocumentLastAsManyAttemptsAsTold)
{
    server->setFaults({{FaultKind::SmallerFinalSize}}, 2);
    for (const std::int64_t size : {9, 9, 10})
        EXPECT_EQ(upload("clip" + std::to_string(server->attempts()), "ten bytes!"), size);
}

TEST_F(TransferServerTest, aSlowReaderTakesItsTime)
{
    server->setFaults({{FaultKind::SlowReading, 100'000}});
    const auto before = std::chrono::steady_clock::now();
    upload("clip.mov", sampleContent(50'000));
    EXPECT_GE(std::chrono::steady_clock::now() - before, 490ms);
}

} // namespace quenmoor
