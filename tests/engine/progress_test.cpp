#include "engine/progress_monitor.h"
#include "tests/engine/engine_fixture.h"

namespace quenmoor {
namespace {

struct Progress : EngineFixture {
    // Runs the monitor on this thread; before each of its samples, `positions` gives the bytes.
    void monitor(std::int64_t offset, std::int64_t total, std::vector<std::int64_t> positions)
    {
        ProgressMonitorState state{engine, clock, total, true, offset};
        std::size_t next = 0;
        clock.onMonitorRest = [&] {
            if (next == positions.size())
                state.stop();
            else
                state.bytesSent = positions[next++];
        };
        progressMonitor(state);
    }
};

TEST_F(Progress, reportsTheRateSinceTheLastSampleInMegabytesOf1048576Bytes)
{
    queue("clip.mov", 1);
    monitor(0, 104857600, {1000000, 53428800, 104857600});

    // the first sample is measured from the clock's origin
    EXPECT_EQ(view.statuses(0),
              (std::vector<std::string>{"Uploading at 0.001 MB/s", "Uploading at 50.000 MB/s",
                                        "Uploading at 49.046 MB/s"}));
    EXPECT_EQ(view.statusBar, (std::vector<std::string>{"clip.mov: Upload rate: 0.001 MB/s",
                                                        "clip.mov: Upload rate: 50.000 MB/s",
                                                        "clip.mov: Upload rate: 49.046 MB/s",
                                                        "[none]: Upload rate: 0.000 MB/s"}));
    EXPECT_EQ(view.seen.back().percent, 100);
}

TEST_F(Progress, countsAResumedFileFromItsStart)
{
    queue("clip.mov", 1);
    monitor(500, 1000, {500});
    EXPECT_EQ(view.seen, (std::vector<FakeUploadView::Seen>{{0, "Uploading at 0.000 MB/s", 50}}));
}

TEST_F(Progress, saysNothingOfATransferShorterThanASecond)
{
    queue("clip.mov", 1);
    monitor(0, 1, {});
    EXPECT_TRUE(view.seen.empty());
    EXPECT_EQ(view.statusBar, std::vector<std::string>{"[none]: Upload rate: 0.000 MB/s"});
}

TEST_F(Progress, roundsTiesToEvenAndStaysWithinTheScale)
{
    EXPECT_EQ(percentSent(495, 1000), 50);
    EXPECT_EQ(percentSent(505, 1000), 50);
    EXPECT_EQ(percentSent(515, 1000), 52);
    EXPECT_EQ(percentSent(0, 0), 100);
    EXPECT_EQ(percentSent(3, 2), 100);
    EXPECT_EQ(percentSent(-3, 2), 0);
    EXPECT_EQ(percentSent(std::int64_t{1} << 62, std::int64_t{1} << 62), 100);
}

TEST_F(Progress, reloadsTheTableEvenWhenTheRowStaysAsItIs)
{
    queue("clip.mov", 1);
    engine.statusUpdate("Connecting", 0);
    const auto row = queues.tableList().objectAtIndex(0);
    engine.statusUpdate("Connecting", 0);
    engine.statusUpdate("Waiting (Error)", -1);

    // the status bar's percentage moves only with a change that has one
    EXPECT_EQ(view.bar, (std::vector<std::optional<std::int32_t>>{0, std::nullopt, std::nullopt}));
    EXPECT_EQ(view.seen.size(), 2U);
    EXPECT_EQ(row->status, "Connecting");
}

} // namespace
} // namespace quenmoor
