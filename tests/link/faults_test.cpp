// The engine over the real link, against each way in which the service can misbehave: the first
// attempt meets the fault, the file arrives all the same.
#include "tests/link/service_fixture.h"

#include <tuple>

namespace quenmoor {
namespace {

using Texts = std::vector<std::string>;

constexpr std::size_t kSize = 3'000'000;

struct Faulty : SendingFixture {
    const Texts straight{"Connecting", "Finished"};
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
};

struct Met {
    const char* name;
    Fault fault;
    bool retried;
    int resumes = 0; // where the server has the file
    std::size_t questions = 0;
    std::size_t size = kSize;

    friend void PrintTo(const Met& met, std::ostream* out) { *out << met.name; }
};

struct FaultyOnce : Faulty, testing::WithParamInterface<Met> {};

TEST_P(FaultyOnce, theFileArrivesAllTheSame)
{
    const Met& met = GetParam();
    server->setFaults({met.fault}, 1);
    view.answers = {kSecondButton};
    const std::string content = queue("clip.mov", met.size);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
    EXPECT_EQ(story(), met.retried ? retried : straight);
    EXPECT_EQ(view.questions(), met.questions);
    const auto lines = log.system();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "Sending resume confirmation."), met.resumes);
}

const Met kMet[]{
    {"refusedRendezvous", {FaultKind::RefuseRendezvous}, true},
    {"missingAnswer", {FaultKind::NeverAnswer}, true},
    {"lateAnswer", {FaultKind::AnswerLate, 2000}, false},
    // A flag that is missing holds: a copy that is the same and complete.
    {"garbledResponse", {FaultKind::GarbageResponse}, true, 0, 1},
    {"responseThatBreaksOff", {FaultKind::CutOffResponse}, true, 0, 1},
    {"droppedLink", {FaultKind::DropAfter, 1'000'000}, true, 1},
    {"serverThatStopsReading", {FaultKind::StopReading, 500'000}, true, 1},
    // When the last byte is handed over, the two ends' buffers hold some 24 MB, which take longer
    // than the ten seconds of the closing receive. The sender's half is waited for by itself.
    {"slowLink", {FaultKind::SlowReading, 1'600'000}, false, 0, 0, 32'000'000},
    // The file is whole by then: the next attempt resumes it at its end.
    {"missingClosing", {FaultKind::NoClosingDocument}, true, 1},
    {"garbledClosing", {FaultKind::GarbageClosing}, true, 1},
    {"smallerFinalSize", {FaultKind::SmallerFinalSize}, true, 1},
    {"largerFinalSize", {FaultKind::LargerFinalSize}, false},
};
INSTANTIATE_TEST_SUITE_P(Service, FaultyOnce, testing::ValuesIn(kMet),
                         [](const auto& met) { return met.param.name; });

TEST_F(Faulty, aServiceWithoutFaultsStoresEveryByte)
{
    const std::vector<std::size_t> sizes{0, 1, 16384, 5'000'001};
    for (const std::size_t size : sizes)
        queue("clip" + std::to_string(size), size);
    send();
    for (const std::size_t size : sizes)
        EXPECT_EQ(stored("clip" + std::to_string(size)), sampleContent(size)) << size;
    EXPECT_EQ(story(3), straight);
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
    EXPECT_EQ(story(1), straight);
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
    EXPECT_EQ(view.lastStep(), AttemptStep::Refused);
    EXPECT_EQ(view.questions(), 0U);
    EXPECT_FALSE(std::filesystem::exists(root.path() / "clip.mov"));
}

} // namespace
} // namespace quenmoor
