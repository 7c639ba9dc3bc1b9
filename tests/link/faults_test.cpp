// The engine over the real link against each fault of the service: the fault applies to the first
// attempt, and the file arrives nevertheless.
#include "tests/link/service_fixture.h"

#include <algorithm>

namespace quenmoor {
namespace {

constexpr std::size_t kSize = 3'000'000;

struct FaultyService : ServiceFixture {
    // The number of failed attempts before the file was finished; -1 if it was not.
    std::ptrdiff_t failuresBeforeFinish() const
    {
        if (view.events.empty() || view.events.back().kind != AttemptEventKind::Finished)
            return -1;
        return std::ranges::count(view.events, AttemptEventKind::Failed, &AttemptEvent::kind);
    }
};

struct FaultCase {
    const char* name;
    Fault fault;
    int failures;
    int resumes = 0; // from the size that the server holds
    std::size_t questions = 0;
    std::size_t size = kSize;

    friend void PrintTo(const FaultCase& each, std::ostream* out) { *out << each.name; }
};

struct FaultyOnce : FaultyService, testing::WithParamInterface<FaultCase> {};

TEST_P(FaultyOnce, theFileArrives)
{
    const FaultCase& expected = GetParam();
    server->setFaults({expected.fault}, 1);
    view.answers = {kSecondButton};
    const std::string content = queue("clip.mov", expected.size);
    send();
    EXPECT_EQ(stored("clip.mov"), content);
    EXPECT_EQ(failuresBeforeFinish(), expected.failures);
    EXPECT_EQ(view.questions(), expected.questions);
    EXPECT_EQ(std::ranges::count(log.system(), "Sending resume confirmation."), expected.resumes);
}

const FaultCase kFaultCases[]{
    {"refuseRendezvous", {FaultKind::RefuseRendezvous}, 1},
    {"neverAnswer", {FaultKind::NeverAnswer}, 1},
    {"answerLate", {FaultKind::AnswerLate, 2000}, 0},
    // A missing flag counts as true: an equal and complete copy, about which the user is asked.
    {"garbageResponse", {FaultKind::GarbageResponse}, 1, 0, 1},
    {"cutOffResponse", {FaultKind::CutOffResponse}, 1, 0, 1},
    {"dropAfter", {FaultKind::DropAfter, 1'000'000}, 1, 1},
    {"stopReading", {FaultKind::StopReading, 500'000}, 1, 1},
    // When the last byte is passed to the link, the buffers of both ends hold some 24 MB. The
    // server reads them for longer than the ten seconds of the closing receive, so the file
    // arrives only because the engine waits for the acknowledgements first.
    {"slowReading", {FaultKind::SlowReading, 1'600'000}, 0, 0, 0, 32'000'000},
    // The file is complete then: the next attempt resumes it at its end.
    {"noClosingDocument", {FaultKind::NoClosingDocument}, 1, 1},
    {"garbageClosing", {FaultKind::GarbageClosing}, 1, 1},
    {"smallerFinalSize", {FaultKind::SmallerFinalSize}, 1, 1},
    {"largerFinalSize", {FaultKind::LargerFinalSize}, 0},
};
INSTANTIATE_TEST_SUITE_P(Service, FaultyOnce, testing::ValuesIn(kFaultCases),
                         [](const auto& each) { return each.param.name; });

TEST_F(FaultyService, withoutFaultsFilesOfAnySizeArrive)
{
    const std::vector<std::size_t> sizes{0, 1, 16384, 5'000'001};
    for (const std::size_t size : sizes)
        queue("clip" + std::to_string(size), size);
    send();
    for (const std::size_t size : sizes)
        EXPECT_EQ(stored("clip" + std::to_string(size)), sampleContent(size)) << size;
    EXPECT_EQ(failuresBeforeFinish(), 0);
}

} // namespace
} // namespace quenmoor
