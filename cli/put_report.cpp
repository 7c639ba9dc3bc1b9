#include "cli/put_report.h"

#include <fmt/format.h>

#include <array>

namespace quenmoor {
namespace {

struct Unit {
    double bytes = 1;
    const char* name = "B";
};

// The unit for `bytes`, so that the number is at least 1 if possible.
Unit unitFor(std::int64_t bytes)
{
    constexpr std::array<const char*, 4> kLargerUnits{"kB", "MB", "GB", "TB"};
    Unit unit;
    for (const char* const name : kLargerUnits) {
        if (static_cast<double>(bytes) / unit.bytes < 1024)
            break;
        unit = {unit.bytes * 1024, name};
    }
    return unit;
}

std::string inUnit(std::int64_t bytes, const Unit& unit)
{
    return unit.bytes == 1 ? std::to_string(bytes)
                           : fmt::format("{:.1f}", static_cast<double>(bytes) / unit.bytes);
}

// "45 s", "12 min", "2 h 05 min", "3 d 4 h"
std::string durationText(std::chrono::seconds time)
{
    const auto seconds = time.count();
    const auto minutes = (seconds + 59) / 60;
    const auto hours = minutes / 60;
    if (seconds < 60)
        return fmt::format("{} s", seconds);
    if (minutes < 60)
        return fmt::format("{} min", minutes);
    return hours < 24 ? fmt::format("{} h {:02} min", hours, minutes % 60)
                      : fmt::format("{} d {} h", hours / 24, hours % 24);
}

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

std::string eventText(const Source& source, const AttemptEvent& event)
{
    return source.state == SourceState::Skipped ? "skipped: the server holds the whole file"
                                                : eventText(event);
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
    add(outcome.skipped, "skipped");
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

std::string progressText(const RunProgress& run)
{
    std::string text;
    if (run.files > 1) {
        const Unit unit = unitFor(run.total);
        text = fmt::format("{} of {}, {} of {} {}", run.file, run.files, inUnit(run.bytes, unit),
                           inUnit(run.total, unit), unit.name);
    }
    if (run.timeLeft)
        text += (text.empty() ? "" : ", ") + durationText(*run.timeLeft) + " left";
    return text;
}

std::string formatSize(std::int64_t bytes)
{
    const Unit unit = unitFor(bytes);
    return inUnit(bytes, unit) + " " + unit.name;
}

} // namespace quenmoor
