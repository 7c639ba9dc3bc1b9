// Ten thousand histories of uploads that fail in every way and order, held against what must be
// true of all of them.
#include "tests/engine/engine_fixture.h"

#include <random>

namespace quenmoor {
namespace {

#ifdef QUENMOOR_THREAD_SANITIZER
constexpr unsigned kHistories = 1000; // ten times slower there, and as telling
#else
constexpr unsigned kHistories = 10000;
#endif

// Sizes around the block size; one file each, shared by all histories.
class Samples {
public:
    Samples()
    {
        for (const std::size_t size : {0U, 1U, 16383U, 16384U, 16385U, 70000U}) {
            contents.push_back(sampleContent(size, static_cast<unsigned>(size)));
            paths.push_back(folder_.file("clip" + std::to_string(size), contents.back()));
        }
    }

    std::vector<std::string> contents;
    std::vector<std::filesystem::path> paths;

private:
    TempFolder folder_;
};

class History {
public:
    History(const Samples& samples, unsigned seed) : samples_(samples), random_(seed) {}

    void run()
    {
        view_.table = &queues_.tableList();
        view_.onReload = [this] { checkRows(); };
        queueFiles();
        planAttempts();
        const std::size_t files = chosen_.size();
        view_.answer = [this](const Alert& alert) {
            // one of the buttons, or none of them
            const auto offered = static_cast<int>(alert.buttons.size());
            const int chosen = pick(offered + 1);
            return chosen < offered ? kFirstButton + chosen : -1;
        };
        UploadEngine engine(queues_, link_, view_, clock_);
        engine.uploadFile();
        check(files);
    }

private:
    int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }

    void queueFiles()
    {
        const int files = 1 + pick(4);
        for (int i = 0; i < files; ++i) {
            const auto which =
                static_cast<std::size_t>(pick(static_cast<int>(samples_.paths.size())));
            queues_.addFiles(std::array{FileUrl::fromPath(samples_.paths[which])});
            queues_.acceptToken("t");
            chosen_.push_back(which);
            if (pick(3) == 0)
                link_.copies[samples_.paths[which].filename()] = copyOf(samples_.contents[which]);
        }
    }

    // A part of the same file, the whole of it, or another file of the same name.
    FakeTransferLink::Copy copyOf(const std::string& content)
    {
        const auto size = static_cast<int>(content.size());
        if (pick(3) == 0)
            return {"another", 7777};
        return {content.substr(0, static_cast<std::size_t>(pick(size + 1))), size};
    }

    void planAttempts()
    {
        link_.takeAtMost = pick(2) == 0 ? 1 << 20 : 1 + pick(20000);
        link_.lostOnBreak = static_cast<std::size_t>(pick(3) * 1000);
        const int failingInTen = pick(11);
        for (int i = 0; i < 40; ++i) {
            LinkPlan plan;
            if (pick(10) < failingInTen)
                plan = {static_cast<LinkFault>(1 + pick(9)), pick(2) == 0 ? 0 : pick(80000)};
            link_.plans.push_back(plan);
        }
    }

    void checkRows() const
    {
        for (std::size_t i = 0; i < queues_.tableList().count(); ++i) {
            const std::int32_t percent = queues_.tableList().objectAtIndex(i)->percent;
            EXPECT_GE(percent, 0);
            EXPECT_LE(percent, 100);
        }
    }

    void check(std::size_t files)
    {
        EXPECT_FALSE(link_.leaked);
        EXPECT_TRUE(link_.openSockets.empty());
        EXPECT_LE(view_.questions(), files);
        std::size_t ended = 0;
        for (std::size_t row = 0; row < files; ++row)
            ended += checkFile(row) ? 1U : 0U;
        EXPECT_EQ(queues_.tableList().count(), ended + queues_.uploadCount());
        EXPECT_EQ(view_.terminated, ended < files);
        EXPECT_LE(longestFailingRun(), 10U);
        EXPECT_EQ(view_.terminated, longestFailingRun() == 10U);
    }

    // True when the file of `row` came to its end.
    bool checkFile(std::size_t row)
    {
        const std::string status = queues_.tableList().cell("Status", row);
        const std::filesystem::path& path = samples_.paths[chosen_[row]];
        if (status == "Finished") {
            // A later row of the same file may have been cut short since.
            if (std::count(chosen_.begin(), chosen_.end(), chosen_[row]) == 1) {
                EXPECT_EQ(link_.copies[path.filename()].bytes, samples_.contents[chosen_[row]]);
            }
            EXPECT_EQ(queues_.tableList().objectAtIndex(row)->percent, 100);
        }
        return status == "Finished" || status == "Canceled";
    }

    // Failed attempts of one file between two that moved bytes.
    std::size_t longestFailingRun() const
    {
        std::size_t longest = 0;
        std::size_t run = 0;
        std::size_t attempt = 0;
        for (const FakeUploadView::Seen& change : view_.seen) {
            if (change.status == "Connecting")
                ++attempt;
            else if (change.status == "Finished" || change.status == "Canceled")
                run = 0;
            else if (change.status == "Waiting (Error)") {
                // An attempt that moved bytes is itself the first failure of a new run.
                run = link_.sentPerAttempt[attempt - 1] > 0 ? 1 : run + 1;
                longest = std::max(longest, run);
            }
        }
        return longest;
    }

    const Samples& samples_;
    std::mt19937 random_;
    UploadQueues queues_;
    FakeTransferLink link_;
    FakeUploadView view_;
    FakeClock clock_;
    std::vector<std::size_t> chosen_; // sample of each row
};

TEST(UploadHistories, keepTheirPromisesInEveryOrderOfFailures)
{
    const SilentLog log;
    const Samples samples;
    for (unsigned seed = 0; seed < kHistories; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        History(samples, seed).run();
        ASSERT_FALSE(HasFailure());
    }
}

} // namespace
} // namespace quenmoor
