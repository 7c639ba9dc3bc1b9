// The shipped programs against each other, as processes: what a person would do at a terminal.
#include "bench/process.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct EndToEnd : testing::Test {
    const TempFolder files;
    const TempFolder root;
    std::unique_ptr<Process> service;
    std::string port = "0";

    // Returns once it listens. Later calls use the port of the first.
    void startService(std::vector<std::string> more = {})
    {
        std::vector<std::string> arguments{DEVSERVICE, "--root",  root.path(), "--port",
                                           port,       "--token", "t1",        "t2",
                                           "t3",       "t4",      "t5",        "t6"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        service = std::make_unique<Process>(arguments);
        ASSERT_TRUE(service->waitFor(", storing under"));
        const std::string said = service->output();
        const std::size_t colon = said.find(':');
        port = said.substr(colon + 1, said.find(',') - colon - 1);
    }

    std::vector<std::string> put(const std::vector<std::string>& names,
                                 std::vector<std::string> more = {}) const
    {
        std::vector<std::string> arguments{QUENMOOR_PUT, "--host", "127.0.0.1:" + port};
        arguments.insert(arguments.end(), more.begin(), more.end());
        for (std::size_t i = 0; i < names.size(); ++i)
            arguments.insert(arguments.end(), {"--token", "t" + std::to_string(i + 1)});
        arguments.emplace_back("--");
        for (const std::string& name : names)
            arguments.push_back(files.path() / name);
        return arguments;
    }

    std::uintmax_t partSize(const std::string& name) const
    {
        std::error_code missing;
        const auto size =
            std::filesystem::file_size(root.path() / ".quenmoor/parts" / name, missing);
        return missing ? 0 : size;
    }

    bool waitForPart(const std::string& name, std::uintmax_t bytes) const
    {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (partSize(name) < bytes && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(5ms);
        return partSize(name) >= bytes;
    }
};

TEST_F(EndToEnd, awkwardNamesArriveAsTheBytesThatTheyAre)
{
    const std::vector<std::string> names{"caf\xE9.mov", "two\nlines <b>&amp;", "100%25",
                                         "a#b?c&d=e",   std::string(255, 'n'), "-dash"};
    for (std::size_t i = 0; i < names.size(); ++i)
        std::ignore = files.file(names[i], sampleContent(100'000 * i, static_cast<unsigned>(i)));
    startService();
    Process client(put(names));
    EXPECT_EQ(client.exitStatus(60s), 0) << client.output();
    for (const std::string& name : names)
        EXPECT_EQ(contentOf(root.path() / name), contentOf(files.path() / name)) << name;
}

TEST_F(EndToEnd, aKilledServiceGoesOnFromItsOwnSizeWhenItIsBack)
{
    const std::string content = sampleContent(60'000'000);
    std::ignore = files.file("clip.mov", content);
    startService({"--fault", "slow-reading=20000000"});
    Process client(put({"clip.mov"}, {"--json"}));
    ASSERT_TRUE(waitForPart("clip.mov", 30'000'000));
    service->signal(SIGKILL);
    ASSERT_EQ(service->exitStatus(), 128 + SIGKILL);
    const std::uintmax_t held = partSize("clip.mov");
    EXPECT_LT(held, content.size());
    startService({"--fault", "slow-reading=20000000"});
    EXPECT_EQ(client.exitStatus(90s), 0) << client.output();
    EXPECT_EQ(contentOf(root.path() / "clip.mov"), content);

    // the first sample after the failure stands beyond what the server held
    const std::string said = client.output();
    EXPECT_EQ(said.find("\"event\":\"question\""), std::string::npos);
    const std::string label = "\"bytes\":";
    const std::size_t sample = said.find(label, said.find("\"status\":\"Waiting (Error)\""));
    ASSERT_NE(sample, std::string::npos);
    EXPECT_GE(std::stoull(said.substr(sample + label.size())), held);
}

TEST_F(EndToEnd, aQuestionIsAskedInWordsOnATerminal)
{
    const std::string content = sampleContent(50'000);
    std::ignore = files.file("clip.mov", content);
    std::ignore = root.file("clip.mov", "another file");
    startService();
    Process client(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(client.waitFor("The file appears to be different and the upload was complete."));
    ASSERT_TRUE(client.waitFor("[1] Cancel   [2] Overwrite: "));
    client.type("3\n");
    client.type("overwrite\n");
    EXPECT_EQ(client.exitStatus(), 0) << client.output();
    EXPECT_EQ(contentOf(root.path() / "clip.mov"), content);
}

TEST_F(EndToEnd, theCountdownOfARetryIsSeenOnATerminal)
{
    std::ignore = files.file("clip.mov", "x");
    port = "9"; // nobody is there
    Process client(put({"clip.mov"}), {.terminal = true});
    for (const char* const left : {"5s", "4s", "3s", "2s"})
        EXPECT_TRUE(
            client.waitFor(std::string("\rclip.mov  Retrying in ") + left + " (attempt 2)"));
    client.signal(SIGINT);
    EXPECT_EQ(client.exitStatus(2s), 130);
}

TEST_F(EndToEnd, exitStatusesAreThoseOfTheDocumentation)
{
    std::ignore = files.file("clip.mov", "0123456789");
    startService();
    const auto statusOf = [](std::vector<std::string> arguments) {
        Process client(std::move(arguments));
        return client.exitStatus();
    };
    EXPECT_EQ(statusOf(put({"clip.mov"}, {"--quiet"})), 0);
    EXPECT_EQ(statusOf({QUENMOOR_PUT, "--json"}), 2);
    EXPECT_EQ(statusOf(put({"clip.mov"}, {"--quiet"})), 3); // it is there already
    EXPECT_EQ(statusOf(put({"missing.mov"}, {"--quiet"})), 4);
}

struct Phase {
    const char* name;
    const char* fault; // nullptr: no service
    const char* sign;  // what the client has said when the phase begins

    friend void PrintTo(const Phase& phase, std::ostream* out) { *out << phase.name; }
};

struct Interrupted : EndToEnd, testing::WithParamInterface<Phase> {};

TEST_P(Interrupted, isGoneWithinASecond)
{
    const Phase& phase = GetParam();
    std::ignore = files.file("clip.mov", sampleContent(40'000'000));
    port = phase.fault != nullptr ? "0" : "9";
    if (phase.fault != nullptr)
        startService({"--fault", phase.fault});
    Process client(put({"clip.mov"}, {"--json"}));
    ASSERT_TRUE(client.waitFor(phase.sign)) << client.output();
    std::this_thread::sleep_for(400ms); // well inside the phase
    const auto start = std::chrono::steady_clock::now();
    client.signal(SIGTERM);
    EXPECT_EQ(client.exitStatus(10s), 143);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1500ms);
    EXPECT_NE(client.output().find("\"event\":\"summary\""), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(
    Phases, Interrupted,
    testing::Values(Phase{"connecting", nullptr, "Connecting"},
                    Phase{"countdown", nullptr, "Retrying in 5s"},
                    Phase{"rendezvous", "refuse-rendezvous", "Connecting"},
                    Phase{"response", "never-answer", "Connecting"},
                    Phase{"sending", "slow-reading=1000000", "Uploading at"},
                    Phase{"nobodyReads", "stop-reading=1000000", "Uploading at"},
                    Phase{"closingDocument", "no-closing-document", "Connecting"}),
    [](const auto& phase) { return phase.param.name; });

TEST_F(EndToEnd, anInterruptUnderAnOpenQuestionLeavesTheCopyAlone)
{
    std::ignore = files.file("clip.mov", "x");
    std::ignore = root.file("clip.mov", "another file");
    startService();
    Process client(put({"clip.mov"}), {.terminal = true});
    ASSERT_TRUE(client.waitFor("[1] Cancel"));
    client.signal(SIGINT);
    EXPECT_EQ(client.exitStatus(2s), 130);
    EXPECT_EQ(contentOf(root.path() / "clip.mov"), "another file");
}

} // namespace
} // namespace quenmoor
