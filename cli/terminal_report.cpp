#include "cli/terminal_report.h"

#include "base/text.h"
#include "cli/terminal_text.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace quenmoor {
namespace {

constexpr std::size_t kLongestBar = 24;
constexpr std::size_t kShortestBar = 8;
constexpr std::size_t kLongestName = 28;
constexpr std::size_t kShortestName = 12;
constexpr std::size_t kDefaultColumns = 80;

std::size_t terminalColumns(std::FILE* out)
{
    winsize size{};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kDefaultColumns;
    return size.ws_col;
}

std::string bar(std::int32_t percent, std::size_t cells)
{
    const auto filled = static_cast<std::size_t>(std::clamp(percent, 0, 100)) * cells / 100;
    return '[' + std::string(filled, '#') + std::string(cells - filled, '.') + "] ";
}

std::string labelOf(const Source& source)
{
    return printableLine(source.label);
}

std::string stateText(const Source& source, const AttemptEvent& event)
{
    std::string state;
    switch (event.kind) {
    case AttemptEventKind::Progress: return fmt::format("{:3}%", source.percent);
    case AttemptEventKind::StepChanged:
        state = phaseName(event.step);
        state[0] = static_cast<char>(state[0] - 'a' + 'A');
        break;
    default: state = statusText(event);
    }
    if (event.attempt > 1)
        state += fmt::format(" (attempt {})", event.attempt);
    return state;
}

} // namespace

std::string progressLine(const Source& source, const AttemptEvent& event, const RunProgress& run,
                         std::size_t columns)
{
    // The last column stays empty, because a full line makes some terminals begin the next one.
    const std::size_t width = std::max<std::size_t>(columns, 2) - 1;
    const std::string label = labelOf(source);
    const std::size_t least = std::min(columnsOf(label), kShortestName) + 2;
    const std::string state = stateText(source, event);
    const bool sampled = event.kind == AttemptEventKind::Progress;
    const std::string rate =
        sampled && !event.firstSample ? fmt::format("  {:.1f} MB/s", event.rate) : "";
    std::string all = progressText(run);
    all = all.empty() ? "" : "  " + all;

    // What does not fit is left out, first the rate, then the progress of the run.
    std::string end = state;
    for (const std::string& candidate :
         {fmt::format("{}{}{}", state, rate, all), state + all, state + rate}) {
        if (least + columnsOf(candidate) <= width) {
            end = candidate;
            break;
        }
    }
    const std::size_t taken = columnsOf(end) + 2;
    const std::size_t room = width > taken ? width - taken : 0;
    const std::string name = elideMiddle(label, std::min(kLongestName, std::max(room, least - 2)));
    const std::size_t left = room - std::min(room, columnsOf(name) + 3); // brackets and a space
    const bool drawn = sampled && left >= kShortestBar;
    return elideMiddle(
        name + "  " + (drawn ? bar(source.percent, std::min(left, kLongestBar)) : "") + end, width);
}

void TerminalReport::unreadable(const Source& source, const std::string& why)
{
    writeLine(labelOf(source) + ": " + unreadableText(why));
}

void TerminalReport::attemptChanged(const Source& source, const AttemptEvent& event,
                                    const RunProgress& run)
{
    if (event.sourceLost) // the line about the unreadable file follows
        return;
    const std::size_t columns = terminalColumns(out_);
    switch (event.kind) {
    case AttemptEventKind::Started:
    case AttemptEventKind::StepChanged:
    case AttemptEventKind::Progress:
    case AttemptEventKind::Waiting:
        redraw(progressLine(source, event, run, columns), columns);
        break;
    case AttemptEventKind::Failed:
    case AttemptEventKind::Finished:
    case AttemptEventKind::Cancelled:
    case AttemptEventKind::GaveUp:
        writeLine(labelOf(source) + ": " + eventText(source, event));
        break;
    }
}

void TerminalReport::answered(const Source& source, const std::string& text)
{
    writeLine(labelOf(source) + ": " + text);
}

void TerminalReport::summary(const RunOutcome& outcome)
{
    writeLine(summaryText(outcome));
}

void TerminalReport::prepareQuestion()
{
    if (!inPlace_.empty())
        write("\n");
    inPlace_.clear();
}

void TerminalReport::redraw(const std::string& text, std::size_t columns)
{
    if (text == inPlace_)
        return;
    write(toLineBegin(columns) + text + "\x1b[K"); // erases the rest of the previous line
    inPlace_ = text;
}

void TerminalReport::writeLine(const std::string& text)
{
    write(toLineBegin(terminalColumns(out_)) + text + "\x1b[K\n");
    inPlace_.clear();
}

// A terminal that became narrower has wrapped the line: erases it from its first row on.
std::string TerminalReport::toLineBegin(std::size_t columns) const
{
    const std::size_t drawn = columnsOf(inPlace_);
    if (drawn <= columns)
        return "\r";
    return fmt::format("\x1b[{}A\r\x1b[J", (drawn - 1) / columns);
}

void TerminalReport::write(const std::string& text)
{
    std::fputs(text.c_str(), out_);
    std::fflush(out_);
}

} // namespace quenmoor
