#include "tests/engine/engine_fixture.h"

#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

using FileTransfer = EngineFixture;
const Texts kFinished{"Connecting", "Finished"};

TEST_F(FileTransfer, sendsEveryByteOnceAroundTheBlockSize)
{
    for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 100000U})
        queue("clip" + std::to_string(size), size);
    link.takeAtMost = 16000; // the rest of a block is read and sent again
    run();
    for (const auto& [name, copy] : link.copies)
        EXPECT_TRUE(copy.bytes == contentOf(folder.path() / name)) << name;
    EXPECT_EQ(link.copies.size(), 6U);
}

TEST_F(FileTransfer, resumesBeyondFourGibibytes)
{
    // A sparse file of 5 GiB and 20000 bytes, of which the server has all but the end.
    constexpr std::int64_t kHeld = std::int64_t{5} << 30;
    const std::string tail = sampleContent(20000);
    const auto path = folder.file("clip.mov", "");
    std::filesystem::resize_file(path, kHeld);
    std::ofstream(path, std::ios::binary | std::ios::app) << tail;
    queuePath(path);
    link.copies["clip.mov"] = {"", kHeld + 20000, kHeld};
    view.answers = {kThirdButton};
    EXPECT_EQ(run(), kFinished);
    EXPECT_NE(link.requests[0].find("<size>5368729120</size>"), std::string::npos);
    EXPECT_EQ(link.copies["clip.mov"].bytes, tail);
    EXPECT_EQ(view.events.back().bytes, kHeld + 20000);
    EXPECT_EQ(view.events.back().sentBytes, 20000);
}

TEST_F(FileTransfer, reportsSamplesWhileTheFileIsSent)
{
    serverHolds("clip.mov", queue("clip.mov", 100000), 20000);
    view.answers = {kThirdButton};
    clock.onMonitorSleep = [] {};
    link.onSend = [this, sends = 0]() mutable {
        // The sender waits for a sample after 16384 bytes.
        while (++sends == 2 && !view.first(AttemptEventKind::Progress))
            std::this_thread::yield();
    };
    run();
    const auto sample = view.first(AttemptEventKind::Progress);
    ASSERT_TRUE(sample);
    EXPECT_EQ(sample->bytes, 20000 + sample->sentBytes);
    EXPECT_LE(sample->sentBytes, 16384);
    EXPECT_EQ(sample->total, 100000);
    EXPECT_EQ(view.statusBar.front(), "clip.mov: Upload rate: 0.000 MB/s");
    EXPECT_EQ(view.statusBar.back(), "[none]: Upload rate: 0.000 MB/s");
}

TEST_F(FileTransfer, logsThePositionOfABrokenLink)
{
    link.plans = {{LinkFault::BreakAfter, 16384}};
    link.takeAtMost = 16384;
    queue("clip.mov", 20000);
    run();
    // The block that failed was the last one: its read reached the end of the file.
    EXPECT_EQ(log.output(), (Texts{"sendfile: Connection was broken.",
                                   "Last recorded progress: 16384 bytes read: 3616 position: -1"}));
}

TEST_F(FileTransfer, failsAfterTenSecondsOfEmptyReadsWithoutCountingThemAsProgress)
{
    queue("clip.mov", 1000);
    folder.file("clip.mov", "short");
    link.plans.assign(10, {LinkFault::Discard});
    run();
    // Every attempt sends five bytes, and the tenth one is still the last.
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>(10, 5));
    EXPECT_EQ(link.emptySends, 10U * 1001U);
    EXPECT_EQ(clock.totalSleep(), 1850s + 10 * 10s);
    EXPECT_EQ(view.events.back().reason, "the file ends after 5 of 1000 bytes");
    EXPECT_TRUE(view.terminated);
}

TEST_F(FileTransfer, sendsAFileThatGrewUpToItsAnnouncedSize)
{
    const std::string content = queue("clip.mov", 20000);
    folder.file("clip.mov", content + "more");
    EXPECT_EQ(run(), kFinished);
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
}

TEST_F(FileTransfer, waitsForAcknowledgementsAsLongAsTheyArrive)
{
    std::deque<std::int32_t> moving; // one packet acknowledged every 4 ms
    for (std::int32_t left = 5000; left > 0; --left)
        moving.insert(moving.end(), 2, left);
    const std::deque<std::int32_t> stalled(20000, 700);
    const std::tuple<std::deque<std::int32_t>, std::int32_t, std::chrono::milliseconds> rows[]{
        {moving, kSocketConnected, 20000ms},
        {stalled, kSocketConnected, 10000ms},
        {stalled, kSocketBroken, 0ms}};
    for (const auto& [amounts, state, time] : rows) {
        queue("clip.mov", 10);
        link.copies.clear();
        link.unacknowledgedAmounts = amounts;
        link.state = state;
        FakeClock own;
        UploadEngine(queues, link, view, own).uploadFile();
        EXPECT_EQ(own.totalSleep(), time + 200ms); // and the poll of the empty queue
        EXPECT_EQ(view.events.back().kind, AttemptEventKind::Finished);
    }
}

TEST_F(FileTransfer, finishesOnlyWithTheServersConfirmationOfTheSize)
{
    link.plans = {{LinkFault::SmallFinished}, {LinkFault::NoFinished}, {}};
    queue("clip.mov", 30000);
    EXPECT_EQ(run(), (Texts{"Connecting", "Waiting (Error)", "Connecting", "Waiting (Error)",
                            "Retrying in 5s", "Retrying in 4s", "Retrying in 3s", "Retrying in 2s",
                            "Retrying in 1s", "Connecting", "Finished"}));
    // The copy of the first attempt is resumed without a question.
    EXPECT_EQ(view.questions(), 0U);
    EXPECT_EQ(link.confirmations, (Texts{"resume", "resume"}));
    EXPECT_EQ(link.sentPerAttempt, (std::vector<std::int64_t>{30000, 0, 0}));
}

TEST_F(FileTransfer, stopsSendingWhenTheProgramEnds)
{
    queue("clip.mov", 1000000);
    link.onSend = [this] { clock.end(); };
    EXPECT_EQ(run(), Texts{"Connecting"});
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>{16384});
    EXPECT_TRUE(link.openSockets.empty());
}

} // namespace
} // namespace quenmoor
