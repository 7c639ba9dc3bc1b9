#include "cli/terminal_report.h"

#include "base/text.h"
#include "cli/shown_text.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace quenmoor {
namespace {

constexpr std::size_t kBarCells = 24;
constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kNameColumns = 28;
constexpr double kLowestRate = 0.0005; // anything less shows as 0.000

std::size_t terminalColumns(std::FILE* out)
{
    winsize size{};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kUsualColumns;
    return size.ws_col;
}

std::string bar(std::int32_t percent)
{
    const auto filled = static_cast<std::size_t>(std::clamp(percent, 0, 100)) * kBarCells / 100;
    return '[' + std::string(filled, '#') + std::string(kBarCells - filled, '.') + ']';
}

// The last component is enough on a line of its own.
std::string nameOf(const PutEvent& event)
{
    return printableLine(std::filesystem::path(event.file).filename().native());
}

std::string tryNumber(const PutEvent& event)
{
    return event.attempt.value_or(1) > 1 ? fmt::format(" (attempt {})", *event.attempt) : "";
}

} // namespace

std::string progressLine(const PutEvent& event, const std::string& status, std::size_t columns)
{
    std::string state;
    if (status.starts_with("Uploading at ")) {
        state = fmt::format("{} {:3}%", bar(event.percent.value_or(0)), event.percent.value_or(0));
        // The first sample is measured from the clock's origin and tells nothing.
        if (event.mbps.value_or(0) >= kLowestRate)
            state += fmt::format("  {:.1f} MB/s", *event.mbps);
    } else {
        state = status + tryNumber(event);
    }
    const std::string name = elidedMiddle(nameOf(event), std::min(kNameColumns, columns / 3));
    return elidedMiddle(name + "  " + state, columns > 1 ? columns - 1 : columns);
}

void TerminalReport::report(const PutEvent& event)
{
    switch (event.kind) {
    case PutEventKind::Status: status_ = event.status.value_or(""); [[fallthrough]];
    case PutEventKind::Rate: drawProgress(event); break;
    case PutEventKind::Question:
    case PutEventKind::Finished:
    case PutEventKind::Failed:
    case PutEventKind::Cancelled:
        settle(nameOf(event) + ": " + oneLine(event.message.value_or("")));
        break;
    case PutEventKind::Summary: settle(event.message.value_or("")); break;
    case PutEventKind::Queued: break; // shown when its turn comes
    }
}

void TerminalReport::makeRoom()
{
    if (drawn_)
        std::fputc('\n', out_);
    std::fflush(out_);
    drawn_ = false;
}

void TerminalReport::drawProgress(const PutEvent& event)
{
    redraw(progressLine(event, status_, terminalColumns(out_)));
    drawn_ = true;
}

void TerminalReport::redraw(const std::string& text)
{
    // Back to the first column, the text, and nothing of the older line behind it.
    std::fputs(("\r" + text + "\x1b[K").c_str(), out_);
    std::fflush(out_);
}

void TerminalReport::settle(const std::string& text)
{
    if (text.empty())
        return;
    redraw(text);
    drawn_ = true;
    makeRoom();
}

} // namespace quenmoor
