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

class History {
public:
    // `folder` has a file for each of `contents`, named by its index.
    History(const TempFolder& folder, const Texts& contents, unsigned seed)
        : contents_(contents), random_(seed)
    {
        const int files = 1 + pick(4);
        for (int i = 0; i < files; ++i) {
            const std::string& content = contents[chosen_.emplace_back(pickIndex())];
            queues_.addFiles(std::array{FileUrl::fromPath(folder.path() / name(chosen_.back()))});
            queues_.acceptToken("t");
            if (pick(3) == 0)
                link_.copies[name(chosen_.back())] = copyOf(content);
        }
        link_.takeAtMost = pick(2) == 0 ? 1 << 20 : 1 + pick(20000);
        link_.lostOnBreak = static_cast<std::size_t>(pick(3) * 1000);
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
        EXPECT_LE(view_.questions(), chosen_.size());
        std::size_t ended = 0;
        for (std::size_t row = 0; row < chosen_.size(); ++row)
            ended += checkFile(row) ? 1U : 0U;
        EXPECT_EQ(chosen_.size(), ended + queues_.uploadCount());
        EXPECT_EQ(view_.terminated, ended < chosen_.size());
        EXPECT_LE(longestFailingRun(), 10U);
        EXPECT_EQ(view_.terminated, longestFailingRun() == 10U);
    }

private:
    static std::string name(std::size_t index) { return std::to_string(index); }
    int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }
    std::size_t pickIndex()
    {
        return static_cast<std::size_t>(pick(static_cast<int>(contents_.size())));
    }

    // A part of the same file, the whole of it, or another file of the same name.
    FakeTransferLink::Copy copyOf(const std::string& content)
    {
        const auto size = static_cast<int>(content.size());
        if (pick(3) == 0)
            return {"another", 7777};
        return {content.substr(0, static_cast<std::size_t>(pick(size + 1))), size};
    }

    // Returns true if the file of `row` has ended.
    bool checkFile(std::size_t row) const
    {
        const std::string status = queues_.tableList().cell("Status", row);
        // A later row of the same file may have replaced the copy.
        if (status == "Finished" && std::count(chosen_.begin(), chosen_.end(), chosen_[row]) == 1) {
            EXPECT_TRUE(link_.copies.at(name(chosen_[row])).bytes == contents_[chosen_[row]]);
        }
        if (status == "Finished") {
            EXPECT_EQ(queues_.tableList().objectAtIndex(row)->percent, 100);
        }
        return status == "Finished" || status == "Canceled";
    }

    // Failed attempts of one file between two that moved bytes.
    std::size_t longestFailingRun() const
    {
        std::size_t longest = 0;
        std::size_t run = 0;
        std::size_t attempts = 0;
        for (const AttemptEvent& event : view_.events) {
            attempts += event.kind == AttemptEventKind::Started ? 1U : 0U;
            if (event.kind == AttemptEventKind::Finished ||
                event.kind == AttemptEventKind::Cancelled)
                run = 0;
            // An attempt that moved bytes is itself the first failure of a new run.
            if (event.kind == AttemptEventKind::Failed)
                run = link_.sentPerAttempt[attempts - 1] > 0 ? 1 : run + 1;
            longest = std::max(longest, run);
        }
        return longest;
    }

    const Texts& contents_;
    std::mt19937 random_;
    UploadQueues queues_;
    FakeTransferLink link_;
    FakeUploadView view_;
    FakeClock clock_;
    std::vector<std::size_t> chosen_; // index of the content of each row
};

TEST(UploadHistories, keepTheInvariantsInEveryOrderOfFaults)
{
    const SilentLog log;
    const TempFolder folder;
    Texts contents; // sizes around the block size
    for (const unsigned size : {0U, 1U, 16383U, 16384U, 16385U, 70000U}) {
        static_cast<void>(folder.file(std::to_string(contents.size()), sampleContent(size, size)));
        contents.push_back(sampleContent(size, size));
    }
    for (unsigned seed = 0; seed < kHistories && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        History(folder, contents, seed).run();
    }
}

} // namespace
} // namespace quenmoor
