#include "engine/existing_file.h"
#include "tests/engine/engine_fixture.h"

#include <bit>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

const std::string kAlertText = "Upload attempt unsuccessful.  Unable to continue.  The application "
                               "will exit.\nReason: ";
const std::string kNoResponse = "Response from server not received.";

TEST(ExistingFile, offersToResumeOnlyTheSameUnfinishedFile)
{
    const std::string text = "A previous file for this upload has been found on Quenmoor Transfer "
                             "server.\nThe file appears to be ";
    const Texts two{"Cancel", "Overwrite"};
    const Texts three{"Cancel", "Overwrite", "Resume"};
    const std::tuple<bool, bool, std::string, Texts> rows[]{
        {true, true, "the same and the upload was complete.", two},
        {true, false, "the same and the upload was incomplete.", three},
        {false, true, "different and the upload was complete.", two},
        {false, false, "different and the upload was incomplete.", two}};
    for (const auto& [equal, complete, words, buttons] : rows) {
        ResponseContainer response;
        response.equal = equal;
        response.complete = complete;
        EXPECT_EQ(existingFileAlert(response),
                  (Alert{"File Exists", text + words, buttons, ExistingCopy{equal, complete, -1}}));
    }
}

using UploadEngineTest = EngineFixture;

TEST_F(UploadEngineTest, givesUpAfterTenFailuresInARow)
{
    queue("clip.mov", 10);
    queue("next.mov", 10);
    link.plans.assign(10, {LinkFault::RefuseConnect});
    Texts expected;
    for (const int wait : {0, 5, 15, 30, 60, 120, 240, 480, 900, 0}) {
        expected.insert(expected.end(), {"Connecting", "Waiting (Error)"});
        for (int left = wait; left > 0; --left)
            expected.push_back("Retrying in " + std::to_string(left) + "s");
    }
    EXPECT_EQ(run(), expected);
    EXPECT_EQ(clock.totalSleep(), 1850s);
    EXPECT_EQ(view.alerts, (std::vector<Alert>{{kAlertText + kNoResponse, {}, {}}}));
    EXPECT_TRUE(view.terminated);
    EXPECT_EQ(queues.uploadCount(), 2U);
    EXPECT_TRUE(view.statuses(1).empty());
    EXPECT_EQ(view.events.back().attempt, 10);
    EXPECT_EQ(view.events.back().elapsed, 1850s);
}

TEST_F(UploadEngineTest, givesUpByCountOrTimeAndGoesOnIfThePolicyKeepsGoing)
{
    const std::pair<RetryPolicy, std::int32_t> rows[]{
        {{.attempts = 1, .keepGoing = true}, 1},
        {{.attempts = 12, .keepGoing = true}, 12}, // after two waits of 900 s
        {{.attempts = 99, .timeLimit = 49s, .keepGoing = true}, 4},
        {{.attempts = 99, .timeLimit = 50s, .keepGoing = true}, 5}};
    for (const auto& [policy, attempts] : rows) {
        const std::string name = "clip" + std::to_string(link.requests.size());
        queue(name, 10);
        const std::string next = queue(name + "-next", 10);
        FakeClock own;
        link.plans.assign(static_cast<std::size_t>(attempts), {LinkFault::RefuseConnect});
        UploadEngine(queues, link, view, own, policy).uploadFile();
        EXPECT_EQ(view.first(AttemptEventKind::GaveUp)->attempt, attempts);
        EXPECT_EQ(link.copies[name + "-next"].bytes, next);
        EXPECT_EQ(view.events.back().attempt, 1);
        view.events.clear();
    }
    EXPECT_FALSE(view.terminated);
    EXPECT_EQ(view.alerts.size(), 0U);
}

TEST_F(UploadEngineTest, reportsTheStepAndTheReasonOfAFailure)
{
    using Step = AttemptStep;
    const FakeTransferLink::Copy whole{"123456789", 9};
    struct {
        LinkFault fault;
        Step step;
        std::string reason = "no answer";
        std::optional<FakeTransferLink::Copy> copy = std::nullopt;
    } const rows[]{
        {LinkFault::RefuseConnect, Step::Announce},
        {LinkFault::RefuseRendezvous, Step::Rendezvous},
        {LinkFault::Silent, Step::Response},
        {LinkFault::Refuse, Step::Refused, "the server refused the upload"},
        {LinkFault::LoseConfirm, Step::Confirm, "no answer", {{"", 9}}},
        {LinkFault::None, Step::Confirm, "the server reports a copy of -5 bytes", {{"", 9, -5}}},
        {LinkFault::BreakAfter, Step::Send},
        {LinkFault::NoFinished, Step::Finish, "no answer", whole},
        {LinkFault::SmallFinished, Step::Finish, "the server holds 8 of 9 bytes", whole}};
    queue("clip.mov", 9);
    view.answer = [](const Alert&) { return kThirdButton; };
    for (const auto& row : rows) {
        SCOPED_TRACE(stepName(row.step));
        link.copies.clear();
        if (row.copy)
            link.copies["clip.mov"] = *row.copy;
        link.plans.assign(10, {row.fault});
        UploadEngine(queues, link, view, clock).uploadFile();
        const AttemptEvent& last = view.events.back();
        EXPECT_EQ(last.kind, AttemptEventKind::GaveUp);
        EXPECT_EQ(last.step, row.step);
        EXPECT_EQ(last.reason, row.reason);
        // The alert names the missing response at every step before it.
        EXPECT_EQ(view.alerts.back().messageText,
                  kAlertText + (row.step <= Step::Response ? kNoResponse : ""));
    }
}

TEST_F(UploadEngineTest, asksOncePerEarlierCopyAndReusesTheAnswer)
{
    const std::string content = queue("resumed.mov", 50000);
    queue("replaced.mov", 50000);
    queue("new.mov", 1000);
    serverHolds("resumed.mov", content, 500);
    serverHolds("replaced.mov", "something else", 14);
    link.plans = {{LinkFault::BreakAfter, 16384},
                  {},
                  {LinkFault::LoseConfirm},
                  {LinkFault::BreakAfter, 20000},
                  {},
                  {LinkFault::BreakAfter, 100},
                  {}};
    view.answers = {kThirdButton, kSecondButton};
    run();
    EXPECT_EQ(view.questions(), 2U);
    EXPECT_EQ(link.confirmations,
              (Texts{"resume", "resume", "overwrite", "overwrite", "overwrite", "resume"}));
    EXPECT_EQ(link.sentPerAttempt,
              (std::vector<std::int64_t>{16384, 50000 - 16884, 0, 20000, 50000, 100, 900}));
    EXPECT_EQ(link.copies["resumed.mov"].bytes, content);
    EXPECT_EQ(link.copies["replaced.mov"].bytes, content);
    EXPECT_EQ(view.events.back().sentBytes, 1000);
}

TEST_F(UploadEngineTest, cancelsAFileAlsoWithoutItsConfirmationAndSendsTheNext)
{
    serverHolds("first.mov", queue("first.mov", 100), 50);
    queue("second.mov", 100);
    link.plans = {{LinkFault::LoseConfirm}};
    view.answers = {-1}; // the alert was closed
    EXPECT_EQ(run(), (Texts{"Connecting", "Canceled"}));
    EXPECT_EQ(view.statuses(1), (Texts{"Connecting", "Finished"}));
    EXPECT_EQ(link.confirmations, Texts{"cancel"});
    EXPECT_EQ(link.copies["first.mov"].bytes.size(), 50U);
}

TEST_F(UploadEngineTest, assumesNoAnswerWhenTheProgramEndsDuringTheQuestion)
{
    serverHolds("clip.mov", queue("clip.mov", 100), 50);
    view.answers = {std::nullopt};
    EXPECT_EQ(run(), Texts{"Connecting"});
    EXPECT_TRUE(link.confirmations.empty());
    EXPECT_TRUE(link.openSockets.empty());
    EXPECT_EQ(queues.uploadCount(), 1U);
}

TEST_F(UploadEngineTest, refreshesTheTableEvenIfTheRowDoesNotChange)
{
    queue("clip.mov", 1);
    engine.statusUpdate("Connecting", 0);
    engine.statusUpdate("Connecting", 0);
    engine.statusUpdate("Waiting (Error)", -1);
    // The percentage of the status bar changes only with a new one of the row.
    EXPECT_EQ(view.reloads,
              (std::vector<std::optional<std::int32_t>>{0, std::nullopt, std::nullopt}));
    EXPECT_EQ(queues.tableList().cell("Status", 0), "Waiting (Error)");
}

TEST_F(UploadEngineTest, startsOneThreadForAllCallers)
{
    EXPECT_TRUE(engine.initiateUpload());
    EXPECT_TRUE(engine.waitForEnd(0ms)); // nothing queued, nothing started

    clock.idlePolls = 1 << 30;
    std::vector<std::jthread> callers;
    for (const char* const name : {"clip.mov", "later.mov"}) {
        queue(name, 100);
        while (callers.size() < 8)
            callers.emplace_back([this] { EXPECT_TRUE(engine.initiateUpload()); });
        while (queues.uploadCount() > 0)
            std::this_thread::yield();
    }
    callers.clear();
    clock.end();
    ASSERT_TRUE(engine.waitForEnd(10s));
    EXPECT_EQ(link.requests.size(), 2U);
    EXPECT_EQ(view.statuses(1), (Texts{"Connecting", "Finished"}));
}

TEST_F(UploadEngineTest, reportsSamplesWhileTheFileIsSent)
{
    serverHolds("clip.mov", queue("clip.mov", 100000), 20000);
    view.answers = {kThirdButton};
    clock.onMonitorSleep = [] {};
    link.onSend = [this, sends = 0]() mutable {
        // The second block is sent after the first sample.
        const bool second = ++sends == 2;
        while (second && !view.first(AttemptEventKind::Progress))
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

TEST_F(UploadEngineTest, reportsEachStepAndWhetherTheSourceChanged)
{
    serverHolds("changed.mov", queue("changed.mov", 100), 50);
    queue("grown.mov", 100);
    queue("same.mov", 100);
    view.answers = {kThirdButton};
    const auto path = folder.path() / "changed.mov";
    link.onSend = [path] { last_write_time(path, last_write_time(path) + 1ns); };
    folder.file("grown.mov", sampleContent(101));
    run();
    std::string steps;
    Texts changed;
    for (const AttemptEvent& event : view.events) {
        if (event.row == 0 && event.kind == AttemptEventKind::StepChanged)
            steps += fmt::format("{} ", stepName(event.step));
        if (event.kind == AttemptEventKind::Started || event.kind == AttemptEventKind::Finished)
            changed.push_back(event.sourceChanged ? "changed" : "same");
    }
    EXPECT_EQ(steps, "rendezvous response confirm send drain finish ");
    EXPECT_EQ(changed, (Texts{"same", "changed", "changed", "changed", "same", "same"}));
}

TEST_F(UploadEngineTest, readsASourceAgainThatFailedForAWhile)
{
    const std::string content = queue("clip.mov", 100);
    std::filesystem::remove(folder.path() / "clip.mov");
    link.onSend = [&, calls = 0]() mutable {
        if (++calls == 3)
            folder.file("clip.mov", content);
    };
    run();
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
    EXPECT_EQ(link.requests.size(), 1U);

    SourceFile memory("/proc/self/mem"); // reading an address that is not mapped fails
    std::array<char, 10> bytes{};
    EXPECT_EQ(memory.read(0, bytes), 0U);
    EXPECT_EQ(memory.failure(), "the file cannot be read: Input/output error");
    EXPECT_EQ(memory.read(static_cast<std::int64_t>(std::bit_cast<std::uintptr_t>(content.data())),
                          bytes),
              10U);
    EXPECT_EQ(std::string(bytes.data(), 10), content.substr(0, 10));
    EXPECT_EQ(memory.failure(), "");
}

TEST_F(UploadEngineTest, failsAfterTenSecondsOfEmptyReadsWithoutCountingThemAsProgress)
{
    queue("clip.mov", 1000);
    folder.file("clip.mov", "short");
    link.plans.assign(10, {LinkFault::Discard});
    run();
    // Every attempt sends five bytes, and the tenth one is still the last.
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>(10, 5));
    EXPECT_EQ(clock.totalSleep(), 1850s + 10 * 10s);
    EXPECT_EQ(view.events.back().reason, "the file ends after 5 of 1000 bytes");
    EXPECT_TRUE(view.terminated);
}

TEST_F(UploadEngineTest, logsABrokenLinkAndSendsNoMoreThanTheAnnouncedSize)
{
    const std::string content = queue("clip.mov", 20000);
    folder.file("clip.mov", content + "more");
    link.plans = {{LinkFault::BreakAfter, 16384}};
    run();
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
    EXPECT_EQ(view.events.back().kind, AttemptEventKind::Finished);
    // The block that failed was the last one: its read reached the end of the file.
    EXPECT_EQ(log.output(), (Texts{"sendfile: Connection was broken.",
                                   "Last recorded progress: 16384 bytes read: 3620 position: -1"}));
}

TEST_F(UploadEngineTest, waitsForAcknowledgementsAsLongAsTheyArrive)
{
    const auto moving = [left = 10002]() mutable { return --left / 2; }; // one packet every 4 ms
    const auto stalled = [] { return 700; };
    const std::tuple<std::function<std::int32_t()>, std::int32_t, std::chrono::milliseconds> rows[]{
        {moving, kSocketConnected, 20000ms},
        {stalled, kSocketConnected, 10000ms},
        {stalled, kSocketBroken, 0ms}};
    for (const auto& [amount, state, time] : rows) {
        queue("clip.mov", 10);
        link.copies.clear();
        link.unacknowledgedPackets = amount;
        link.state = state;
        FakeClock own;
        UploadEngine(queues, link, view, own).uploadFile();
        EXPECT_EQ(own.totalSleep(), time + 200ms); // and the poll of the empty queue
        EXPECT_EQ(view.events.back().kind, AttemptEventKind::Finished);
    }
}

TEST_F(UploadEngineTest, stopsSendingWhenTheProgramEnds)
{
    queue("clip.mov", 1000000);
    link.onSend = [this] { clock.end(); };
    EXPECT_EQ(run(), Texts{"Connecting"});
    EXPECT_EQ(link.sentPerAttempt, std::vector<std::int64_t>{16384});
    EXPECT_TRUE(link.openSockets.empty());
}

} // namespace
} // namespace quenmoor
