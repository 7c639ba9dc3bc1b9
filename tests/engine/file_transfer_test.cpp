#include "tests/engine/engine_fixture.h"

namespace quenmoor {
namespace {

struct FileTransfer : EngineFixture {
    std::vector<std::string> run()
    {
        engine.uploadFile();
        return view.statuses(0);
    }
    const std::vector<std::string> finished{"Connecting", "Finished"};
    const std::vector<std::string> failedOnce{"Connecting", "Waiting (Error)", "Connecting",
                                              "Finished"};
};

TEST_F(FileTransfer, sendsEveryByteOnceAroundTheBlockSize)
{
    for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 100000U})
        queue("clip" + std::to_string(size), size);
    engine.uploadFile();
    for (const auto& [name, copy] : link.copies)
        EXPECT_EQ(copy.bytes, contentOf(folder.path() / name)) << name;
    EXPECT_EQ(link.copies.size(), 6U);
    EXPECT_EQ(logged("Correct size sent."), 5U);
}

TEST_F(FileTransfer, readsAgainWhatAShortSendLeft)
{
    link.takeAtMost = 1000;
    const std::string content = queue("clip.mov", 50001);
    EXPECT_EQ(run(), finished);
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
}

TEST_F(FileTransfer, resumesFromTheServersSizeAndSendsNothingPastTheEnd)
{
    const std::string content = queue("half.mov", 50000);
    serverHolds("half.mov", content, 20000);
    queuePath(folder.file("whole.mov", content));
    serverHolds("whole.mov", content, 50000);
    view.answers = {kThirdButton, kSecondButton};
    engine.uploadFile();
    EXPECT_EQ(link.copies["half.mov"].bytes, content);
    EXPECT_EQ(link.copies["whole.mov"].bytes, content);
    EXPECT_EQ(link.sentPerAttempt, (std::vector<std::int64_t>{30000, 50000}));
}

TEST_F(FileTransfer, findsNoPlaceToGoOnInACopyOfLessThanNothing)
{
    queue("clip.mov", 10);
    struct NegativeSize : FakeTransferLink {
        std::string receiveString(std::int32_t /*socket*/) override
        {
            return "<r><exists>true</exists><equal>true</equal><complete>false</complete>"
                   "<size>-5</size><response>0</response></r>";
        }
    } hostile;
    UploadEngine hostileEngine(queues, hostile, view, clock);
    view.answers = {kThirdButton};
    hostileEngine.uploadFile();
    EXPECT_TRUE(view.terminated);
    EXPECT_EQ(hostile.emptySends, 0U);
    EXPECT_EQ(hostile.confirmations, std::vector<std::string>(10, "resume"));
}

TEST_F(FileTransfer, saysWhereALinkFailed)
{
    link.plans = {{LinkFault::BreakAfter, 16384}};
    link.takeAtMost = 16384;
    queue("clip.mov", 20000);
    EXPECT_EQ(run(), failedOnce);
    // the block that failed was the last one: its read met the end of the file
    EXPECT_EQ(log.output(), (std::vector<std::string>{
                                "sendfile: Connection was broken.",
                                "Last recorded progress: 16384 bytes read: 3616 position: -1"}));
}

TEST_F(FileTransfer, failsAfterTenSecondsOfEmptyReadsWithoutCountingThemAsProgress)
{
    queue("clip.mov", 1000);
    folder.file("clip.mov", "short");
    link.plans.assign(10, {LinkFault::Discard});
    engine.uploadFile();
    // five bytes are sent in every attempt, and still the tenth attempt is the last one
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>(10, 5));
    EXPECT_EQ(link.emptySends, 10U * 1001U);
    EXPECT_EQ(clock.totalSleep(), std::chrono::seconds(1850 + 10 * 10));
    EXPECT_EQ(view.events.back().reason, "the file ends after 5 of 1000 bytes");
    EXPECT_TRUE(view.terminated);
}

TEST_F(FileTransfer, sendsAFileThatGrewUpToItsAnnouncedSize)
{
    const std::string content = queue("clip.mov", 20000);
    folder.file("clip.mov", content + "more");
    EXPECT_EQ(run(), finished);
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
}

TEST_F(FileTransfer, waitsForTheLinkAsLongAsItMoves)
{
    queue("clip.mov", 10);
    // twenty seconds in all, with a packet acknowledged every 4 ms
    for (std::int32_t left = 5000; left > 0; --left)
        link.unacknowledgedAmounts.insert(link.unacknowledgedAmounts.end(), 2, left);
    EXPECT_EQ(run(), finished);
    EXPECT_TRUE(link.unacknowledgedAmounts.empty());
}

TEST_F(FileTransfer, waitsTenSecondsForALinkThatDoesNotMove)
{
    queue("clip.mov", 10);
    link.unacknowledgedAmounts.assign(20000, 700);
    EXPECT_EQ(run(), finished);
    const auto waited = clock.totalSleep();
    EXPECT_GE(waited, std::chrono::seconds(10));
    EXPECT_LT(waited, std::chrono::seconds(11));
}

TEST_F(FileTransfer, doesNotWaitForALinkThatIsBroken)
{
    queue("clip.mov", 10);
    link.state = kSocketBroken;
    link.unacknowledgedAmounts.assign(20000, 700);
    EXPECT_EQ(run(), finished);
    EXPECT_LT(clock.totalSleep(), std::chrono::seconds(1));
}

TEST_F(FileTransfer, believesTheServersFinishedSizeOnly)
{
    link.plans = {{LinkFault::SmallFinished}, {LinkFault::NoFinished}, {}};
    const std::string content = queue("clip.mov", 30000);
    EXPECT_EQ(run(), (std::vector<std::string>{"Connecting", "Waiting (Error)", "Connecting",
                                               "Waiting (Error)", "Retrying in 5s",
                                               "Retrying in 4s", "Retrying in 3s", "Retrying in 2s",
                                               "Retrying in 1s", "Connecting", "Finished"}));
    // the copy of the first attempt is taken up without a question
    EXPECT_EQ(view.questions(), 0U);
    EXPECT_EQ(link.confirmations, (std::vector<std::string>{"resume", "resume"}));
    EXPECT_EQ(link.sentPerAttempt, (std::vector<std::int64_t>{30000, 0, 0}));
    EXPECT_EQ(logged("Failed receiving response back after upload."), 1U);
}

TEST_F(FileTransfer, leavesTheSendLoopWhenTheProgramEnds)
{
    queue("clip.mov", 1000000);
    link.onSend = [this] { clock.end(); };
    engine.uploadFile();
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>{16384});
    EXPECT_TRUE(link.openSockets.empty());
    EXPECT_EQ(view.statuses(0), std::vector<std::string>{"Connecting"});
}

TEST_F(FileTransfer, opensAndAnnouncesNamesAsTheBytesThatTheyAre)
{
    const std::vector<std::string> names{"caf\xE9.mov", "two\nlines", "100%",
                                         "a#b",         "a?b&c=d",    std::string(255, 'x')};
    for (const std::string& name : names)
        queue(name, 100);
    engine.uploadFile();
    ASSERT_EQ(link.copies.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i) {
        EXPECT_EQ(link.copies[names[i]].bytes, sampleContent(100));
        EXPECT_NE(link.requests[i].find("<originFilename>" + names[i] + "</originFilename>\n"),
                  std::string::npos);
    }
}

} // namespace
} // namespace quenmoor
