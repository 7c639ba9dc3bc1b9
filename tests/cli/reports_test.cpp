#include "cli/existing_question.h"
#include "cli/json_report.h"
#include "cli/put_run.h"
#include "cli/terminal_report.h"
#include "cli/terminal_text.h"
#include "cli/text_reports.h"
#include "tests/fakes/fake_clock.h"
#include "tests/fakes/fake_transfer_link.h"
#include "tests/fakes/temp_folder.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <regex>
#include <sstream>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

TEST(ButtonFor, acceptsANumberANameOrAnUnambiguousBeginning)
{
    const std::vector<std::string> buttons{"Cancel", "Overwrite", "Overlay"};
    const std::pair<const char*, std::optional<std::int32_t>> rows[]{
        {"3", kThirdButton},    {" CANCEL \r", kFirstButton}, {"overw", kSecondButton},
        {"over", std::nullopt}, {" ", kFirstButton},          {"4", std::nullopt}};
    for (const auto& [line, button] : rows)
        EXPECT_EQ(buttonFor(line, buttons), button) << line;
}

AttemptEvent eventOf(AttemptEventKind kind)
{
    return {.kind = kind,
            .attempt = 2,
            .rate = 12,
            .secondsLeft = std::chrono::seconds(5),
            .reason = {}};
}

Source sourceAt(std::int32_t percent, const std::string& name = "clip.mov")
{
    Source source;
    source.name = source.label = name;
    source.percent = percent;
    return source;
}

TEST(ProgressLine, leavesOutWhatDoesNotFit)
{
    AttemptEvent event = eventOf(AttemptEventKind::Progress);
    RunProgress run{3, 12, std::int64_t{41062} << 20U, std::int64_t{98304} << 20U, 725s};
    const std::string overall = "  3 of 12, 40.1 of 96.0 GB, 13 min left";
    const std::string wide =
        "\u6620\u753b\u306e\u4e88\u544a\u7de8\u6620\u753b.mov"; // 2 columns each
    const std::tuple<std::string, std::size_t, std::string> rows[]{
        {"clip.mov", 90, "clip.mov  [###########...........]  50%  12.0 MB/s" + overall},
        {"clip.mov", 80, "clip.mov  [######......]  50%  12.0 MB/s" + overall},
        {"clip.mov", 70, "clip.mov   50%  12.0 MB/s" + overall},
        {"clip.mov", 55, "clip.mov   50%" + overall},
        {"clip.mov", 30, "clip.mov   50%  12.0 MB/s"},
        {"clip.mov", 8, "cli\u202650%"},
        {wide, 71, "\u6620\u753b\u306e\u2026\u753b.mov   50%  12.0 MB/s" + overall},
        {"cafe\u0301.mov", 70, "cafe\u0301.mov   50%  12.0 MB/s" + overall}};
    for (const auto& [name, columns, line] : rows) {
        EXPECT_EQ(progressLine(sourceAt(50, name), event, run, columns), line);
        EXPECT_LT(columnsOf(line), columns);
    }
    run.files = 1;
    run.timeLeft = 26h;
    event.firstSample = true;
    EXPECT_EQ(progressLine(sourceAt(0), event, run, 60),
              "clip.mov  [........................]   0%  1 d 2 h left");
    EXPECT_EQ(progressLine(sourceAt(50), eventOf(AttemptEventKind::Waiting), {}, 80),
              "clip.mov  Retrying in 5s (attempt 2)");
}

TEST(TerminalText, countsColumnsAndKeepsCharactersWhole)
{
    const std::tuple<std::string, std::size_t, std::string> rows[]{
        {"short", 5, "short"},
        {"abc", 1, "\u2026"},
        {"abc", 0, ""},
        {"e\u0301e\u0301e\u0301e\u0301", 3, "e\u0301\u2026e\u0301"},
        {"\u6620\u753b\u306e\u4e88", 6, "\u6620\u2026\u4e88"}};
    for (const auto& [text, columns, elided] : rows)
        EXPECT_EQ(elideMiddle(text, columns), elided);
    EXPECT_EQ(distinctEnds({"a/x/c", "b/x/c", "x/d", "dir/", "/", "c", "e", "e"}),
              (std::vector<std::string>{"a/x/c", "b/x/c", "d", "dir", "/", "c", "e", "e"}));
    EXPECT_EQ(formatSize(1023), "1023 B");
    EXPECT_EQ(formatSize(5368709120), "5.0 GB");
}

// What `report` writes.
template <typename Report, typename Action>
std::string written(Action action)
{
    std::array<char, 4096> text{};
    std::FILE* const out = fmemopen(text.data(), text.size(), "w");
    Report report(out);
    action(report);
    std::fclose(out);
    return text.data();
}

TEST(PlainReportTest, hasOneLineForEachTenthOfAFileAndOneForEachWait)
{
    const auto text = written<PlainReport>([](PlainReport& report) {
        for (const int percent : {1, 2, 11, 12, 35})
            report.attemptChanged(sourceAt(percent), eventOf(AttemptEventKind::Progress), {});
        for (int second = 0; second < 3; ++second)
            report.attemptChanged(sourceAt(35), eventOf(AttemptEventKind::Waiting), {});
        report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Started), {});
        report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Waiting), {});
    });
    EXPECT_EQ(text, "clip.mov: Uploading at 12.000 MB/s (1%)\n"
                    "clip.mov: Uploading at 12.000 MB/s (11%)\n"
                    "clip.mov: Uploading at 12.000 MB/s (35%)\n"
                    "clip.mov: Retrying in 5s (35%)\n"
                    "clip.mov: Connecting (0%)\n"
                    "clip.mov: Retrying in 5s (0%)\n");
}

struct JsonMember {
    std::string type;
    bool always;
    bool seen = false;
};

// The tables of docs/json.md by section: of an event, "Members" for all events about a file,
// "Steps".
using JsonSchema = std::map<std::string, std::map<std::string, JsonMember>>;

JsonSchema documentedSchema()
{
    JsonSchema schema;
    std::string section;
    std::istringstream page(contentOf(SOURCE_FOLDER "/docs/json.md"));
    const std::regex row("\\| `(\\w+)` \\| ([^|]*) \\|(?: (\\w+) \\|.*)?");
    for (std::string line; std::getline(page, line);) {
        std::smatch found;
        if (std::regex_match(line, found, std::regex("## `?(\\w+).*")))
            section = found[1];
        else if (std::regex_match(line, found, row))
            schema[section][found[1]] = {found[2], found[3] == "always"};
    }
    return schema;
}

void check(JsonSchema& schema, const nlohmann::json& object)
{
    const std::string event = object.at("event");
    ASSERT_TRUE(schema.contains(event)) << event;
    const bool aboutAFile = event != "start" && event != "summary" && event != "check";
    for (const auto& [name, value] : object.items()) {
        auto& table =
            aboutAFile && schema["Members"].contains(name) ? schema["Members"] : schema[event];
        if (name == "event")
            continue;
        ASSERT_TRUE(table.contains(name)) << object;
        const bool integer = table[name].type == "integer";
        EXPECT_TRUE(integer ? value.is_number_integer() : table[name].type == value.type_name())
            << name << " in " << object;
        table[name].seen = true;
        EXPECT_TRUE(name != "step" || schema["Steps"].contains(value)) << value;
    }
    for (const auto& table : {schema[event], aboutAFile ? schema["Members"] : schema[event]})
        for (const auto& [name, member] : table)
            EXPECT_TRUE(!member.always || object.contains(name)) << name << " in " << object;
}

TEST(JsonReportTest, writesWhatIsDocumented)
{
    const TempFolder folder;
    PutOptions options;
    options.output = OutputMode::Json;
    options.retry = {.attempts = 2, .keepGoing = true};
    for (const std::string name :
         {"refused.mov", "caf\xE9\n\".mov", "copy.mov", "same.mov", "missing.mov"}) {
        options.files.push_back(folder.file(name, sampleContent(300000)));
        options.tokens.emplace_back("t");
    }
    std::filesystem::remove(options.files.back());
    FakeTransferLink link;
    link.plans.assign(2, {LinkFault::Refuse});
    link.copies["copy.mov"] = {"other", 5};
    link.copies["same.mov"] = {sampleContent(300000), 300000};
    options.existing = ExistingPolicy::Skip;
    FakeClock clock;
    link.onSend = [&clock] { clock.sample(); };
    testing::internal::CaptureStdout();
    EXPECT_EQ(runPut(options, clock, link, [](int /*status*/) {}), kExitGaveUp);
    std::istringstream lines(testing::internal::GetCapturedStdout());

    JsonSchema schema = documentedSchema();
    nlohmann::json last;
    for (std::string line; std::getline(lines, line); check(schema, last))
        last = nlohmann::json::parse(line);
    EXPECT_EQ(last["finished"], 1);
    EXPECT_EQ(last["cancelled"], 1);
    EXPECT_EQ(last["skipped"], 1);
    EXPECT_EQ(last["bytes"], 300000);
    CheckResult result{
        .address = "192.0.2.1:7", .roundTripMs = 1, .rendezvousMs = 2, .receiveBuffer = 3};
    for (const char* const step : {"resolve", ""}) {
        result.failedAt = step;
        testing::internal::CaptureStdout();
        writeCheck(stdout, {"h", 7}, result);
        check(schema, nlohmann::json::parse(testing::internal::GetCapturedStdout()));
    }
    schema.erase("Steps");
    for (const auto& [event, members] : schema)
        for (const auto& [name, member] : members)
            EXPECT_TRUE(member.seen) << event << " " << name;
}

} // namespace
} // namespace quenmoor
