#include "tests/engine/engine_fixture.h"

#include <thread>

namespace quenmoor {
namespace {

using Texts = std::vector<std::string>;
using namespace std::chrono_literals;

const Alert kFinalAlert{"Upload attempt unsuccessful.  Unable to continue.  The application will "
                        "exit.\nReason: Response from server not received.",
                        {},
                        {}};

struct UploadEngineTest : EngineFixture {
    static Texts countdown(int seconds)
    {
        Texts texts;
        for (; seconds > 0; --seconds)
            texts.push_back("Retrying in " + std::to_string(seconds) + "s");
        return texts;
    }
};

TEST_F(UploadEngineTest, givesUpAfterTenFailuresInARow)
{
    queue("clip.mov", 10);
    queue("next.mov", 10);
    link.plans.assign(10, {LinkFault::RefuseConnect});
    engine.uploadFile();

    Texts expected{"Connecting", "Waiting (Error)"};
    for (const int wait : {0, 5, 15, 30, 60, 120, 240, 480, 900}) {
        const Texts ticks = countdown(wait);
        expected.insert(expected.end(), ticks.begin(), ticks.end());
        expected.insert(expected.end(), {"Connecting", "Waiting (Error)"});
    }
    EXPECT_EQ(view.statuses(0), expected);
    EXPECT_EQ(clock.totalSleep(), 1850s);
    EXPECT_EQ(view.alerts, std::vector<Alert>{kFinalAlert});
    EXPECT_TRUE(view.terminated);
    EXPECT_EQ(queues.uploadCount(), 2U);
    EXPECT_TRUE(view.statuses(1).empty());
}

TEST_F(UploadEngineTest, namesTheMissingAnswerHoweverFarTheAttemptCame)
{
    for (const LinkFault fault :
         {LinkFault::RefuseConnect, LinkFault::RefuseRendezvous, LinkFault::Silent}) {
        FakeUploadView own;
        link.plans.assign(10, {fault});
        if (queues.uploadCount() == 0)
            queue("clip.mov", 10);
        UploadEngine another(queues, link, own, clock);
        another.uploadFile();
        EXPECT_EQ(own.alerts, std::vector<Alert>{kFinalAlert});
    }
}

TEST_F(UploadEngineTest, failsOnARefusalWithoutAQuestionOrAReason)
{
    const std::string content = queue("clip.mov", 10);
    serverHolds("clip.mov", content, 5);
    link.plans.assign(10, {LinkFault::Refuse});
    engine.uploadFile();
    EXPECT_EQ(view.questions(), 0U);
    EXPECT_TRUE(link.confirmations.empty());
    EXPECT_TRUE(view.alerts.back().messageText.ends_with("\nReason: "));
    EXPECT_EQ(view.lastStep(), AttemptStep::Refused);
}

TEST_F(UploadEngineTest, asksOncePerFileAndReusesTheAnswer)
{
    const std::string content = queue("clip.mov", 50000);
    serverHolds("clip.mov", content, 500);
    link.plans = {{LinkFault::BreakAfter, 16384}, {}};
    view.answers = {kThirdButton};
    engine.uploadFile();

    EXPECT_EQ(view.questions(), 1U);
    EXPECT_EQ(link.confirmations, (Texts{"resume", "resume"}));
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
}

TEST_F(UploadEngineTest, overwritesFromTheStartInEveryAttempt)
{
    const std::string content = queue("clip.mov", 50000);
    serverHolds("clip.mov", "something else", 14);
    link.plans = {{LinkFault::LoseConfirm}, {LinkFault::BreakAfter, 20000}, {}};
    view.answers = {kSecondButton};
    engine.uploadFile();

    EXPECT_EQ(link.confirmations, (Texts{"overwrite", "overwrite", "overwrite"}));
    EXPECT_EQ(link.sentPerAttempt, (std::vector<std::int64_t>{0, 20000, 50000}));
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
}

TEST_F(UploadEngineTest, dropsACancelledFileAndGoesOn)
{
    const std::string content = queue("first.mov", 100);
    queue("second.mov", 100);
    serverHolds("first.mov", content, 50);
    view.answers = {-1}; // the box was closed
    engine.uploadFile();

    EXPECT_EQ(view.statuses(0), (Texts{"Connecting", "Canceled"}));
    EXPECT_EQ(view.statuses(1), (Texts{"Connecting", "Finished"}));
    EXPECT_EQ(link.confirmations, Texts{"cancel"});
    EXPECT_EQ(link.copies["first.mov"].bytes.size(), 50U);
    EXPECT_EQ(queues.tableList().cell("Percent", 0), "0%");
}

TEST_F(UploadEngineTest, cancelsEvenWhenTheServerDoesNotHearOfIt)
{
    const std::string content = queue("clip.mov", 100);
    serverHolds("clip.mov", content, 50);
    link.plans = {{LinkFault::LoseConfirm}};
    view.answers = {kFirstButton};
    engine.uploadFile();
    EXPECT_EQ(view.statuses(0), (Texts{"Connecting", "Canceled"}));
}

TEST_F(UploadEngineTest, takesNoAnswerForNoAnswer)
{
    const std::string content = queue("clip.mov", 100);
    serverHolds("clip.mov", content, 50);
    view.answers = {std::nullopt};
    engine.uploadFile();
    EXPECT_EQ(view.statuses(0), Texts{"Connecting"});
    EXPECT_TRUE(link.confirmations.empty());
    EXPECT_TRUE(link.openSockets.empty());
    EXPECT_EQ(queues.uploadCount(), 1U);
}

TEST_F(UploadEngineTest, startsTheScheduleOverWhenBytesMoved)
{
    queue("clip.mov", 100000);
    link.plans = {{LinkFault::RefuseConnect}, {LinkFault::RefuseConnect},
                  {LinkFault::BreakAfter, 1}, {LinkFault::RefuseConnect},
                  {LinkFault::RefuseConnect}, {}};
    engine.uploadFile();
    Texts expected{"Connecting", "Waiting (Error)", "Connecting", "Waiting (Error)"};
    const Texts five = countdown(5);
    expected.insert(expected.end(), five.begin(), five.end());
    // the wait after the moved byte is 0, and the next one 5 again
    expected.insert(expected.end(),
                    {"Connecting", "Waiting (Error)", "Connecting", "Waiting (Error)"});
    expected.insert(expected.end(), five.begin(), five.end());
    expected.insert(expected.end(), {"Connecting", "Waiting (Error)"});
    const Texts fifteen = countdown(15);
    expected.insert(expected.end(), fifteen.begin(), fifteen.end());
    expected.insert(expected.end(), {"Connecting", "Finished"});
    EXPECT_EQ(view.statuses(0), expected);
}

TEST_F(UploadEngineTest, logsAnAttemptThatSucceedsInOrder)
{
    const std::string content = queue("clip.mov", 3);
    serverHolds("clip.mov", content, 1);
    view.answers = {kThirdButton};
    engine.uploadFile();
    Texts lines;
    for (const std::string& line : log.system()) {
        if (!line.starts_with("XML ") && !line.starts_with("<") && !line.starts_with("String ") &&
            line.find("ictionary") == std::string::npos)
            lines.push_back(line.substr(0, line.find('\n')));
    }
    EXPECT_EQ(lines, (Texts{"Number of files in file queue: 1",
                            "Sending XML: <?xml version=\"1.0\" encoding=\"utf-8\"?>",
                            "Initial connection successful.",
                            "Rendezvous successfully connected.",
                            "Received response object from server.",
                            "Exists value: true",
                            "Alert selection value: 0",
                            "Invoking file handler",
                            "Entered file handling logic.",
                            "Sending resume confirmation.",
                            "Uploading file.",
                            "Correct size sent.",
                            "Exited send data loop.",
                            "Received response object from server.",
                            "Size value: 3",
                            "Progress monitor thread joined.",
                            "Socket state: 5",
                            "Socket state: 5",
                            "Socket state: 5",
                            "Exiting upload method."}));
}

TEST_F(UploadEngineTest, logsTheStateOfASocketThatIsGoneAsNeverKnown)
{
    queue("clip.mov", 3);
    link.state = std::nullopt;
    engine.uploadFile();
    EXPECT_EQ(logged("Socket state: -1337"), 3U);
}

TEST_F(UploadEngineTest, startsOneThreadHoweverOftenItIsAsked)
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
    EXPECT_EQ(link.attempts(), 2U);
    EXPECT_EQ(view.statuses(1), (Texts{"Connecting", "Finished"}));
}

} // namespace
} // namespace quenmoor
