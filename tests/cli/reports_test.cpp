#include "cli/existing_question.h"
#include "cli/json_report.h"
#include "cli/text_reports.h"

#include <gtest/gtest.h>

#include <array>

namespace quenmoor {
namespace {

TEST(ButtonFor, acceptsANumberANameOrAnUnambiguousBeginning)
{
    const std::vector<std::string> buttons{"Cancel", "Overwrite", "Overlay"};
    const std::pair<const char*, std::optional<std::int32_t>> rows[]{
        {"3", kThirdButton},    {" CANCEL \r", kFirstButton}, {"overw", kSecondButton},
        {"over", std::nullopt}, {"", std::nullopt},           {"4", std::nullopt}};
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

Source sourceAt(std::int32_t percent)
{
    Source source;
    source.name = "clip.mov";
    source.percent = percent;
    return source;
}

TEST(ProgressLine, hasABarWhileSendingAndTheWaitOtherwise)
{
    const AttemptEvent progress = eventOf(AttemptEventKind::Progress);
    EXPECT_EQ(progressLine(sourceAt(50), progress, 80),
              "clip.mov  [############............]  50%  12.0 MB/s");
    EXPECT_EQ(progressLine(sourceAt(50), eventOf(AttemptEventKind::Waiting), 80),
              "clip.mov  Retrying in 5s (attempt 2)");
    EXPECT_LT(progressLine(sourceAt(50), progress, 30).size(), 34U);

    EXPECT_EQ(elideMiddle("short", 5), "short");
    EXPECT_EQ(elideMiddle("\u00e9\u00e9\u00e9\u00e9", 3), "\u00e9\u2026\u00e9");
    EXPECT_EQ(elideMiddle("abc", 1), "\u2026");
    EXPECT_EQ(elideMiddle("abc", 0), "");
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
            report.attemptChanged(sourceAt(percent), eventOf(AttemptEventKind::Progress));
        for (int second = 0; second < 3; ++second)
            report.attemptChanged(sourceAt(35), eventOf(AttemptEventKind::Waiting));
        report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Started));
        report.attemptChanged(sourceAt(0), eventOf(AttemptEventKind::Waiting));
    });
    EXPECT_EQ(text, "clip.mov: Uploading at 12.000 MB/s (1%)\n"
                    "clip.mov: Uploading at 12.000 MB/s (11%)\n"
                    "clip.mov: Uploading at 12.000 MB/s (35%)\n"
                    "clip.mov: Retrying in 5s (35%)\n"
                    "clip.mov: Connecting (0%)\n"
                    "clip.mov: Retrying in 5s (0%)\n");
}

TEST(JsonReportTest, writesOneLineWhateverTheNameIs)
{
    const auto text = written<JsonReport>([](JsonReport& report) {
        Source source = sourceAt(0);
        source.name = "caf\xE9\n\".mov";
        source.size = 5368709120;
        source.row = 3;
        report.queued(source);
        AttemptEvent event = eventOf(AttemptEventKind::Progress);
        event.bytes = 4294967297;
        report.attemptChanged(source, event);
    });
    const std::string common = ",\"file\":\"caf\xEF\xBF\xBD\\n\\\".mov\",\"row\":3,"
                               "\"total\":5368709120,";
    EXPECT_EQ(text, "{\"event\":\"queued\"" + common + "\"status\":\"Queued\",\"percent\":0}\n" +
                        "{\"event\":\"status\"" + common +
                        "\"status\":\"Uploading at 12.000 MB/s\",\"percent\":0}\n" +
                        "{\"event\":\"rate\"" + common +
                        "\"percent\":0,\"bytes\":4294967297,\"mib_per_s\":12.0}\n");
}

} // namespace
} // namespace quenmoor
