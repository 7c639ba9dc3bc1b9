#include "cli/plain_report.h"
#include "cli/shown_text.h"
#include "cli/terminal_question.h"
#include "cli/terminal_report.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <thread>

namespace quenmoor {
namespace {

const Alert kAlert{"File Exists", "A previous file.", {"Cancel", "Overwrite", "Resume"}};

// A question whose user types at the other end of a pipe.
struct Typed : testing::Test {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    Typed()
    {
        EXPECT_EQ(pipe(in.data()), 0);
        EXPECT_EQ(pipe(out.data()), 0);
    }
    ~Typed() override
    {
        for (const int end : {in[0], in[1], out[0], out[1]})
            close(end);
    }
    void type(const std::string& text) const
    {
        ASSERT_EQ(write(in[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    std::string said() const
    {
        std::array<char, 4096> text{};
        const ssize_t got = read(out[0], text.data(), text.size());
        return {text.data(), static_cast<std::size_t>(got)};
    }
};

TEST_F(Typed, aQuestionTakesANumberANameOrItsBeginning)
{
    TerminalQuestion question(in[0], out[1]);
    type("3\nover\n CANCEL \n");
    EXPECT_EQ(question.ask(kAlert), kThirdButton);
    EXPECT_EQ(said(), "File Exists\nA previous file.\n[1] Cancel   [2] Overwrite   [3] Resume: ");
    EXPECT_EQ(question.ask(kAlert), kSecondButton);
    EXPECT_EQ(question.ask(kAlert), kFirstButton);
}

TEST_F(Typed, aQuestionIsAskedAgainUntilItIsAnsweredOrTheInputEnds)
{
    TerminalQuestion question(in[0], out[1]);
    type("\n4\nyes\n" + std::string(5000, 'x') + "\nr\nyes\n");
    EXPECT_EQ(question.ask(kAlert), kThirdButton);
    close(in[1]);
    EXPECT_EQ(question.ask(kAlert), 0); // no button
}

TEST_F(Typed, anAbandonedQuestionHasNoAnswer)
{
    TerminalQuestion question(in[0], out[1]);
    std::thread ender([&] {
        static_cast<void>(said()); // it stands
        question.abandon();
    });
    EXPECT_EQ(question.ask(kAlert), std::nullopt);
    ender.join();
    EXPECT_EQ(question.ask(kAlert), std::nullopt);
}

TEST(ShownText, fitsTheTerminal)
{
    EXPECT_EQ(elidedMiddle("short", 5), "short");
    EXPECT_EQ(elidedMiddle("a-long-name.mov", 8), "a-lo\u2026mov");
    EXPECT_EQ(elidedMiddle("\u00e9\u00e9\u00e9\u00e9", 3), "\u00e9\u2026\u00e9");
    EXPECT_EQ(elidedMiddle("abc", 1), "\u2026");
    EXPECT_EQ(elidedMiddle("abc", 0), "");
    EXPECT_EQ(shownSize(1023), "1023 B");
    EXPECT_EQ(shownSize(5368709120), "5.0 GB");
}

PutEvent statusEvent(const std::string& status, std::int32_t percent)
{
    PutEvent event;
    event.kind = PutEventKind::Status;
    event.file = "clip.mov";
    event.status = status;
    event.percent = percent;
    event.attempt = 2;
    return event;
}

TEST(ProgressLine, showsABarWhileSendingAndTheWaitOtherwise)
{
    PutEvent event = statusEvent("Uploading at 12.000 MB/s", 50);
    event.mbps = 12;
    EXPECT_EQ(progressLine(event, *event.status, 80),
              "clip.mov  [############............]  50%  12.0 MB/s");
    EXPECT_EQ(progressLine(event, "Retrying in 5s", 80), "clip.mov  Retrying in 5s (attempt 2)");
    EXPECT_LT(progressLine(event, *event.status, 30).size(), 34U);
}

TEST(PlainReport, leavesTheTicksOut)
{
    std::array<char, 4096> text{};
    std::FILE* const out = fmemopen(text.data(), text.size(), "w");
    PlainReport report(out);
    for (const int percent : {1, 2, 11, 12, 35})
        report.report(statusEvent("Uploading at 1.000 MB/s", percent));
    for (const int left : {15, 14, 13})
        report.report(statusEvent("Retrying in " + std::to_string(left) + "s", 35));
    report.report(statusEvent("Connecting", 0));
    report.report(statusEvent("Retrying in 30s", 0));
    std::fclose(out);
    EXPECT_STREQ(text.data(), "clip.mov: Uploading at 1.000 MB/s (1%)\n"
                              "clip.mov: Uploading at 1.000 MB/s (11%)\n"
                              "clip.mov: Uploading at 1.000 MB/s (35%)\n"
                              "clip.mov: Retrying in 15s (35%)\n"
                              "clip.mov: Connecting (0%)\n"
                              "clip.mov: Retrying in 30s (0%)\n");
}

} // namespace
} // namespace quenmoor
