#include "cli/put_report.h"

#include <fmt/format.h>

#include <array>

namespace quenmoor {
namespace {

double secondsOf(const AttemptEvent& event)
{
    return std::chrono::duration<double>(event.elapsed).count();
}

std::string finishedText(const AttemptEvent& event)
{
    return fmt::format(
        "finished, {}{} in {:.1f} s, {:.1f} MB/s{}", formatSize(event.total),
        event.sentBytes == event.total ? ""
                                       : fmt::format(" ({} sent)", formatSize(event.sentBytes)),
        secondsOf(event), averageRate(event),
        event.sourceChanged ? "; warning: the file changed after it was queued" : "");
}

} // namespace

double averageRate(const AttemptEvent& finished)
{
    const double seconds = secondsOf(finished);
    return seconds > 0 ? static_cast<double>(finished.sentBytes) / kBytesPerMebibyte / seconds : 0;
}

std::string eventText(const AttemptEvent& event)
{
    switch (event.kind) {
    case AttemptEventKind::Failed:
        return fmt::format("attempt {} failed ({}): {}", event.attempt, stepName(event.step),
                           event.reason);
    case AttemptEventKind::GaveUp:
        return fmt::format("gave up after {} {} ({}): {}", event.attempt,
                           event.attempt == 1 ? "attempt" : "attempts", stepName(event.step),
                           event.reason);
    case AttemptEventKind::Finished: return finishedText(event);
    case AttemptEventKind::Cancelled: return "cancelled: the copy on the server was left unchanged";
    case AttemptEventKind::StepChanged: return std::string(phaseName(event.step));
    case AttemptEventKind::Started:
    case AttemptEventKind::Progress:
    case AttemptEventKind::Waiting: break;
    }
    return statusText(event);
}

std::string unreadableText(const std::string& why)
{
    return "cannot be read: " + why;
}

std::string summaryText(const RunOutcome& outcome)
{
    if (outcome.dryRun)
        return fmt::format("{} to send, {}; {} unreadable; nothing was sent", outcome.untried,
                           formatSize(outcome.untriedSize), outcome.unreadable);
    std::string text = fmt::format("{} finished", outcome.finished);
    const auto add = [&text](std::size_t count, const char* state) {
        if (count > 0)
            text += fmt::format(", {} {}", count, state);
    };
    add(outcome.changed, "changed");
    add(outcome.cancelled, "cancelled");
    add(outcome.unreadable, "unreadable");
    add(outcome.gaveUp, "given up");
    add(outcome.unfinished, "not finished");
    add(outcome.untried, "not tried");
    if (outcome.interrupted)
        text += ", interrupted";
    if (!outcome.failure.empty())
        text += ", ended because " + outcome.failure;
    text += fmt::format("; {} sent", formatSize(outcome.sentBytes));
    if (outcome.resumedBytes > 0)
        text += fmt::format(", {} already on the server", formatSize(outcome.resumedBytes));
    return text;
}

std::string formatSize(std::int64_t bytes)
{
    constexpr std::array<const char*, 5> kUnits{"B", "kB", "MB", "GB", "TB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < kUnits.size()) {
        value /= 1024;
        ++unit;
    }
    return unit == 0 ? fmt::format("{} B", bytes)
                     : fmt::format("{:.1f} {}", value, kUnits.at(unit));
}

} // namespace quenmoor
