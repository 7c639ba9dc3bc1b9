// The programs as processes.
#include "bench/local_service.h"

#include <gtest/gtest.h>

#include <tuple>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

const Settings kSettings{PROGRAMS};

struct PutProgram : testing::Test {
    const TempFolder files;
    std::optional<LocalService> service; // without one, the programs connect to an unused port

    std::vector<std::string> put(const std::vector<std::string>& names,
                                 const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> arguments{PROGRAMS "/quenmoor-put", "--host",
                                           "127.0.0.1:" +
                                               std::to_string(service ? service->port() : 9)};
        arguments.insert(arguments.end(), options.begin(), options.end());
        for (const std::string& name : names)
            arguments.insert(arguments.end(),
                             {"--token", LocalService::kToken, files.path() / name});
        return arguments;
    }
};

TEST_F(PutProgram, asksOnATerminalUntilAnAnswerAnInterruptOrTheEndOfTheInput)
{
    std::ignore = files.file("clip.mov", "new");
    service.emplace(kSettings);
    std::ofstream(service->root() / "clip.mov") << "another file";
    Process interrupted(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(interrupted.waitFor("[1] Cancel (default)   [2] Overwrite: "));
    interrupted.signal(SIGINT);
    EXPECT_EQ(interrupted.exitStatus(), 130);
    EXPECT_EQ(contentOf(service->root() / "clip.mov"), "another file");

    Process closed(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(closed.waitFor("[1] Cancel (default)   [2] Overwrite: "));
    closed.type("\x04"); // the end of the input
    EXPECT_EQ(closed.exitStatus(), 3) << closed.output();

    Process client(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(client.waitFor("The file appears to be different and the upload was complete."));
    client.type("3\n");
    client.type("overwrite\n");
    EXPECT_EQ(client.exitStatus(), 0) << client.output();
    EXPECT_EQ(contentOf(service->root() / "clip.mov"), "new");
}

TEST_F(PutProgram, copesWithTheDescriptorsLimitsAndSignalsOfItsCaller)
{
    std::ignore = files.file("clip.mov", sampleContent(2'000'000));
    service.emplace(kSettings,
                    std::vector<std::string>{"--port", "0", "--token", LocalService::kToken,
                                             "--fault", "slow-reading=2000000"});
    const std::pair<const char*, int> rows[]{
        {R"("$0" "$@" >/dev/full)", 5},
        {R"("$0" --help >/dev/full)", 5},
        {R"(set -o pipefail; "$0" "$@" | true)", 5},
        {R"("$0" --log-file /dev/full "$@")", 5},
        {R"("$0" --log-file /nowhere/log "$@")", 2},
#ifndef __SANITIZE_ADDRESS__ // the undefined behaviour sanitizer needs descriptors itself
        {R"(ulimit -n 4; "$0" "$@" 3>&-)", 6},
#endif
#ifndef QUENMOOR_EXIT_HANDLERS // destructors of the library's static objects
        {R"(LD_DEBUG=files "$0" "$@" 2>&1 | grep "calling fini.*udt")", 1},
#endif
        {R"("$0" "$@" <&- >&-)", 0},
        {R"("$0" "$@" <&- >&- 2>&-)", 0},
        {R"("$0" --json)", 2},
        {R"(trap '' TERM; "$0" "$@" & sleep 0.5; kill $!; wait $!)", 0},
    };
    for (const auto& [script, status] : rows) {
        std::vector<std::string> arguments{"/bin/bash", "-c", script};
        for (std::string& argument : put({"clip.mov"}, {"--existing", "overwrite"}))
            arguments.push_back(std::move(argument));
        Process client(arguments);
        EXPECT_EQ(client.exitStatus(), status) << script << '\n' << client.output();
    }
    // Without a terminal an existing copy stays.
    EXPECT_EQ(Process(put({"clip.mov"})).exitStatus(), 3);
    EXPECT_EQ(Process(put({"clip.mov"}, {"--existing", "skip"})).exitStatus(), 0);
    Process quiet(put({"clip.mov"}, {"--quiet", "--existing", "overwrite"}));
    EXPECT_EQ(quiet.exitStatus(), 0);
    EXPECT_EQ(quiet.output(), "");
}

TEST_F(PutProgram, displaysReasonAndCountdownOnATerminal)
{
    std::ignore = files.file("clip.mov", "x");
    Process client(put({"clip.mov"}), {.terminal = true});
    EXPECT_TRUE(client.waitFor("\rclip.mov: attempt 1 failed (announce): no answer from "
                               "127.0.0.1:9 within 3 s"));
    EXPECT_TRUE(client.waitFor("\rclip.mov  Retrying in 4s (attempt 2)"));
    client.signal(SIGINT);
    EXPECT_TRUE(client.waitFor("1 not finished, interrupted"));
    EXPECT_EQ(client.exitStatus(), 130);
}

#ifdef QUENMOOR_UPLOAD
TEST(WindowProgram, reportsAMissingDisplayInOneLine)
{
    Process client({QUENMOOR_UPLOAD},
                   {.terminal = true, .environment = {"QT_QPA_PLATFORM=xcb", "DISPLAY=:none"}});
    EXPECT_EQ(client.exitStatus(), 1);
    EXPECT_EQ(client.output().find("quenmoor-upload: cannot open a window: "), 0U);
    EXPECT_EQ(client.output().find('\n'), client.output().size() - 1) << client.output();
#ifndef QUENMOOR_EXIT_HANDLERS
    const char* const script = R"(LD_DEBUG=files "$0" --version 2>&1 | grep "calling fini.*udt")";
    EXPECT_EQ(Process({"/bin/bash", "-c", script, QUENMOOR_UPLOAD}).exitStatus(), 1);
#endif
}
#endif

} // namespace
} // namespace quenmoor
