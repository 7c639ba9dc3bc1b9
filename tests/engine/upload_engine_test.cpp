#include "tests/engine/engine_fixture.h"

#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

const std::string kAlertText = "Upload attempt unsuccessful.  Unable to continue.  The application "
                               "will exit.\nReason: ";
const std::string kNoResponse = "Response from server not received.";

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
    const AttemptEvent& last = view.events.back();
    EXPECT_EQ(last.kind, AttemptEventKind::GaveUp);
    EXPECT_EQ(last.attempt, 10);
    EXPECT_EQ(last.elapsed, 1850s);
}

TEST_F(UploadEngineTest, reportsTheStepAndTheReasonOfAFailure)
{
    const auto resume = [](const Alert&) { return kThirdButton; };
    struct {
        LinkFault fault;
        AttemptStep step;
        std::string reason;
        std::string alerted; // names the response, however far the attempt came, or nothing
        std::optional<FakeTransferLink::Copy> copy = std::nullopt;
    } const rows[]{
        {LinkFault::RefuseConnect, AttemptStep::Announce, "no answer", kNoResponse},
        {LinkFault::RefuseRendezvous, AttemptStep::Rendezvous, "no answer", kNoResponse},
        {LinkFault::Silent, AttemptStep::Response, "no answer", kNoResponse},
        {LinkFault::Refuse, AttemptStep::Refused, "the server refused the upload", ""},
        {LinkFault::LoseConfirm, AttemptStep::Confirm, "no answer", "", {{"", 9}}},
        {LinkFault::None,
         AttemptStep::Confirm,
         "the server reports a copy of -5 bytes",
         "",
         {{"", 9, -5}}},
        {LinkFault::BreakAfter, AttemptStep::Send, "no answer", ""},
        {LinkFault::NoFinished, AttemptStep::Finish, "no answer", "", {{"123456789", 9}}},
        {LinkFault::SmallFinished,
         AttemptStep::Finish,
         "the server holds 8 of 9 bytes",
         "",
         {{"12345678", 9, 1}}}};
    for (const auto& row : rows) {
        UploadQueues own;
        own.addFiles(std::array{FileUrl::fromPath(folder.file("clip.mov", "123456789"))});
        own.acceptToken("t");
        link.copies.clear();
        if (row.copy)
            link.copies["clip.mov"] = *row.copy;
        link.plans.assign(10, {row.fault});
        FakeUploadView seen;
        seen.answer = resume;
        FakeClock time;
        UploadEngine(own, link, seen, time).uploadFile();
        SCOPED_TRACE(stepName(row.step));
        EXPECT_EQ(seen.events.back().kind, AttemptEventKind::GaveUp);
        EXPECT_EQ(seen.events.back().step, row.step);
        EXPECT_EQ(seen.events.back().reason, row.reason);
        EXPECT_EQ(seen.alerts.back().messageText, kAlertText + row.alerted);
    }
}

TEST_F(UploadEngineTest, asksOncePerFileAndReusesTheAnswer)
{
    const std::string content = queue("resumed.mov", 50000);
    queue("replaced.mov", 50000);
    serverHolds("resumed.mov", content, 500);
    serverHolds("replaced.mov", "something else", 14);
    link.plans = {{LinkFault::BreakAfter, 16384},
                  {},
                  {LinkFault::LoseConfirm},
                  {LinkFault::BreakAfter, 20000},
                  {}};
    view.answers = {kThirdButton, kSecondButton};
    run();
    EXPECT_EQ(view.questions(), 2U);
    EXPECT_EQ(link.confirmations,
              (Texts{"resume", "resume", "overwrite", "overwrite", "overwrite"}));
    EXPECT_EQ(link.sentPerAttempt,
              (std::vector<std::int64_t>{16384, 50000 - 16884, 0, 20000, 50000}));
    EXPECT_EQ(link.copies["resumed.mov"].bytes, content);
    EXPECT_EQ(link.copies["replaced.mov"].bytes, content);
    EXPECT_EQ(view.events.back().sentBytes, 70000);
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
    EXPECT_EQ(queues.tableList().cell("Status", 0), "Canceled");
    EXPECT_EQ(queues.tableList().cell("Percent", 0), "0%");
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
    engine.initiateUpload();
    EXPECT_TRUE(engine.waitForEnd(0ms)); // nothing queued, nothing started

    queue("clip.mov", 100);
    clock.idlePolls = 1 << 30;
    std::vector<std::thread> callers;
    for (int i = 0; i < 8; ++i)
        callers.emplace_back([this] { engine.initiateUpload(); });
    for (std::thread& caller : callers)
        caller.join();
    while (queues.uploadCount() > 0)
        std::this_thread::yield();
    queue("later.mov", 100);
    while (queues.uploadCount() > 0)
        std::this_thread::yield();
    clock.end();
    ASSERT_TRUE(engine.waitForEnd(10s));
    EXPECT_EQ(link.requests.size(), 2U);
    EXPECT_EQ(view.statuses(1), (Texts{"Connecting", "Finished"}));
}

} // namespace
} // namespace quenmoor
