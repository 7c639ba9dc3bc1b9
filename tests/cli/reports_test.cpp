#include "cli/existing_question.h"
#include "cli/terminal_report.h"
#include "cli/terminal_text.h"
#include "cli/text_reports.h"

#include <gtest/gtest.h>

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
    return {.kind = kind, .attempt = 2, .rate = 12, .secondsLeft = 5s};
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

TEST(PlainReportTest, hasOneLineForEachTenthOfAFileAndOneForEachWait)
{
    PlainReport report(stdout);
    testing::internal::CaptureStdout();
    for (const int percent : {1, 2, 11, 12, 35})
        report.attemptChanged(sourceAt(percent), eventOf(AttemptEventKind::Progress), {});
    for (int second = 0; second < 3; ++second)
        report.attemptChanged(sourceAt(35), eventOf(AttemptEventKind::Waiting), {});
    report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Started), {});
    report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Waiting), {});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "clip.mov: Uploading at 12.000 MB/s (1%)\n"
                                                      "clip.mov: Uploading at 12.000 MB/s (11%)\n"
                                                      "clip.mov: Uploading at 12.000 MB/s (35%)\n"
                                                      "clip.mov: Retrying in 5s (35%)\n"
                                                      "clip.mov: Connecting (0%)\n"
                                                      "clip.mov: Retrying in 5s (0%)\n");
}

} // namespace
} // namespace quenmoor
