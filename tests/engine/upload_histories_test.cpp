// Thousands of uploads with random faults in random order, checked against the invariants that
// hold for all of them.
#include "tests/engine/engine_fixture.h"

#include <random>

namespace quenmoor {
namespace {

#ifdef QUENMOOR_THREAD_SANITIZER
constexpr unsigned kHistories = 1000; // each takes ten times longer there
#else
constexpr unsigned kHistories = 10000;
#endif

using Contents = std::map<std::string, std::string>; // by file name

class History {
public:
    // `folder` has a file for each of `contents`, by name.
    History(const TempFolder& folder, const Contents& contents, unsigned seed)
        : contents_(contents), random_(seed)
    {
        for (int files = 1 + pick(4); files > 0; --files) {
            const auto& [name, content] = *std::next(contents.begin(), pick(6));
            names_.push_back(name);
            queues_.addFiles(std::array{FileUrl::fromPath(folder.path() / name)});
            queues_.acceptToken("t");
            if (pick(3) > 0)
                continue;
            // A part of the same file, the whole of it, or another file of the same name.
            link_.copies[name] = {content.substr(0, pick(content.size() + 1)),
                                  static_cast<std::int64_t>(content.size())};
            if (pick(3) == 0)
                link_.copies[name] = {"another", 7777};
        }
        link_.takeAtMost = pick(2) == 0 ? 1 << 20 : 1 + pick(20000);
        link_.lostOnBreak = pick(3U) * 1000;
        const int failingInTen = pick(11);
        for (int i = 0; i < 40; ++i) {
            link_.plans.emplace_back();
            if (pick(10) < failingInTen)
                link_.plans.back() = {static_cast<LinkFault>(1 + pick(9)),
                                      pick(2) == 0 ? 0 : pick(80000)};
        }
        view_.answer = [this](const Alert& alert) { // one of the buttons, or none of them
            return kFirstButton - 1 + pick(static_cast<int>(alert.buttons.size()) + 1);
        };
    }

    void run()
    {
        UploadEngine(queues_, link_, view_, clock_).uploadFile();
        EXPECT_FALSE(link_.leaked);
        EXPECT_TRUE(link_.openSockets.empty());
        EXPECT_LE(view_.questions(), names_.size());
        std::size_t ended = 0;
        for (std::size_t row = 0; row < names_.size(); ++row) {
            const std::string status = queues_.tableList().cell("Status", row);
            ended += status == "Finished" || status == "Canceled" ? 1U : 0U;
            if (status != "Finished")
                continue;
            EXPECT_EQ(queues_.tableList().cell("Percent", row), "100%");
            // A later row of the same file may have replaced the copy.
            if (std::count(names_.begin(), names_.end(), names_[row]) == 1) {
                EXPECT_TRUE(link_.copies.at(names_[row]).bytes == contents_.at(names_[row]));
            }
        }
        EXPECT_EQ(names_.size(), ended + queues_.uploadCount());
        EXPECT_EQ(view_.terminated, ended < names_.size());
        EXPECT_LE(longestFailingRun(), 10U);
        EXPECT_EQ(view_.terminated, longestFailingRun() == 10U);
    }

private:
    template <typename Number>
    Number pick(Number count)
    {
        return std::uniform_int_distribution<Number>(0, count - 1)(random_);
    }

    // The most failures in a row of one file. An attempt that moved bytes begins a new run.
    std::size_t longestFailingRun() const
    {
        std::size_t longest = 0;
        std::size_t run = 0;
        std::size_t attempts = 0;
        for (const AttemptEvent& event : view_.events) {
            if (event.kind == AttemptEventKind::Started)
                ++attempts;
            if (event.kind == AttemptEventKind::Failed)
                run = event.attempt == 1 || link_.sentPerAttempt[attempts - 1] > 0 ? 1 : run + 1;
            longest = std::max(longest, run);
        }
        return longest;
    }

    const Contents& contents_;
    std::mt19937 random_;
    UploadQueues queues_;
    FakeTransferLink link_;
    FakeUploadView view_;
    FakeClock clock_;
    Texts names_; // of each row
};

TEST(UploadHistories, keepTheInvariantsInEveryOrderOfFaults)
{
    const SilentLog log;
    const TempFolder folder;
    Contents contents;
    for (const unsigned size : {0U, 1U, 16383U, 16384U, 16385U, 70000U}) { // around the block size
        const std::string name = std::to_string(size);
        contents[name] = sampleContent(size, size);
        folder.file(name, contents[name]);
    }
    for (unsigned seed = 0; seed < kHistories && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        History(folder, contents, seed).run();
    }
}

} // namespace
} // namespace quenmoor
