// The uploads of a simulation so far, and what the rules of the system require of them.
#pragma once

#include "engine/existing_file.h"
#include "engine/retry_schedule.h"
#include "protocol/documents.h"
#include "queue/status_table.h"

#include <fmt/format.h>

#include <array>
#include <tuple>
#include <vector>

namespace quenmoor {

class History {
public:
    // What holds in every history. The list is complete.
    static constexpr const char* kOrder = "files are uploaded in their order, each of them once";
    static constexpr const char* kOneAttempt = "one attempt runs at a time";
    static constexpr const char* kSockets = "an attempt closes its sockets";
    static constexpr const char* kAnswer = "nothing is sent before the question is answered";
    static constexpr const char* kQuestion =
        "a file is asked about once, and only if a copy exists";
    static constexpr const char* kButtons = "the question offers what the copy permits";
    static constexpr const char* kDecision = "every attempt confirms the decision";
    static constexpr const char* kOffset = "a transfer begins at the end of the server's copy";
    static constexpr const char* kSize = "no more bytes are sent than the file has";
    static constexpr const char* kContent = "every block is the part of the file at its position";
    static constexpr const char* kIdentical = "the server holds the bytes of a finished file";
    static constexpr const char* kOutcome = "an attempt ends as link, server and source require";
    static constexpr const char* kFinal = "a file has one final state or remains queued";
    static constexpr const char* kText = "a row displays the latest event";
    static constexpr const char* kPercent = "the percentage follows the position to 100";
    static constexpr const char* kCounts = "events have the counts and the time of the file";
    static constexpr const char* kWaits = "waits between attempts follow the schedule";
    static constexpr const char* kLimit = "a file is given up at the limit and not before";
    static constexpr const char* kAlert = "one final alert ends the program";
    static constexpr const char* kEnd = "nothing begins after the end of the program";
    static constexpr const char* kBounded = "an attempt takes a bounded time and number of calls";

    RetryPolicy policy;

protected:
    // A file in the upload queue, and what has become of it.
    struct Row {
        std::size_t source;
        std::string token;
        std::string content = {}; // to be uploaded
        std::int32_t choice = kUndecided;
        std::int32_t attempts = 0;
        std::int32_t failures = 0; // in a row
        std::int64_t sent = 0;     // bytes, in all attempts
        std::int64_t startedAt = 0;
        bool misled = false; // by a document with a false size, existence or equality

        std::int64_t total() const { return std::ssize(content); }
    };

    struct Attempt {
        std::size_t row = 0;
        bool connected = false;
        bool confirmed = false;
        bool sending = false;
        bool undrained = false;
        bool stalled = false;    // undrained and still connected
        bool sourceLost = false; // and the policy gives up such a file
        bool gaveUp = false;
        std::optional<AttemptStep> failedAt = {}; // by the link
        std::optional<ResponseContainer> seen;    // as it arrived
        std::optional<std::int64_t> closing;      // likewise
        std::int64_t sent = 0;
        std::int64_t calls = 0;
        int waited = 0; // seconds
        std::chrono::milliseconds polled{0};
        std::optional<AttemptEvent> outcome; // Finished, Cancelled or Failed
    };

    void check(const char* name, bool holds)
    {
        if (!holds && violated_ == nullptr)
            violated_ = name;
    }

    Row& row() { return rows_.at(a_.row); }

    // The position at which the transfer has to begin.
    std::int64_t offset()
    {
        return a_.seen.value().exists && row().choice != kOverwrite ? a_.seen->size : 0;
    }

    void drain(bool acknowledged, bool connected)
    {
        a_.undrained = !acknowledged;
        a_.stalled = a_.undrained && connected;
        if (a_.stalled)
            a_.failedAt = AttemptStep::Drain;
    }

    // The seconds to wait after the latest failure.
    int delay()
    {
        constexpr std::array kDelays{0, 0, 5, 15, 30, 60, 120, 240, 480, 900};
        return kDelays.at(static_cast<std::size_t>(std::min(row().failures, 9)));
    }

    // The file has a final state, and the next one follows.
    bool leftQueue() const
    {
        return a_.outcome && (a_.outcome->kind != AttemptEventKind::Failed ||
                              (a_.gaveUp && (policy.keepGoing || a_.sourceLost)));
    }

    std::tuple<AttemptEventKind, AttemptStep, std::string> requiredOutcome()
    {
        using Kind = AttemptEventKind;
        if (a_.sourceLost)
            return {Kind::Failed, AttemptStep::Open, "the file cannot be read: "};
        if (a_.seen && row().choice == kCancel)
            return {Kind::Cancelled, AttemptStep::Confirm, ""};
        if (a_.failedAt)
            return {Kind::Failed, *a_.failedAt,
                    a_.stalled ? "the server acknowledged no data for 10 s" : "no answer"};
        if (a_.seen.value().response == 1)
            return {Kind::Failed, AttemptStep::Refused, "the server refused the upload"};
        if (offset() < 0)
            return {Kind::Failed, AttemptStep::Confirm,
                    fmt::format("the server reports a copy of {} bytes", offset())};
        const std::int64_t position = offset() + a_.sent;
        if (position < row().total())
            return {Kind::Failed, AttemptStep::Send, "the file "};
        if (a_.closing.value() < position)
            return {Kind::Failed, AttemptStep::Finish,
                    fmt::format("the server holds {} of {} bytes", *a_.closing, position)};
        return {Kind::Finished, AttemptStep::Finish, ""};
    }

    void startAttempt(const AttemptEvent& event, std::int64_t now)
    {
        a_ = {};
        a_.row = rowsDone_;
        check(kOrder, event.row == a_.row);
        if (row().attempts++ == 0)
            row().startedAt = now;
        check(kCounts, event.attempt == row().attempts && event.attemptLimit == policy.attempts &&
                           event.attemptInRow == static_cast<std::size_t>(row().failures) + 1);
    }

    // Checks what the end of the attempt reveals.
    void endAttempt(bool ending)
    {
        check(kOutcome, a_.outcome || ending);
        const bool failed = a_.outcome && a_.outcome->kind == AttemptEventKind::Failed;
        const bool lastOne =
            failed && (a_.sourceLost || row().failures >= static_cast<int>(policy.attempts) ||
                       (policy.timeLimit &&
                        a_.outcome->elapsed + std::chrono::seconds(delay()) > *policy.timeLimit));
        check(kLimit, a_.gaveUp == lastOne);
        check(kWaits,
              a_.waited == (failed && !lastOne ? delay() : 0) || (ending && a_.waited < delay()));
        rowsDone_ += leftQueue() ? 1U : 0U;
    }

    // `shown`: its row.
    void checkEvent(const AttemptEvent& event, const TableContainer& shown, std::int64_t now)
    {
        const std::string text = statusText(event);
        const std::int32_t percent = statusPercent(event);
        check(kText, text.empty() || shown.status == text);
        check(kText, (text == "Canceled") == (event.kind == AttemptEventKind::Cancelled));
        check(kPercent, shown.percent >= 0 && shown.percent <= 100 &&
                            (percent < 0 || shown.percent == percent) &&
                            (event.kind != AttemptEventKind::Finished || percent == 100));
        check(kFinal, event.row == a_.row);
        check(kCounts, event.sentBytes == row().sent && event.total == row().total() &&
                           event.elapsed.count() == now - row().startedAt);
        if (event.kind == AttemptEventKind::Progress)
            check(kCounts, event.bytes == offset() + a_.sent);
    }

    std::vector<Row> rows_;
    Attempt a_;
    std::size_t rowsDone_ = 0;       // their files have left the queue
    const char* violated_ = nullptr; // the first invariant that did not hold
};

} // namespace quenmoor
