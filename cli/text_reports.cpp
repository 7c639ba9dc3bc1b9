#include "cli/text_reports.h"

#include "base/text.h"

#include <fmt/format.h>

namespace quenmoor {
namespace {

constexpr int kSamplesPerLine = 30; // one a second

std::string displayName(const Source& source)
{
    return printableLine(source.name);
}

} // namespace

void PlainReport::queued(const Source& source)
{
    writeLine(fmt::format("{}: queued, {}", displayName(source), formatSize(source.size)));
}

void PlainReport::unreadable(const Source& source, const std::string& why)
{
    writeLine(displayName(source) + ": " + unreadableText(why));
}

void PlainReport::attemptChanged(const Source& source, const AttemptEvent& event,
                                 const RunProgress& run)
{
    if (event.sourceLost) // the line about the unreadable file follows
        return;
    if (event.kind == AttemptEventKind::StepChanged || skipAndRemember(event, source.percent))
        return;
    std::string text = eventText(source, event);
    if (event.kind == AttemptEventKind::Progress && event.firstSample)
        text = "Uploading";
    if (event.kind == AttemptEventKind::Started || event.kind == AttemptEventKind::Progress ||
        event.kind == AttemptEventKind::Waiting)
        text += fmt::format(" ({}%)", source.percent);
    if (event.kind == AttemptEventKind::Progress && samples_ == Samples::All)
        text += "; " + progressText(run);
    writeLine(displayName(source) + ": " + text);
}

bool PlainReport::skipAndRemember(const AttemptEvent& event, std::int32_t percent)
{
    const bool waited = previous_ == AttemptEventKind::Waiting;
    previous_ = event.kind;
    if (event.kind == AttemptEventKind::Progress)
        return skipSample(percent);
    nextPercent_ = 0;
    return event.kind == AttemptEventKind::Waiting && waited;
}

bool PlainReport::skipSample(std::int32_t percent)
{
    if (samples_ == Samples::All) {
        samplesWithoutLine_ = (samplesWithoutLine_ + 1) % kSamplesPerLine;
        return samplesWithoutLine_ != 0;
    }
    if (percent < nextPercent_)
        return true;
    nextPercent_ = percent / 10 * 10 + 10;
    return false;
}

void PlainReport::answered(const Source& source, const std::string& text)
{
    writeLine(displayName(source) + ": " + text);
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

void QuietReport::attemptChanged(const Source& source, const AttemptEvent& event,
                                 const RunProgress& /*run*/)
{
    if (event.kind == AttemptEventKind::GaveUp || source.state == SourceState::Cancelled ||
        source.state == SourceState::Changed)
        writeLine(source, eventText(event));
}

void QuietReport::writeLine(const Source& source, const std::string& text)
{
    std::fputs(("quenmoor-put: " + displayName(source) + ": " + text + '\n').c_str(), out_);
}

} // namespace quenmoor
