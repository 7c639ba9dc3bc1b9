// The window as a process that a signal ends in every phase of an upload. The tests use the ports
// of the build, so they cannot run in parallel.
#include "bench/process.h"
#include "tests/fakes/temp_folder.h"
#include "tests/ui/page/trusting_home.h"

#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <tuple>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct Phase {
    const char* name;
    std::vector<std::string> service; // the options of the service; empty for no service
    bool withFile;
    const char* logLine; // logged by the client when the phase begins
    int signal = SIGTERM;
};

class EndedWindow : public testing::TestWithParam<Phase> {};

TEST_P(EndedWindow, exitsPromptlyWithTheStatusOfTheSignal)
{
    const Phase& phase = GetParam();
    const TrustingHome home;
    const TempFolder files;
    const TempFolder root;
    std::ignore = root.file("copy.mov", "another file");
    const auto file =
        files.file(phase.name == std::string("OpenQuestion") ? "copy.mov" : "clip.mov",
                   sampleContent(40'000'000));

    std::unique_ptr<Process> service;
    if (!phase.service.empty()) {
        std::vector<std::string> arguments{DEVSERVICE, "--root", root.path(), "--state",
                                           home.certificate().certificateFile.parent_path()};
        arguments.insert(arguments.end(), phase.service.begin(), phase.service.end());
        service = std::make_unique<Process>(arguments);
        ASSERT_TRUE(service->waitFor("Certificate: ")) << service->output();
    }
    std::vector<std::string> arguments{QUENMOOR_UPLOAD};
    if (phase.withFile)
        arguments.push_back(file);
    Process client(arguments, {.terminal = true});
    ASSERT_TRUE(client.waitFor(phase.logLine, 60s)) << client.output();
    std::this_thread::sleep_for(100ms); // the client blocks in the call after the log line

    // The client waits half a second for its upload thread. The limit leaves room for a loaded
    // machine and stays below the 10 and 30 seconds after which the blocked calls return.
    client.signal(phase.signal);
    EXPECT_EQ(client.exitStatus(8s), 128 + phase.signal) << client.output();
}

TEST(WindowProcess, reportsAMissingDisplayInOneLine)
{
    Process client({QUENMOOR_UPLOAD},
                   {.terminal = true, .environment = {"QT_QPA_PLATFORM=xcb", "DISPLAY=:none"}});
    EXPECT_EQ(client.exitStatus(), 1);
    EXPECT_EQ(client.output().find("quenmoor-upload: cannot open a window: "), 0U);
    EXPECT_EQ(client.output().find('\n'), client.output().size() - 1) << client.output();
}

INSTANTIATE_TEST_SUITE_P(
    Phases, EndedWindow,
    testing::Values(Phase{"PageLoading", {}, false, "Byte length of long"},
                    Phase{"Idle", {"--auto"}, false, "Page title: session", SIGHUP},
                    Phase{"Rendezvous",
                          {"--auto", "--fault", "refuse-rendezvous"},
                          true,
                          "Initial connection successful."},
                    Phase{
                        "OpenQuestion", {"--auto"}, true, "Received response object from server."}),
    [](const testing::TestParamInfo<Phase>& phase) { return std::string(phase.param.name); });

} // namespace
} // namespace quenmoor
