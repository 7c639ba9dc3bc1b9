// The shipped window as a process, ended in every phase: gone within two seconds, with the signal's
// status. It speaks to the ports that are built in, so one test at a time.
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
    std::vector<std::string> service; // its options; none for no service
    bool withFile;
    const char* sign; // what the client has logged when the phase begins
};

void PrintTo(const Phase& phase, std::ostream* out)
{
    *out << phase.name;
}

class EndedWindow : public testing::TestWithParam<Phase> {};

TEST_P(EndedWindow, isGoneWithinTwoSeconds)
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
    ASSERT_TRUE(client.waitFor(phase.sign, 60s)) << client.output();
    std::this_thread::sleep_for(300ms); // well inside the phase

    const auto start = std::chrono::steady_clock::now();
    client.signal(SIGTERM);
    EXPECT_EQ(client.exitStatus(10s), 128 + SIGTERM) << client.output();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
}

INSTANTIATE_TEST_SUITE_P(
    Phases, EndedWindow,
    testing::Values(
        Phase{"PageLoading", {}, false, "Byte length of long"},
        Phase{"Idle", {"--auto"}, false, "Page title: session"},
        Phase{"Asking", {"--newest-version", "1.0.0"}, true, "Page title: session"},
        Phase{"Rendezvous",
              {"--auto", "--fault", "refuse-rendezvous"},
              true,
              "Initial connection successful."},
        Phase{"Response",
              {"--auto", "--fault", "never-answer"},
              true,
              "Rendezvous successfully connected."},
        Phase{"Sending", {"--auto", "--fault", "slow-reading=1000000"}, true, "Uploading file."},
        Phase{"StalledSending", {"--auto", "--fault", "stop-reading=0"}, true, "Uploading file."},
        Phase{"ClosingDocument",
              {"--auto", "--fault", "no-closing-document"},
              true,
              "Exited send data loop."},
        Phase{"OpenQuestion", {"--auto"}, true, "Received response object from server."}),
    [](const testing::TestParamInfo<Phase>& phase) { return std::string(phase.param.name); });

} // namespace
} // namespace quenmoor
