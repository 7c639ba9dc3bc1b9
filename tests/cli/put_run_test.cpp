// Whole runs over a fake link and a fake clock: exit status and output.
#include "base/log.h"
#include "cli/put_run.h"
#include "cli/sources.h"
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

    PutRunTest() { options.output = OutputMode::Json; }
    ~PutRunTest() override { setLogSink(nullptr); }

    std::filesystem::path add(const std::string& name, std::size_t size)
    {
        const auto path = folder.file(name, sampleContent(size));
        addPath(path);
        return path;
    }

    void addPath(const std::string& path)
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

    void expectOutput(const std::string& text) const
    {
        EXPECT_NE(out.find(text), std::string::npos) << text << " in\n" << out;
    }
};

TEST_F(PutRunTest, writesOneJsonObjectPerLineAndReturnsZeroWhenEveryFileFinished)
{
    add("a.mov", 100);
    add("b.mov", 0);
    EXPECT_EQ(run(), kExitFinished);
    EXPECT_EQ(link.copies["a.mov"].bytes, sampleContent(100));
    std::size_t lines = 0;
    for (std::size_t at = 0; at < out.size(); at = out.find('\n', at) + 1, ++lines)
        EXPECT_EQ(out.substr(at, 10), "{\"event\":\"");
    EXPECT_EQ(lines, 2U + 2U * 3U + 1U);
    expectOutput("\"row\":1,\"total\":0,\"attempt\":1,\"percent\":100,\"bytes\":0,\"mib_per_s\":");
    expectOutput("\"bytes\":100,\"message\":\"2 finished; 100 B sent\"");
}

TEST_F(PutRunTest, writesStepAndReasonOfEachFailureAndTheAnswerToAQuestion)
{
    options.output = OutputMode::Human; // standard output is no terminal here
    options.existing = ExistingPolicy::Resume;
    const std::string a = add("a.mov", 10);
    const std::string b = add("b.mov", 10);
    link.copies["b.mov"] = {sampleContent(10), 10}; // complete: there is nothing to resume
    link.plans = {{LinkFault::RefuseConnect}, {LinkFault::RefuseRendezvous}};
    EXPECT_EQ(run(), kExitCancelled);
    EXPECT_EQ(out, a + ": queued, 10 B\n" + b + ": queued, 10 B\n" +        //
                       a + ": Connecting (0%)\n" +                          //
                       a + ": attempt 1 failed (announce): no answer\n" +   //
                       a + ": Connecting (0%)\n" +                          //
                       a + ": attempt 2 failed (rendezvous): no answer\n" + //
                       a + ": Retrying in 5s (0%)\n" +                      //
                       a + ": Connecting (0%)\n" +                          //
                       a + ": finished, 10 B in 5.0 s, 0.0 MB/s\n" +        //
                       b + ": Connecting (0%)\n" +                          //
                       b +
                       ": File Exists: A previous file for this upload has been found on "
                       "Quenmoor Transfer server. The file appears to be the same and the "
                       "upload was complete. Answer: Cancel. \"Resume\" is not offered for "
                       "this copy.\n" +
                       b +
                       ": cancelled: the copy on the server was left unchanged\n"
                       "1 finished, 1 cancelled; 10 B sent\n");
}

TEST_F(PutRunTest, returnsOneAndRepeatsTheReasonWhenAFileIsGivenUp)
{
    add("a.mov", 100);
    add("b.mov", 100);
    link.plans.assign(10, {LinkFault::Refuse});
    EXPECT_EQ(run(), kExitGaveUp);
    expectOutput("\"attempt\":3,\"status\":\"Waiting (Error)\",\"percent\":0,\"step\":\"refused\","
                 "\"message\":\"the server refused the upload\"}");
    expectOutput("{\"event\":\"failed\"");
    expectOutput("\"step\":\"refused\",\"message\":\"gave up after 10 attempts (refused): the "
                 "server refused the upload\"}");
    expectOutput("0 finished, 2 not finished");
}

TEST_F(PutRunTest, returnsFourForUnreadableFilesAndSendsTheOthersWithTheirOwnTokens)
{
    addPath(folder.path() / "missing.mov");
    add("b.mov", 100);
    addPath(folder.path());
    EXPECT_EQ(run(), kExitUnreadable);
    expectOutput("\"step\":\"open\",\"message\":\"cannot be read: No such file or directory\"");
    expectOutput("is a directory");
    expectOutput("1 finished, 2 unreadable");
    ASSERT_EQ(link.requests.size(), 1U);
    EXPECT_NE(link.requests[0].find("<token>t2</token>"), std::string::npos);
}

TEST_F(PutRunTest, returnsFourWhenAFileBecameShorterDuringTheRun)
{
    const std::filesystem::path path = add("a.mov", 100);
    link.onSend = [path] { std::filesystem::resize_file(path, 10); };
    link.plans.assign(11, {LinkFault::BreakAfter, 0});
    EXPECT_EQ(run(), kExitUnreadable);
    expectOutput("is 10 bytes long and was 100 when it was queued");
}

TEST_F(PutRunTest, returnsTheNumberOfASignalPlus128)
{
    add("a.mov", 100);
    link.plans.assign(10, {LinkFault::Silent});
    clock.onSleep = [raised = false](std::chrono::milliseconds) mutable {
        if (!std::exchange(raised, true))
            static_cast<void>(raise(SIGTERM));
    };
    EXPECT_EQ(run(), kExitSignal + SIGTERM);
    EXPECT_EQ(interrupted, kExitSignal + SIGTERM);
    expectOutput("1 not finished, interrupted");
}

TEST(RunOutcomeTest, usesTheMostSevereStatus)
{
    using State = SourceState;
    const std::tuple<int, int, std::vector<State>> rows[]{
        {0, 0, {State::Finished, State::Finished}},
        {3, 0, {State::Finished, State::Cancelled}},
        {4, 0, {State::Cancelled, State::Unreadable}},
        {1, 0, {State::Unreadable, State::GaveUp, State::Queued}},
        {130, SIGINT, {State::GaveUp, State::Queued}}};
    for (const auto& [status, signal, states] : rows) {
        std::vector<Source> sources(states.size());
        for (std::size_t i = 0; i < states.size(); ++i)
            sources[i].state = states[i];
        EXPECT_EQ(outcomeOf(sources, signal).status, status);
    }
}

} // namespace
} // namespace quenmoor
