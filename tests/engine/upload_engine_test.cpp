#include "engine/upload_engine.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/fake_upload_view.h"
#include "tests/fakes/quiet_log.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <array>
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
Texts rates(std::int64_t offset, const std::vector<std::int64_t>& positions,
            double ProgressSample::*rate = &ProgressSample::rate)
{
    FakeClock clock;
    Texts texts;
    ProgressMonitor monitor(clock, offset, [&texts, rate](const auto& sample) {
        if (sample)
            texts.push_back(fmt::format("{:.3f}", (*sample).*rate));
    });
    for (const std::int64_t position : positions) {
        monitor.setBytesSent(position);
        clock.sample();
    }
    return texts;
}

TEST(Progress, hasRatesTimeLeftAndPercentage)
{
    // The first sample is measured from the origin of the clock, 1001 s before it.
    EXPECT_EQ(rates(0, {1000000, 53428800, 104857600}), (Texts{"0.001", "50.000", "49.046"}));
    EXPECT_EQ(rates(4294967296, {4299161600, 4833935360}), (Texts{"4.096", "510.000"}));

    // 100 MiB before the first sample, then 1 MiB a second and from the 34th sample on nothing.
    std::vector<std::int64_t> positions;
    for (std::int64_t i = 0; i < 64; ++i)
        positions.push_back((100 + std::min<std::int64_t>(i, 33)) << 20U);
    const Texts texts = rates(0, positions, &ProgressSample::averageRate);
    ASSERT_EQ(texts.size(), 64U);
    // The latest 30 s, once they are three.
    EXPECT_EQ((Texts{texts[2], texts[3], texts[33], texts[48], texts[63]}),
              (Texts{"0.000", "1.000", "1.000", "0.500", "0.000"}));

    AttemptEvent event{.kind = AttemptEventKind::Progress, .bytes = 10, .total = (5 << 20) + 11};
    EXPECT_EQ(timeLeft(event), std::nullopt);
    event.averageRate = 0.5;
    EXPECT_EQ(timeLeft(event), 11s);
    for (const auto& [bytes, total, percent] : std::to_array<std::array<std::int64_t, 3>>(
             {{495, 1000, 50}, {505, 1000, 50}, {0, 0, 100}, {3, 2, 100}, {-3, 2, 0}}))
        EXPECT_EQ(percentSent(bytes, total), percent) << bytes << " of " << total;
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

// The server holds all but the end of the first file.
TEST_F(UploadEngineTest, resumesBeyondFourGibibytesAndReportsStepsAndChangedSources)
{
    constexpr std::int64_t kHeld = std::int64_t{1} << 32;
    const std::string tail = sampleContent(100);
    const auto path = folder.file("changed.mov", "");
    std::filesystem::resize_file(path, kHeld); // sparse
    std::ofstream(path, std::ios::app) << tail;
    queues.addFiles(std::array{FileUrl::fromPath(path)});
    ASSERT_TRUE(queues.acceptToken("token"));
    link.copies["changed.mov"] = {"", kHeld + 100, kHeld};
    queue("grown.mov", 100);
    queue("same.mov", 100);
    link.onSend = [&] {
        last_write_time(path, last_write_time(path) + 1ns);
        if (link.sentPerAttempt.back() >= 100)
            clock.end(); // instead of sending 4 GiB
    };
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
    EXPECT_EQ(link.requests.size(), 3U);
    EXPECT_EQ(link.copies["changed.mov"].bytes, tail);
    EXPECT_EQ(link.copies["changed.mov"].total, kHeld + 100);
    EXPECT_EQ(steps, "rendezvous response confirm send drain finish ");
    EXPECT_EQ(changed, (Texts{"same", "changed", "changed", "changed", "same", "same"}));
}

// The source returns before the third send, longer than announced; the link breaks in its second
// block.
TEST_F(UploadEngineTest, readsASourceAgainRefreshesTheTableAndLogsABrokenLink)
{
    const std::string content = queue("clip.mov", 20000);
    std::filesystem::remove(folder.path() / "clip.mov");
    link.onSend = [&, calls = 0]() mutable {
        if (++calls < 3)
            clock.sample();
        else if (calls == 3)
            folder.file("clip.mov", content + "more");
    };
    link.plans = {{LinkFault::BreakAfter, 16384}};
    engine.uploadFile();
    EXPECT_EQ(link.copies["clip.mov"].bytes, content);
    EXPECT_EQ(link.requests.size(), 2U);
    // The second sample does not change the row: the table is refreshed without a percentage.
    EXPECT_EQ(view.reloads,
              (std::vector<std::optional<std::int32_t>>{0, 0, std::nullopt, std::nullopt, 0, 100}));
    // The block that failed was the last one: its read reached the end of the file.
    EXPECT_EQ(log.output(), (Texts{"sendfile: Connection was broken.",
                                   "Last recorded progress: 16384 bytes read: 3620 position: -1"}));
}

} // namespace
} // namespace quenmoor
