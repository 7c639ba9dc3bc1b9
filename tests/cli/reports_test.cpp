#include "cli/existing_question.h"
#include "cli/json_report.h"
#include "cli/text_reports.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace quenmoor {
namespace {

const Alert kAlert{"File Exists", "A previous file.", {"Cancel", "Overwrite", "Resume"}};

// A question whose user types at the other end of a pipe.
struct TerminalQuestionTest : testing::Test {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    TerminalQuestionTest()
    {
        EXPECT_EQ(pipe(in.data()), 0);
        EXPECT_EQ(pipe(out.data()), 0);
    }
    ~TerminalQuestionTest() override
    {
        for (const int end : {in[0], in[1], out[0], out[1]})
            close(end);
    }
    void type(const std::string& text) const
    {
        ASSERT_EQ(write(in[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string output() const
    {
        std::array<char, 4096> text{};
        const ssize_t got = read(out[0], text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(got)};
    }
};

TEST_F(TerminalQuestionTest, acceptsANumberANameOrItsBeginning)
{
    TerminalQuestion question(in[0], out[1]);
    type("3\nover\n CANCEL \n");
    EXPECT_EQ(question.ask(kAlert), kThirdButton);
    EXPECT_EQ(output(), "File Exists\nA previous file.\n[1] Cancel   [2] Overwrite   [3] Resume: ");
    EXPECT_EQ(question.ask(kAlert), kSecondButton);
    EXPECT_EQ(question.ask(kAlert), kFirstButton);
}

TEST_F(TerminalQuestionTest, isRepeatedUntilAnAnswerOrTheEndOfTheInput)
{
    TerminalQuestion question(in[0], out[1]);
    type("\n4\nyes\n" + std::string(5000, 'x') + "\nr\nyes\n");
    EXPECT_EQ(question.ask(kAlert), kThirdButton);
    close(in[1]);
    EXPECT_EQ(question.ask(kAlert), 0); // no button
}

TEST_F(TerminalQuestionTest, hasNoAnswerOnceAbandoned)
{
    TerminalQuestion question(in[0], out[1]);
    std::thread ender([&] {
        static_cast<void>(output()); // the question is open
        question.abandon();
    });
    EXPECT_EQ(question.ask(kAlert), std::nullopt);
    ender.join();
    EXPECT_EQ(question.ask(kAlert), std::nullopt);
}

AttemptEvent eventOf(AttemptEventKind kind)
{
    AttemptEvent event;
    event.kind = kind;
    event.attempt = 2;
    event.rate = 12;
    event.secondsLeft = std::chrono::seconds(5);
    return event;
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
