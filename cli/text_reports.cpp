#include "cli/text_reports.h"

#include "base/text.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

namespace quenmoor {
namespace {

constexpr std::size_t kBarCells = 24;
constexpr std::size_t kDefaultColumns = 80;
constexpr std::size_t kNameColumns = 28;
constexpr double kLowestRate = 0.05; // a lower one would be displayed as 0.0

std::size_t terminalColumns(std::FILE* out)
{
    winsize size{};
    if (ioctl(fileno(out), TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return kDefaultColumns;
    return size.ws_col;
}

std::string bar(std::int32_t percent)
{
    const auto filled = static_cast<std::size_t>(std::clamp(percent, 0, 100)) * kBarCells / 100;
    return '[' + std::string(filled, '#') + std::string(kBarCells - filled, '.') + ']';
}

std::string displayName(const Source& source)
{
    return printableLine(source.name);
}

// The last component of the name is enough for a line on a terminal.
std::string shortName(const Source& source)
{
    return printableLine(std::filesystem::path(source.name).filename().native());
}

std::string onOneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

bool startsCodePoint(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

// The byte offset of code point number `count` of `text`.
std::size_t offsetOf(const std::string& text, std::size_t count)
{
    std::size_t offset = 0;
    for (; offset < text.size(); ++offset) {
        if (startsCodePoint(text[offset]) && count-- == 0)
            break;
    }
    return offset;
}

} // namespace

std::string elideMiddle(const std::string& text, std::size_t columns)
{
    const auto length =
        static_cast<std::size_t>(std::count_if(text.begin(), text.end(), startsCodePoint));
    if (length <= columns)
        return text;
    if (columns == 0)
        return {};
    const std::size_t tail = (columns - 1) / 2;
    const std::size_t head = columns - 1 - tail;
    return text.substr(0, offsetOf(text, head)) + "\u2026" +
           text.substr(offsetOf(text, length - tail));
}

std::string progressLine(const Source& source, const AttemptEvent& event, std::size_t columns)
{
    std::string state;
    if (event.kind == AttemptEventKind::Progress) {
        state = fmt::format("{} {:3}%", bar(source.percent), source.percent);
        // The rate of the first sample is measured from the origin of the clock.
        if (event.rate >= kLowestRate)
            state += fmt::format("  {:.1f} MB/s", event.rate);
    } else {
        state = statusText(event);
        if (event.attempt > 1)
            state += fmt::format(" (attempt {})", event.attempt);
    }
    const std::string name = elideMiddle(shortName(source), std::min(kNameColumns, columns / 3));
    return elideMiddle(name + "  " + state, columns > 1 ? columns - 1 : columns);
}

void TerminalReport::unreadable(const Source& source, const std::string& why)
{
    writeLine(shortName(source) + ": " + unreadableText(why));
}

void TerminalReport::attemptChanged(const Source& source, const AttemptEvent& event)
{
    if (event.sourceLost)
        return; // the line about the unreadable file follows
    switch (event.kind) {
    case AttemptEventKind::StepChanged: break;
    case AttemptEventKind::Started:
    case AttemptEventKind::Progress:
    case AttemptEventKind::Waiting:
        redraw(progressLine(source, event, terminalColumns(out_)));
        break;
    case AttemptEventKind::Failed:
    case AttemptEventKind::Finished:
    case AttemptEventKind::Cancelled:
    case AttemptEventKind::GaveUp: writeLine(shortName(source) + ": " + eventText(event)); break;
    }
}

void TerminalReport::answered(const Source& source, const std::string& text)
{
    writeLine(shortName(source) + ": " + onOneLine(text));
}

void TerminalReport::summary(const RunOutcome& outcome)
{
    writeLine(summaryText(outcome));
}

void TerminalReport::prepareQuestion()
{
    if (lineInPlace_)
        std::fputc('\n', out_);
    std::fflush(out_);
    lineInPlace_ = false;
}

void TerminalReport::redraw(const std::string& text)
{
    // To the first column; then the text; then erase the rest of the previous line.
    std::fputs(("\r" + text + "\x1b[K").c_str(), out_);
    std::fflush(out_);
    lineInPlace_ = true;
}

void TerminalReport::writeLine(const std::string& text)
{
    redraw(text);
    prepareQuestion();
}

void PlainReport::queued(const Source& source)
{
    writeLine(fmt::format("{}: queued, {}", displayName(source), formatSize(source.size)));
}

void PlainReport::unreadable(const Source& source, const std::string& why)
{
    writeLine(displayName(source) + ": " + unreadableText(why));
}

void PlainReport::attemptChanged(const Source& source, const AttemptEvent& event)
{
    if (event.sourceLost)
        return; // the line about the unreadable file follows
    if (event.kind == AttemptEventKind::StepChanged || skipAndRemember(event, source.percent))
        return;
    const bool underWay = event.kind == AttemptEventKind::Started ||
                          event.kind == AttemptEventKind::Progress ||
                          event.kind == AttemptEventKind::Waiting;
    writeLine(displayName(source) + ": " + eventText(event) +
              (underWay ? fmt::format(" ({}%)", source.percent) : ""));
}

bool PlainReport::skipAndRemember(const AttemptEvent& event, std::int32_t percent)
{
    const bool waited = previous_ == AttemptEventKind::Waiting;
    previous_ = event.kind;
    if (event.kind == AttemptEventKind::Progress) {
        if (percent < nextPercent_)
            return true;
        nextPercent_ = percent / 10 * 10 + 10;
        return false;
    }
    nextPercent_ = 0;
    return event.kind == AttemptEventKind::Waiting && waited;
}

void PlainReport::answered(const Source& source, const std::string& text)
{
    writeLine(displayName(source) + ": " + onOneLine(text));
}

void PlainReport::summary(const RunOutcome& outcome)
{
    writeLine(summaryText(outcome));
}

void PlainReport::writeLine(const std::string& text)
{
    std::fputs((text + '\n').c_str(), out_);
    std::fflush(out_);
}

void QuietReport::unreadable(const Source& source, const std::string& why)
{
    writeLine(source, unreadableText(why));
}

void QuietReport::attemptChanged(const Source& source, const AttemptEvent& event)
{
    if (event.kind == AttemptEventKind::GaveUp || event.kind == AttemptEventKind::Cancelled ||
        source.state == SourceState::Changed)
        writeLine(source, eventText(event));
}

void QuietReport::writeLine(const Source& source, const std::string& text)
{
    std::fputs(("quenmoor-put: " + displayName(source) + ": " + text + '\n').c_str(), out_);
}

} // namespace quenmoor
