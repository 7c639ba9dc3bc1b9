// The programs as processes.
#include "bench/process.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct PutProgram : testing::Test {
    const TempFolder files;
    const TempFolder root;
    std::unique_ptr<Process> service;
    std::string port = "0";

    // Returns once the service listens. Later calls use the port of the first.
    void startService(std::vector<std::string> options = {})
    {
        std::vector<std::string> arguments{DEVSERVICE, "--root", root.path(), "--port", port};
        for (int i = 1; i <= 6; ++i)
            arguments.insert(arguments.end(), {"--token", "t" + std::to_string(i)});
        arguments.insert(arguments.end(), options.begin(), options.end());
        service = std::make_unique<Process>(arguments);
        const auto listening = service->textAfter("Listening on 127.0.0.1:");
        ASSERT_TRUE(listening);
        port = listening->substr(0, listening->find(','));
    }

    std::vector<std::string> put(const std::vector<std::string>& names,
                                 std::vector<std::string> options = {}) const
    {
        std::vector<std::string> arguments{QUENMOOR_PUT, "--host", "127.0.0.1:" + port};
        arguments.insert(arguments.end(), options.begin(), options.end());
        for (std::size_t i = 0; i < names.size(); ++i)
            arguments.insert(arguments.end(), {"--token", "t" + std::to_string(i + 1)});
        arguments.emplace_back("--");
        for (const std::string& name : names)
            arguments.push_back(files.path() / name);
        return arguments;
    }
};

TEST_F(PutProgram, keepsTheBytesOfUnusualNames)
{
    const std::vector<std::string> names{"caf\xE9.mov", "two\nlines <b>&amp;", "100%25",
                                         "a#b?c&d=e",   std::string(255, 'n'), "-dash"};
    for (std::size_t i = 0; i < names.size(); ++i)
        std::ignore = files.file(names[i], sampleContent(100'000 * i, static_cast<unsigned>(i)));
    startService();
    Process client(put(names));
    EXPECT_EQ(client.exitStatus(60s), 0) << client.output();
    for (const std::string& name : names)
        EXPECT_TRUE(contentOf(root.path() / name) == contentOf(files.path() / name)) << name;
}

TEST_F(PutProgram, completesAnUploadDuringWhichTheTransferServerCrashes)
{
    const std::string content = sampleContent(30'000'000);
    std::ignore = files.file("clip.mov", content);
    startService({"--fault", "slow-reading=20000000"});
    Process client(put({"clip.mov"}));
    const auto part = root.path() / ".quenmoor/parts/clip.mov";
    const auto limit = std::chrono::steady_clock::now() + 30s;
    while (contentOf(part).size() < 5'000'000 && std::chrono::steady_clock::now() < limit)
        std::this_thread::sleep_for(5ms);
    const std::string process = std::to_string(service->id());
    kill(std::stoi(contentOf("/proc/" + process + "/task/" + process + "/children")), SIGABRT);
    EXPECT_EQ(client.exitStatus(60s), 0) << client.output();
    EXPECT_TRUE(contentOf(root.path() / "clip.mov") == content);
    service->signal(SIGTERM);
    EXPECT_EQ(service->exitStatus(), 0);
}

TEST_F(PutProgram, asksOnATerminalUntilAnAnswerAnInterruptOrTheEndOfTheInput)
{
    std::ignore = files.file("clip.mov", "new");
    std::ignore = root.file("clip.mov", "another file");
    startService();
    Process interrupted(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(interrupted.waitFor("[1] Cancel (default)   [2] Overwrite: "));
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.exitStatus(), 130);
    EXPECT_EQ(contentOf(root.path() / "clip.mov"), "another file");

    Process closed(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(closed.waitFor("[1] Cancel (default)   [2] Overwrite: "));
    closed.type("\x04"); // the end of the input
    EXPECT_EQ(closed.exitStatus(), 3) << closed.output();

    Process client(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(client.waitFor("The file appears to be different and the upload was complete."));
    client.type("3\n");
    client.type("overwrite\n");
    EXPECT_EQ(client.exitStatus(), 0) << client.output();
    EXPECT_EQ(contentOf(root.path() / "clip.mov"), "new");
}

TEST_F(PutProgram, copesWithTheDescriptorsLimitsAndSignalsOfItsCaller)
{
    std::ignore = files.file("clip.mov", sampleContent(2'000'000));
    startService({"--fault", "slow-reading=2000000"});
    const std::pair<const char*, int> rows[]{
        {R"("$0" "$@" >/dev/full)", 5},
        {R"("$0" --help >/dev/full)", 5},
        {R"(set -o pipefail; "$0" "$@" | true)", 5},
        {R"("$0" --log-file /dev/full "$@")", 5},
        {R"("$0" --log-file /nowhere/log "$@")", 2},
#ifndef __SANITIZE_ADDRESS__ // the undefined behaviour sanitizer needs descriptors itself
        {R"(ulimit -n 4; "$0" "$@" 3>&-)", 6},
#endif
        {R"("$0" "$@" <&- >&-)", 0},
        {R"("$0" "$@" <&- >&- 2>&-)", 0},
        {R"(trap '' TERM; "$0" "$@" & sleep 0.5; kill $!; wait $!)", 0},
    };
    for (const auto& [script, status] : rows) {
        std::vector<std::string> arguments{"/bin/bash", "-c", script};
        for (std::string& argument : put({"clip.mov"}, {"--existing", "overwrite"}))
            arguments.push_back(std::move(argument));
        Process client(arguments);
        EXPECT_EQ(client.exitStatus(), status) << script << '\n' << client.output();
    }
}

TEST_F(PutProgram, displaysReasonAndCountdownOnATerminal)
{
    std::ignore = files.file("clip.mov", "x");
    port = "9"; // no service
    Process client(put({"clip.mov"}), {.terminal = true});
    EXPECT_TRUE(client.waitFor("\rclip.mov: attempt 1 failed (announce): no answer from "
                               "127.0.0.1:9 within 3 s"));
    EXPECT_TRUE(client.waitFor("\rclip.mov  Retrying in 4s (attempt 2)"));
    client.signal(SIGINT);
    EXPECT_EQ(client.exitStatus(), 130);
}

TEST_F(PutProgram, isSilentWithQuietAndRejectsAWrongCommandLine)
{
    std::ignore = files.file("clip.mov", "0123456789");
    startService();
    Process quiet(put({"clip.mov"}, {"--quiet"}));
    EXPECT_EQ(quiet.exitStatus(), 0);
    EXPECT_EQ(quiet.output(), "");
    // Without a terminal an existing copy stays.
    EXPECT_EQ(Process(put({"clip.mov"}, {"--quiet"})).exitStatus(), 3);
    EXPECT_EQ(Process(put({"clip.mov"}, {"--quiet", "--existing", "skip"})).exitStatus(), 0);
    EXPECT_EQ(Process({QUENMOOR_PUT, "--json"}).exitStatus(), 2);
}

#ifdef QUENMOOR_UPLOAD
TEST(WindowProgram, reportsAMissingDisplayInOneLine)
{
    Process client({QUENMOOR_UPLOAD},
                   {.terminal = true, .environment = {"QT_QPA_PLATFORM=xcb", "DISPLAY=:none"}});
    EXPECT_EQ(client.exitStatus(), 1);
    EXPECT_EQ(client.output().find("quenmoor-upload: cannot open a window: "), 0U);
    EXPECT_EQ(client.output().find('\n'), client.output().size() - 1) << client.output();
}
#endif

} // namespace
} // namespace quenmoor
