#include "cli/existing_policy.h"
#include "cli/json_report.h"
#include "cli/put_view.h"
#include "tests/engine/engine_fixture.h"

namespace quenmoor {
namespace {

struct KeptReport : PutReport {
    std::vector<PutEvent> events;
    void report(const PutEvent& event) override { events.push_back(event); }
};

// The engine over a fake link, seen through the events of the command line.
struct PutViewTest : EngineFixture {
    KeptReport kept;
    int ends = 0;
    Existing existing = Existing::Ask;
    PutView put{kept, [this](const Alert& alert) { return fixedAnswer(existing, alert); },
                [this] { ++ends; }};
    UploadEngine putEngine{queues, link, put, clock};

    std::string add(const std::string& name, std::size_t size)
    {
        put.addFile(name, static_cast<std::int64_t>(size));
        return queue(name, size);
    }

    void run() { putEngine.uploadFile(); }

    std::vector<std::string> story() const
    {
        std::vector<std::string> lines;
        for (const PutEvent& event : kept.events) {
            const char* const kinds[] = {"queued",   "status", "rate",      "question",
                                         "finished", "failed", "cancelled", "summary"};
            lines.push_back(std::to_string(event.row.value_or(99)) + " " +
                            kinds[static_cast<int>(event.kind)] +
                            (event.kind == PutEventKind::Status ? " " + *event.status : ""));
        }
        return lines;
    }
};

TEST_F(PutViewTest, tellsEveryChangeOfARowAndTheEndOfEachFile)
{
    add("a.mov", 10);
    const std::string content = add("b.mov", 10);
    serverHolds("b.mov", content, 10);
    link.plans = {{LinkFault::RefuseConnect}, {LinkFault::RefuseRendezvous}, {}};
    run();
    EXPECT_EQ(
        story(),
        (std::vector<std::string>{
            "0 queued", "1 queued", "0 status Connecting", "0 status Waiting (Error)",
            "0 status Connecting", "0 status Waiting (Error)", "0 status Retrying in 5s",
            "0 status Retrying in 4s", "0 status Retrying in 3s", "0 status Retrying in 2s",
            "0 status Retrying in 1s", "0 status Connecting", "0 status Finished", "0 finished",
            "1 status Connecting", "1 question", "1 status Canceled", "1 cancelled"}));
    EXPECT_EQ(kept.events[3].step, "announce");
    EXPECT_EQ(kept.events[5].step, "rendezvous");
    EXPECT_EQ(kept.events[13].attempt, 3);
    EXPECT_EQ(ends, 1);
    EXPECT_EQ(put.tally().finished, 1U);
    EXPECT_EQ(put.tally().cancelled, 1U);
    EXPECT_EQ(put.tally().bytes, 10);
}

TEST_F(PutViewTest, saysWhenAnAnswerIsNotOffered)
{
    existing = Existing::Resume;
    const std::string content = add("clip.mov", 10);
    serverHolds("clip.mov", content, 10); // complete: nothing to resume
    run();
    EXPECT_NE(kept.events[2].message->find("Answer: Cancel. \"Resume\" is not offered"),
              std::string::npos)
        << *kept.events[2].message;
    EXPECT_EQ(link.confirmations, std::vector<std::string>{"cancel"});
}

TEST_F(PutViewTest, tellsWhichFileWasGivenUpAndAtWhichStep)
{
    add("a.mov", 10);
    add("b.mov", 10);
    add("c.mov", 10);
    link.plans.assign(11, {LinkFault::Silent});
    link.plans.front() = {};
    run();
    EXPECT_TRUE(put.tally().gaveUp);
    EXPECT_EQ(put.failedRow(), 1U);
    EXPECT_EQ(put.tally().unfinished, 2U);
    EXPECT_EQ(kept.events.back().kind, PutEventKind::Failed);
    EXPECT_EQ(kept.events.back().step, "response");
    EXPECT_EQ(ends, 1);
}

TEST_F(PutViewTest, isSilentAndAnswersNothingOnceClosed)
{
    const std::string content = add("clip.mov", 10);
    serverHolds("clip.mov", content, 5);
    const std::size_t before = kept.events.size();
    put.close();
    run();
    EXPECT_EQ(kept.events.size(), before);
    EXPECT_TRUE(link.confirmations.empty());
}

TEST(JsonLine, holdsWhatAppliesAndSurvivesEveryName)
{
    PutEvent event;
    event.kind = PutEventKind::Status;
    event.file = "caf\xE9\n\".mov";
    event.row = 3;
    event.status = "Retrying in 5s";
    event.percent = 0;
    event.total = 5368709120;
    EXPECT_EQ(jsonLine(event),
              "{\"event\":\"status\",\"file\":\"caf\xEF\xBF\xBD\\n\\\".mov\",\"row\":3,"
              "\"status\":\"Retrying in 5s\",\"percent\":0,\"total\":5368709120}");
}

} // namespace
} // namespace quenmoor
