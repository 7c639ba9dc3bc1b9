// The engine over the real link, against each way in which the service can misbehave: the first
// attempt meets the fault, the file arrives all the same.
#include "tests/link/service_fixture.h"

#include <tuple>

namespace quenmoor {
namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t kSize = 3'000'000;

struct Faulty : SendingFixture {
    const Texts retried{"Connecting", "Waiting (Error)", "Connecting", "Finished"};

    // What the row went through, without the samples of the rate.
    Texts story(std::size_t row = 0) const
    {
        Texts texts;
        for (const std::string& text : view.statuses(row)) {
            if (!text.starts_with("Uploading at "))
                texts.push_back(text);
        }
        return texts;
    }

    void meetOnce(Fault fault)
    {
        server->setFaults({fault}, 1);
        const std::string content = queue("clip.mov", kSize);
        send();
        EXPECT_EQ(stored("clip.mov"), content);
        EXPECT_EQ(view.questions(), 0U);
    }
};

TEST_F(Faulty, aServiceWithoutFaultsStoresEveryByte)
{
    const std::vector<std::size_t> sizes{0, 1, 16384, 5'000'001};
    for (const std::size_t size : sizes)
        queue("clip" + std::to_string(size), size);
    send();
    for (const std::size_t size : sizes)
        EXPECT_EQ(stored("clip" + std::to_string(size)), sampleContent(size)) << size;
    EXPECT_EQ(story(3), (Texts{"Connecting", "Finished"}));
}

TEST_F(Faulty, aRefusedRendezvousIsTriedAgain)
{
    meetOnce({FaultKind::RefuseRendezvous});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aMissingAnswerIsTriedAgain)
{
    meetOnce({FaultKind::NeverAnswer});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aLateAnswerIsWaitedFor)
{
    meetOnce({FaultKind::AnswerLate, 2000});
    EXPECT_EQ(story(), (Texts{"Connecting", "Finished"}));
}

TEST_F(Faulty, aGarbledResponseStoresNothingWrong)
{
    // Nothing in it is a flag, so all flags hold: a copy that is the same and complete.
    view.answers = {kSecondButton};
    server->setFaults({{FaultKind::GarbageResponse}}, 1);
    const std::string content = queue("clip.mov", kSize);
    send();
    EXPECT_EQ(view.questions(), 1U);
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(Faulty, aResponseThatBreaksOffStoresNothingWrong)
{
    view.answers = {kSecondButton};
    server->setFaults({{FaultKind::CutOffResponse}}, 1);
    const std::string content = queue("clip.mov", kSize);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
}

TEST_F(Faulty, aDroppedLinkIsResumedWhereTheServerHasIt)
{
    meetOnce({FaultKind::DropAfter, 1'000'000});
    EXPECT_EQ(story(), retried);
    const auto lines = log.system();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Sending resume confirmation."), 1);
}

TEST_F(Faulty, aServerThatStopsReadingIsLeftAfterTenSeconds)
{
    meetOnce({FaultKind::StopReading, 500'000});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aSlowLinkIsWaitedForBeyondTheClosingReceive)
{
    // When the last byte is handed over, the two ends' buffers hold some 24 MB, which take longer
    // than the ten seconds of the closing receive. The sender's half is waited for by itself.
    server->setFaults({{FaultKind::SlowReading, 1'600'000}}, 1);
    const std::string content = queue("clip.mov", 32'000'000);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
    EXPECT_EQ(story(), (Texts{"Connecting", "Finished"}));
}

TEST_F(Faulty, aMissingClosingDocumentIsAskedForAgain)
{
    // The file is whole by then: the next attempt resumes it at its end.
    meetOnce({FaultKind::NoClosingDocument});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aGarbledClosingDocumentIsAskedForAgain)
{
    meetOnce({FaultKind::GarbageClosing});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aSmallerFinalSizeIsNotBelieved)
{
    meetOnce({FaultKind::SmallerFinalSize});
    EXPECT_EQ(story(), retried);
}

TEST_F(Faulty, aLargerFinalSizeIsGoodEnough)
{
    meetOnce({FaultKind::LargerFinalSize});
    EXPECT_EQ(story(), (Texts{"Connecting", "Finished"}));
}

TEST_F(Faulty, anExistingCopyIsAskedAboutAndTreatedAsAnswered)
{
    const std::string kept = queue("kept.mov", kSize);
    const std::string replaced = queue("replaced.mov", kSize);
    std::ignore = root.file("kept.mov", kept);
    std::ignore = root.file("replaced.mov", "something else");
    view.answers = {kFirstButton, kSecondButton};
    send();
    EXPECT_EQ(story(0), (Texts{"Connecting", "Canceled"}));
    EXPECT_EQ(story(1), (Texts{"Connecting", "Finished"}));
    EXPECT_EQ(stored("replaced.mov"), replaced);
    ASSERT_EQ(view.questions(), 2U);
    EXPECT_NE(view.alerts[0].informativeText.find("the same and the upload was complete"),
              std::string::npos);
    EXPECT_NE(view.alerts[1].informativeText.find("different and the upload was complete"),
              std::string::npos);
}

TEST_F(Faulty, anUnknownTokenIsRefusedWithoutAQuestion)
{
    queue("clip.mov", 10, "bad-token");
    view.onReload = [this] {
        if (queues.tableList().cell("Status", 0) == "Waiting (Error)")
            clock.end();
    };
    UdtTransferLink link("127.0.0.1", server->port());
    UploadEngine engine(queues, link, view, clock);
    engine.uploadFile();
    EXPECT_EQ(engine.attempt().step, AttemptStep::Refused);
    EXPECT_EQ(view.questions(), 0U);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "clip.mov"));
}

} // namespace
} // namespace quenmoor
