#include "engine/existing_file.h"
#include "engine/upload_engine.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

using Texts = std::vector<std::string>;

TEST(SystemClock, sleepsForTheTimeUntilItIsWokenOrTheProgramEnds)
{
    SystemClock clock;
    const std::int64_t before = clock.nanoseconds();
    EXPECT_TRUE(clock.sleepFor(2ms));
    EXPECT_GE(clock.nanoseconds() - before, 2'000'000);
    std::stop_source wake;
    const std::jthread waker([&wake] { wake.request_stop(); });
    EXPECT_TRUE(clock.sleep(1h, wake.get_token()));
    const std::jthread ender([&clock] { clock.end(); });
    EXPECT_FALSE(clock.sleepFor(1h));
    EXPECT_TRUE(clock.ending());
}

// The rates of the samples of a transfer that starts at `offset`, if they find it at `positions`.
Texts rates(std::int64_t offset, const std::vector<std::int64_t>& positions, bool average = false)
{
    FakeClock clock;
    Texts texts;
    ProgressMonitor monitor(clock, offset, [&texts, average](const auto& sample) {
        if (sample)
            texts.push_back(fmt::format("{:.3f}", average ? sample->averageRate : sample->rate));
    });
    for (const std::int64_t position : positions) {
        monitor.setBytesSent(position);
        clock.sample();
    }
    return texts;
}

TEST(ProgressMonitor, measuresTheRateSinceThePreviousSample)
{
    // The first sample is measured from the origin of the clock, 1001 s before it.
    EXPECT_EQ(rates(0, {1000000, 53428800, 104857600}), (Texts{"0.001", "50.000", "49.046"}));
    EXPECT_EQ(rates(500, {500, 500}), (Texts{"0.000", "0.000"}));
    EXPECT_EQ(rates(4294967296, {4299161600, 4833935360}), (Texts{"4.096", "510.000"}));
}

TEST(ProgressMonitor, averagesTheLatestThirtySecondsOnceTheyAreThree)
{
    // 100 MiB before the first sample, then 1 MiB a second and from the 34th sample on nothing.
    std::vector<std::int64_t> positions;
    for (std::int64_t i = 0; i < 64; ++i)
        positions.push_back((100 + std::min<std::int64_t>(i, 33)) << 20U);
    const Texts texts = rates(0, positions, true);
    ASSERT_EQ(texts.size(), 64U);
    const std::pair<std::size_t, std::string> rows[]{
        {2, "0.000"}, {3, "1.000"}, {33, "1.000"}, {48, "0.500"}, {63, "0.000"}};
    for (const auto& [sample, text] : rows)
        EXPECT_EQ(texts[sample], text) << sample;

    AttemptEvent event{.kind = AttemptEventKind::Progress, .bytes = 10, .total = (5 << 20) + 11};
    EXPECT_EQ(timeLeft(event), std::nullopt);
    event.averageRate = 0.5;
    EXPECT_EQ(timeLeft(event), 11s);
}

TEST(AttemptEvent, hasATextForTheRow)
{
    using Kind = AttemptEventKind;
    const std::pair<AttemptEvent, std::string> rows[]{
        {{.kind = Kind::Started}, "Connecting"},
        {{.kind = Kind::Progress, .rate = 49.0456}, "Uploading at 49.046 MB/s"},
        {{.kind = Kind::Failed}, "Waiting (Error)"},
        {{.kind = Kind::Waiting, .secondsLeft = 900s}, "Retrying in 900s"},
        {{.kind = Kind::Finished}, "Finished"},
        {{.kind = Kind::Cancelled}, "Canceled"}};
    for (const auto& [event, text] : rows)
        EXPECT_EQ(statusText(event), text);
}

TEST(ProgressMonitor, roundsTiesToEvenAndLimitsThePercentage)
{
    const std::tuple<std::int64_t, std::int64_t, std::int32_t> rows[]{
        {495, 1000, 50}, {505, 1000, 50}, {0, 0, 100},
        {3, 2, 100},     {-3, 2, 0},      {4833935360, 5368709120, 90}};
    for (const auto& [bytes, total, percent] : rows)
        EXPECT_EQ(percentSent(bytes, total), percent) << bytes << " of " << total;
}

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

struct UploadEngineTest : testing::Test {
    const TempFolder folder;
    RecordingLog log;
    UploadQueues queues;
    FakeTransferLink link;
    FakeUploadView view;
    FakeClock clock;
    UploadEngine engine{queues, link, view, clock};

    // Creates a file of `size` bytes and queues it. Returns its content.
    std::string queue(const std::string& name, std::size_t size)
    {
        std::string content = sampleContent(size);
        queues.addFiles(std::array{FileUrl::fromPath(folder.file(name, content))});
        EXPECT_TRUE(queues.acceptToken("token"));
        return content;
    }
};

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
    EXPECT_EQ(queues.tableList().cell("Status", 1), "Finished");
}

TEST_F(UploadEngineTest, reportsEachStepAndWhetherTheSourceChanged)
{
    link.copies["changed.mov"] = {queue("changed.mov", 100).substr(50), 100};
    queue("grown.mov", 100);
    queue("same.mov", 100);
    view.answer = [](const Alert&) { return kThirdButton; };
    const auto path = folder.path() / "changed.mov";
    link.onSend = [path] { last_write_time(path, last_write_time(path) + 1ns); };
    folder.file("grown.mov", sampleContent(101));
    engine.uploadFile();
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
    engine.uploadFile();
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

TEST_F(UploadEngineTest, logsABrokenLinkAndSendsNoMoreThanTheAnnouncedSize)
{
    const std::string content = queue("clip.mov", 20000);
    folder.file("clip.mov", content + "more");
    link.plans = {{LinkFault::BreakAfter, 16384}};
    engine.uploadFile();
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
    EXPECT_EQ(view.events.back().kind, AttemptEventKind::Finished);
    // The block that failed was the last one: its read reached the end of the file.
    EXPECT_EQ(log.output(), (Texts{"sendfile: Connection was broken.",
                                   "Last recorded progress: 16384 bytes read: 3620 position: -1"}));
}

} // namespace
} // namespace quenmoor
