// The exit status of a whole run, over a link and a clock that fail and wait as told.
#include "base/log.h"
#include "cli/put_run.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <csignal>
#include <utility>

namespace quenmoor {
namespace {

struct PutRunTest : testing::Test {
    const TempFolder folder;
    FakeTransferLink link;
    FakeClock clock;
    PutOptions options;
    std::string out;
    int interrupted = 0;

    PutRunTest() { options.output = Output::Json; }
    ~PutRunTest() override { setLogSink(nullptr); }

    void file(const std::string& name, std::size_t size)
    {
        name_ = folder.file(name, sampleContent(size));
        give(name_);
    }

    void give(const std::string& path)
    {
        options.files.push_back(path);
        options.tokens.push_back("t" + std::to_string(options.files.size()));
    }

    int run()
    {
        testing::internal::CaptureStdout();
        const int status = runPut(options, clock, link, [this](int left) { interrupted = left; });
        out = testing::internal::GetCapturedStdout();
        return status;
    }

    bool said(const std::string& text) const { return out.find(text) != std::string::npos; }

    std::filesystem::path name_;
};

TEST_F(PutRunTest, isZeroWhenEveryFileFinished)
{
    file("a.mov", 100);
    file("b.mov", 0);
    EXPECT_EQ(run(), kExitFinished);
    EXPECT_EQ(link.copies["a.mov"].bytes, sampleContent(100));
    // one JSON object a line, and nothing else
    std::size_t lines = 0;
    for (std::size_t at = 0; at < out.size(); at = out.find('\n', at) + 1, ++lines)
        EXPECT_EQ(out.substr(at, 10), "{\"event\":\"");
    EXPECT_EQ(lines, 2U + 2U * 3U + 1U);
    EXPECT_TRUE(said("\"message\":\"2 finished; 100 B sent\""));
}

TEST_F(PutRunTest, isOneWhenAFileIsGivenUp)
{
    file("a.mov", 100);
    file("b.mov", 100);
    link.plans.assign(10, {LinkFault::RefuseRendezvous});
    EXPECT_EQ(run(), kExitGaveUp);
    EXPECT_TRUE(said("\"event\":\"failed\""));
    EXPECT_TRUE(said("\"step\":\"rendezvous\""));
    EXPECT_TRUE(said("0 finished, 2 not finished"));
    EXPECT_EQ(clock.restedInAll(), std::chrono::seconds(1850));
}

TEST_F(PutRunTest, isThreeWhenACopyWasLeftAlone)
{
    file("a.mov", 100);
    file("b.mov", 100);
    link.copies["a.mov"] = {sampleContent(100), 100};
    EXPECT_EQ(run(), kExitCancelled);
    EXPECT_TRUE(said("There is no terminal to ask on"));
    EXPECT_TRUE(said("1 finished, 1 cancelled"));
}

TEST_F(PutRunTest, isFourWhenAFileCannotBeReadAndSendsTheOthersWithTheirOwnTokens)
{
    give(folder.path() / "missing.mov");
    file("b.mov", 100);
    give(folder.path());
    EXPECT_EQ(run(), kExitUnreadable);
    EXPECT_TRUE(
        said("\"step\":\"open\",\"message\":\"cannot be read: No such file or directory\""));
    EXPECT_TRUE(said("is a folder"));
    ASSERT_EQ(link.requests.size(), 1U);
    EXPECT_NE(link.requests[0].find("<token>t2</token>"), std::string::npos);
}

TEST_F(PutRunTest, isFourWhenAFileBecameShorterOnTheWay)
{
    file("a.mov", 100);
    link.onSend = [this] { std::filesystem::resize_file(name_, 10); };
    link.plans.assign(11, {LinkFault::BreakAfter, 0});
    EXPECT_EQ(run(), kExitUnreadable);
    EXPECT_TRUE(said("is 10 bytes long and was 100 when it was queued"));
}

TEST_F(PutRunTest, isTheSignalsNumberWhenInterrupted)
{
    file("a.mov", 100);
    link.plans.assign(10, {LinkFault::Silent});
    clock.onRest = [raised = false](std::chrono::milliseconds) mutable {
        if (!std::exchange(raised, true))
            static_cast<void>(raise(SIGTERM));
    };
    EXPECT_EQ(run(), kExitSignal + SIGTERM);
    EXPECT_EQ(interrupted, kExitSignal + SIGTERM);
    EXPECT_TRUE(said("1 not finished, interrupted"));
}

} // namespace
} // namespace quenmoor
