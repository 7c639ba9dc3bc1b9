// The command line, and whole runs over a fake link and a fake clock: exit status and output.
#include "cli/check_command.h"
#include "cli/existing_question.h"
#include "cli/json_report.h"
#include "cli/put_run.h"
#include "cli/sources.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <future>
#include <map>
#include <regex>
#include <sstream>

namespace quenmoor {
namespace {

using Texts = std::vector<std::string>;

auto parse(std::vector<const char*> arguments)
{
    arguments.insert(arguments.begin(), "quenmoor-put");
    return parsePutOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(PutOptionsTest, readsTheOptionsAndHasDefaults)
{
    const auto given = std::get<PutOptions>(parse(
        {"--token", "t1", "[a,b]", "--token", "[t]", "[]", "--existing", "resume", "--congestion",
         "library", "--limit-rate", "20m", "--retries", "0", "--keep-going"}));
    EXPECT_EQ(given.tokens, (Texts{"t1", "[t]"}));
    EXPECT_EQ(given.files, (Texts{"[a,b]", "[]"})); // no lists
    EXPECT_EQ(given.existing, ExistingPolicy::Resume);
    EXPECT_EQ(given.congestion, Congestion::Library);
    EXPECT_EQ(given.rateLimit, 20 << 20);
    EXPECT_TRUE(given.retry.attempts == 1 && given.retry.keepGoing);

    const auto omitted = std::get<PutOptions>(parse({"--token", "t", "a.mov"}));
    EXPECT_EQ(omitted.port, 65000);
    EXPECT_EQ(omitted.existing, ExistingPolicy::Ask);
    EXPECT_EQ(omitted.retry.attempts, 10U);

    for (const char* const time : {"7200", "7200s", "120m", "2h"}) {
        const auto limited = parse({"--token", "t", "--give-up-after", time, "a"});
        EXPECT_EQ(std::get<PutOptions>(limited).retry.timeLimit, std::chrono::hours(2));
    }
}

TEST(PutOptionsTest, readsTokensAndFilesFromOtherSourcesByteForByte)
{
    const TempFolder folder;
    const std::string list = folder.file("list", "\xEF\xBB\xBFt1\ta\tb \r\n\n[2]\t[x\xE9]");
    const std::string records = folder.file("nulls", std::string("t1\ta\n\0t2\tb\r\0", 12));
    const std::string tokens = folder.file("tokens", "t1\r\n[t2]\n");

    auto options = std::get<PutOptions>(parse({"--files-from", list.c_str()}));
    EXPECT_EQ(options.files, (Texts{"a\tb ", "[x\xE9]"}));
    EXPECT_EQ(options.tokens, (Texts{"t1", "[2]"}));
    options = std::get<PutOptions>(parse({"-0", "--files-from", records.c_str()}));
    EXPECT_EQ(options.files, (Texts{"a\n", "b\r"}));
    options = std::get<PutOptions>(parse({"--token-file", tokens.c_str(), "a", "b"}));
    EXPECT_EQ(options.tokens, (Texts{"t1", "[t2]"}));
    setenv("QUENMOOR_TOKENS", "v1\nv2", 1);
    options = std::get<PutOptions>(parse({"a", "b"}));
    EXPECT_EQ(options.tokens, (Texts{"v1", "v2"}));
    EXPECT_TRUE(std::holds_alternative<EarlyExit>(parse({"--token", "t", "a"}))); // two sources
    unsetenv("QUENMOOR_TOKENS");
}

TEST(PutOptionsTest, rejectsAWrongCommandLineWithItsReason)
{
    const TempFolder folder;
    const std::string noTab = folder.file("no-tab", "t\ta\nb\n");
    const std::string nul = folder.file("nul", std::string("t\ta\0", 4));
    const std::string tooLong = folder.file("long", std::string(65537, 'x'));
    const char* const port = "no port from 1 to 65535";
    const std::pair<const char*, std::vector<const char*>> rows[]{
        {"line 2: no tab between token and path", {"--files-from", noTab.c_str()}},
        {"line 1: contains a NUL byte", {"--files-from", nul.c_str()}},
        {"line 1: longer than 65536 bytes", {"--token-file", tooLong.c_str(), "a"}},
        {"no-file: No such file", {"--token-file", "no-file", "a"}},
        {"/: cannot be read", {"--token-file", "/", "a"}},
        {"FILE arguments", {"--files-from", "/dev/null", "a"}},
        {"more than one source", {"--files-from", "/dev/null", "--token", "t"}},
        {"--retries: \"␛[1m\"", {"--retries", "\x1b[1m", "--token", "t", "a"}},
        {"0 to 9999", {"--retries", "10000", "--token", "t", "a"}},
        {"--give-up-after", {"--give-up-after", "0s", "--token", "t", "a"}},
        {"--give-up-after", {"--give-up-after", "9999999h", "--token", "t", "a"}},
        {"1 token for 2 files", {"--token", "t", "a", "b"}},
        {"0 tokens for 1 file", {"a"}},
        {"FILE", {"--token", "t"}},
        {"a token must not be empty", {"--token", "", "a"}},
        {"--existing", {"--token", "t", "--existing", "maybe", "a"}},
        {"--congestion", {"--token", "t", "--congestion", "none", "a"}},
        {"--quiet", {"--token", "t", "--json", "--quiet", "a"}},
        {"not a rate", {"--token", "t", "--limit-rate", "1025G", "a"}},
        {"not a rate", {"--token", "t", "--limit-rate", "1023", "a"}},
        {"not a rate", {"--token", "t", "--limit-rate", "M", "a"}},
        {port, {"--host", "h:0", "--token", "t", "a"}},
        {port, {"--host", "h:65536", "--token", "t", "a"}},
        {"no host before the colon", {"--host", ":7", "--token", "t", "a"}},
    };
    for (const auto& [text, arguments] : rows) {
        const auto parsed = parse(arguments);
        const auto* const exit = std::get_if<EarlyExit>(&parsed);
        ASSERT_NE(exit, nullptr) << text;
        EXPECT_EQ(exit->status, kExitUsage);
        EXPECT_NE(exit->text.find(text), std::string::npos) << exit->text;
    }
}

TEST(CheckCommandTest, namesTheStepThatFailedAndWhatToDo)
{
    const auto options = std::get<CheckOptions>(parse({"check", "--host", "h:7", "--json"}));
    EXPECT_EQ(options.host + std::to_string(options.port), "h7");
    const std::tuple<LinkFault, std::string, std::string> rows[]{
        {LinkFault::RefuseConnect, "announce", ""},
        {LinkFault::RefuseRendezvous, "rendezvous", "connection "},
        {LinkFault::Silent, "response", "connection rendezvous "},
        {LinkFault::Refuse, "", "connection rendezvous response "},
        {LinkFault::None, "", "connection rendezvous response "}};
    for (const auto& [fault, failedAt, steps] : rows) {
        FakeTransferLink link;
        link.plans = {{fault}};
        CheckResult result;
        std::string lines;
        checkPath(
            link, FakeClock(),
            [&](const auto& line) { lines += line.substr(0, line.find(':')) + ' '; }, result);
        EXPECT_EQ(result.failedAt, failedAt);
        EXPECT_EQ(lines, steps);
        EXPECT_EQ(result.advice.empty(), result.works());
        EXPECT_TRUE(link.openSockets.empty());
        EXPECT_EQ(link.sentPerAttempt, (std::vector<std::int64_t>{0}));
        EXPECT_NE(link.requests[0].find("<token>check</token>"), std::string::npos);
    }
}

// The tables of docs/json.md by section: of an event, "Members" for all events about a file,
// "Steps". The text of a member is its type and, if it may be absent, " sometimes".
using JsonSchema = std::map<std::string, std::map<std::string, std::string>>;

JsonSchema documentedSchema()
{
    JsonSchema schema;
    std::string section;
    const std::string page = contentOf(SOURCE_FOLDER "/docs/json.md");
    const std::regex row("## `?(\\w+)|\\| `(\\w+)` \\| ([^|]*) \\|( sometimes)?");
    for (std::sregex_iterator found(page.begin(), page.end(), row), end; found != end; ++found) {
        if ((*found)[1].matched)
            section = (*found)[1];
        else
            schema[section][(*found)[2]] = (*found)[3].str() + (*found)[4].str();
    }
    return schema;
}

// Removes the members of `object` from `unseen`.
void check(JsonSchema& schema, nlohmann::json object, JsonSchema& unseen)
{
    const std::string event = object.at("event");
    ASSERT_TRUE(schema.contains(event)) << event;
    object.erase("event");
    const std::string common = object.contains("row") ? "Members" : "";
    for (const std::string& section : {event, common}) {
        for (const auto& [name, type] : schema[section]) {
            EXPECT_TRUE(object.contains(name) || type.ends_with(" sometimes")) << event << name;
            if (!object.contains(name))
                continue;
            const nlohmann::json value = object[name];
            EXPECT_TRUE(type.starts_with(value.type_name()) ||
                        (type.starts_with("integer") && value.is_number_integer()))
                << event << name << value;
            EXPECT_TRUE(name != "step" || schema["Steps"].contains(value)) << value;
            object.erase(name);
            unseen[section].erase(name);
        }
    }
    EXPECT_TRUE(object.empty()) << "not documented: " << event << object;
}

// Its current folder is temporary.
struct PutRun {
    const TempFolder folder;
    FakeTransferLink link;
    std::optional<FakeClock> clock; // of the latest run
    PutOptions options;
    OnInterrupt onInterrupt = [](int /*status*/) {};
    std::string out;

    PutRun()
    {
        options.output = OutputMode::Json;
        std::filesystem::current_path(folder.path());
    }

    // Creates a file in the current folder and adds it to the command line.
    void add(const std::string& name, std::size_t size)
    {
        folder.file(name, sampleContent(size));
        options.files.push_back(name);
        options.tokens.push_back("t" + std::to_string(options.files.size()));
    }

    int run()
    {
        clock.emplace();
        testing::internal::CaptureStdout();
        const int status = runPut(options, *clock, link, onInterrupt);
        out = testing::internal::GetCapturedStdout();
        return status;
    }

    void expectOutput(const std::string& text) const
    {
        EXPECT_NE(out.find(text), std::string::npos) << text << " in\n" << out;
    }
};

struct PutRunTest : testing::Test, PutRun {};

TEST_F(PutRunTest, writesStepAndReasonOfEachFailureAndTheAnswerToAQuestion)
{
    options.output = OutputMode::Human; // standard output is no terminal here
    options.existing = ExistingPolicy::Resume;
    add("a.mov", 10);
    add("b.mov", 10);
    link.copies["b.mov"] = {sampleContent(10), 10}; // complete: there is nothing to resume
    link.plans = {{LinkFault::RefuseConnect}, {LinkFault::RefuseRendezvous}};
    EXPECT_EQ(run(), kExitCancelled);
    EXPECT_EQ(out, "a.mov: queued, 10 B\nb.mov: queued, 10 B\n"
                   "a.mov: Connecting (0%)\na.mov: attempt 1 failed (announce): no answer\n"
                   "a.mov: Connecting (0%)\na.mov: attempt 2 failed (rendezvous): no answer\n"
                   "a.mov: Retrying in 5s (0%)\na.mov: Connecting (0%)\n"
                   "a.mov: finished, 10 B in 5.0 s, 0.0 MB/s\nb.mov: Connecting (0%)\n"
                   "b.mov: File Exists: A previous file for this upload has been found on "
                   "Quenmoor Transfer server. The file appears to be the same and the upload was "
                   "complete. Answer: Cancel. \"Resume\" is not offered for this copy.\n"
                   "b.mov: cancelled: the copy on the server was left unchanged\n"
                   "1 finished, 1 cancelled; 10 B sent\n");
}

TEST_F(PutRunTest, returnsOneAndRepeatsTheReasonWhenAFileIsGivenUp)
{
    add("a.mov", 100);
    add("b.mov", 100);
    link.plans.assign(10, {LinkFault::Refuse});
    EXPECT_EQ(run(), kExitGaveUp);
    expectOutput("\"step\":\"refused\",\"message\":\"gave up after 10 attempts (refused): the "
                 "server refused the upload\"}");
    expectOutput("0 finished, 1 given up, 1 not tried");
}

TEST_F(PutRunTest, handlesASignalWhileTheSocketsOfTheLastFileAreClosed)
{
    std::promise<int> handled;
    std::future<int> status = handled.get_future();
    onInterrupt = [&](int given) { handled.set_value(given); };
    link.onClose = [&, calls = 0]() mutable {
        if (++calls < 2) // after the transfer, and after the file has ended
            return;
        kill(getpid(), SIGTERM);
        status.wait_for(std::chrono::seconds(3)); // below the limit of the run
    };
    add("a.mov", 10);
    EXPECT_EQ(run(), kExitFinished);
    ASSERT_EQ(status.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_EQ(status.get(), kExitSignal + SIGTERM);
}

TEST(PutRunWithAChange, returnsFourAndSendsTheOtherFiles)
{
    const std::filesystem::path path("a.mov");
    const auto replace = [path] { return remove(path) && mkfifo(path.c_str(), 0600) == 0; };
    const auto touch = [path] { return last_write_time(path, {}), true; };
    const std::tuple<std::function<bool()>, LinkFault, int, std::string> rows[]{
        {[path] { return resize_file(path, 10), true; }, LinkFault::None, kExitUnreadable,
         "it is 10 bytes long and was 40000 when it was queued"},
        {replace, LinkFault::BreakAfter, kExitUnreadable, "cannot be read: it is not a plain file"},
        {[path] { return remove(path); }, LinkFault::None, kExitUnreadable, "\"changed\":true"},
        {touch, LinkFault::None, kExitUnreadable, "1 finished, 1 changed; 39.1 kB sent"},
        {touch, LinkFault::None, kExitFinished, "\"changed\":true"}};
    for (const auto& [change, fault, status, text] : rows) {
        SCOPED_TRACE(text);
        PutRun put;
        put.options.allowChanged = status == kExitFinished;
        put.add(path, 40000);
        put.add("b.mov", 10);
        put.link.plans = {{fault}};
        put.link.onSend = [&change = change, done = false]() mutable { done = done || change(); };
        EXPECT_EQ(put.run(), status);
        put.expectOutput(text);
        EXPECT_LE(put.clock->nanoseconds() - FakeClock().nanoseconds(),
                  200'000'000); // one poll of the empty queue
        EXPECT_EQ(put.link.requests.size(), 2U);
        EXPECT_EQ(put.link.copies["b.mov"].size(), 10);
    }
}

TEST_F(PutRunTest, keepsGoingAndReportsTheEndOfEachFileOnceAsDocumented)
{
    for (const char* const name : {"missing.mov", "refused.mov", "short.mov", "caf\xE9\n\".mov",
                                   "folder", "copy.mov", "same.mov", "part.mov", "garbage.mov"})
        add(name, 300000);
    std::filesystem::remove("missing.mov");
    options.files[4] = ".";
    options.retry = {.attempts = 2, .keepGoing = true};
    options.existing = ExistingPolicy::Skip;
    link.plans.assign(2, {LinkFault::Refuse});
    link.plans.insert(link.plans.end(), 2, {LinkFault::BreakAfter, 0});
    link.plans.insert(link.plans.end(), 4, {});
    link.plans.push_back({LinkFault::Garbage});
    link.copies = {{"copy.mov", {"other", 5}},
                   {"same.mov", {sampleContent(300000), 300000}},
                   {"part.mov", {sampleContent(200000), 300000}}};
    link.onSend = [this] {
        std::filesystem::resize_file("short.mov", 10);
        clock->sample();
    };
    EXPECT_EQ(run(), kExitGaveUp);
    // A server that omits the flags that are true has to send the size.
    EXPECT_FALSE(policyAnswer(options.existing, 9, {"", "", {""}, {{true, true, 0}}}).skip);
    std::vector<Source> ended(2);
    ended[0].state = SourceState::Cancelled;
    ended[1].state = SourceState::Unreadable;
    EXPECT_EQ(outcomeOf(ended, 0).status, kExitUnreadable);
    EXPECT_EQ(link.confirmations, (Texts{"resume", "cancel", "cancel", "resume", "cancel"}));
    EXPECT_EQ(link.copies["copy.mov"].bytes, "other");
    EXPECT_NE(link.requests.back().find("<token>t9</token>"), std::string::npos);
    expectOutput("\"message\":\"cannot be read: No such file or directory\"");
    expectOutput("is a directory");
    expectOutput("\"row\":2,\"total\":300000,\"attempt\":2,\"step\":\"open\"");
    expectOutput("2 finished, 1 skipped, 1 cancelled, 3 unreadable, 2 given up; 390.6 kB sent");

    JsonSchema schema = documentedSchema();
    JsonSchema unseen = schema;
    nlohmann::json object;
    Texts ends;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line); check(schema, object, unseen)) {
        object = nlohmann::json::parse(line);
        const std::string event = object["event"];
        if (event != "queued" && event != "status" && event != "step" && event != "rate")
            ends.push_back(std::to_string(object.value("row", -1)) + ' ' + event + ' ' +
                           object.value("step", ""));
    }
    EXPECT_EQ(ends,
              (Texts{"-1 start ", "0 failed open", "4 failed open", "1 failed refused",
                     "2 failed open", "3 finished ", "5 question ", "5 cancelled ", "6 skipped ",
                     "7 question ", "7 finished ", "8 failed response", "-1 summary "}));
    CheckResult result{
        .address = "192.0.2.1:7", .roundTripMs = 1, .rendezvousMs = 2, .receiveBuffer = 3};
    for (const char* const step : {"resolve", ""}) {
        result.failedAt = step;
        testing::internal::CaptureStdout();
        writeCheck(stdout, {"h", 7}, result);
        check(schema, nlohmann::json::parse(testing::internal::GetCapturedStdout()), unseen);
    }
    unseen.erase("Steps");
    for (const auto& [event, members] : unseen)
        EXPECT_TRUE(members.empty()) << event << " " << members.begin()->first;
}

TEST_F(PutRunTest, listsTheFilesOfADryRunWithoutALink)
{
    options.output = OutputMode::Human;
    options.dryRun = true;
    add("a.mov", 2048);
    EXPECT_EQ(run(), kExitFinished);
    EXPECT_EQ(out, "a.mov: queued, 2.0 kB\n"
                   "1 to send, 2.0 kB; 0 unreadable; nothing was sent\n");
    options.files[0] = "missing.mov";
    EXPECT_EQ(run(), kExitUnreadable);
    EXPECT_TRUE(link.requests.empty());
}

} // namespace
} // namespace quenmoor
