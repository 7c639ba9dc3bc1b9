#include "cli/plain_report.h"

#include "base/text.h"
#include "cli/shown_text.h"

#include <fmt/format.h>

namespace quenmoor {
namespace {

// The event in words; empty for one that says nothing to a person.
std::string lineFor(const PutEvent& event)
{
    const std::string name = printableLine(event.file);
    switch (event.kind) {
    case PutEventKind::Queued:
        return fmt::format("{}: queued, {}", name, shownSize(event.total.value_or(0)));
    case PutEventKind::Status:
        return fmt::format("{}: {} ({}%)", name, event.status.value_or(""),
                           event.percent.value_or(0));
    case PutEventKind::Question:
    case PutEventKind::Finished:
    case PutEventKind::Failed:
    case PutEventKind::Cancelled: return name + ": " + oneLine(event.message.value_or(""));
    case PutEventKind::Summary: return event.message.value_or("");
    case PutEventKind::Rate: break;
    }
    return {};
}

} // namespace

void PlainReport::report(const PutEvent& event)
{
    if (event.kind == PutEventKind::Status && isTick(event))
        return;
    const std::string text = lineFor(event);
    if (!text.empty())
        line(text);
}

bool PlainReport::isTick(const PutEvent& event)
{
    const std::string& status = *event.status;
    const bool counting = status.starts_with("Retrying in ");
    const bool secondOfWait = counting && waiting_;
    waiting_ = counting;
    if (status.starts_with("Uploading at ")) {
        if (event.percent.value_or(0) < nextTenth_)
            return true;
        nextTenth_ = event.percent.value_or(0) / 10 * 10 + 10;
    } else {
        nextTenth_ = 0;
    }
    // The events of their own say these, and more.
    return secondOfWait || status == "Finished" || status == "Canceled";
}

void PlainReport::line(const std::string& text)
{
    std::fputs((text + '\n').c_str(), out_);
    std::fflush(out_);
}

void QuietReport::report(const PutEvent& event)
{
    if (event.kind == PutEventKind::Failed || event.kind == PutEventKind::Cancelled)
        std::fputs(("quenmoor-put: " + lineFor(event) + '\n').c_str(), stderr);
}

} // namespace quenmoor
