#include "cli/put_view.h"

#include <fmt/format.h>

#include <algorithm>

namespace quenmoor {
namespace {

std::string answerText(const Alert& alert, const CopyAnswer& answer)
{
    const auto position = static_cast<std::size_t>(answer.button - kFirstButton);
    const std::string& button =
        position < alert.buttons.size() ? alert.buttons[position] : alert.buttons.front();
    std::string text =
        fmt::format("{}: {} Answer: {}.{}{}", alert.messageText, alert.informativeText, button,
                    answer.note.empty() ? "" : " ", answer.note);
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

} // namespace

PutView::PutView(std::vector<Source> sources, PutReport& report, AskAboutCopy ask,
                 std::function<void()> onEnd, bool allowChanged)
    : report_(report),
      ask_(std::move(ask)),
      onEnd_(std::move(onEnd)),
      allowChanged_(allowChanged),
      sources_(std::move(sources))
{
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        if (sources_[i].state != SourceState::Queued)
            continue;
        queued_.push_back(i);
        queuedBytes_ += sources_[i].size;
    }
}

std::vector<Source> PutView::sources() const
{
    const std::lock_guard lock(sourcesMutex_);
    return sources_;
}

void PutView::attemptChanged(const AttemptEvent& change)
{
    if (closed_)
        return;
    AttemptEvent event = change;
    if (event.kind == AttemptEventKind::Cancelled && answer_.giveUp) {
        event.kind = AttemptEventKind::GaveUp;
        event.step = AttemptStep::Response;
        event.reason = "the response of the server is not readable";
    }
    current_ = update(event);
    const RunProgress run = progressAfter(event);
    if (current_.state == SourceState::Unreadable)
        report_.unreadable(
            current_,
            whyUnreadable(current_.path, current_.size).value_or("it changed while it was sent"));
    else
        report_.attemptChanged(current_, event, run);
    // Files end in the order of their rows.
    if (current_.state != SourceState::Queued && event.row + 1 == queued_.size())
        onEnd_();
}

SourceState PutView::stateAfter(const AttemptEvent& event, const Source& source) const
{
    switch (event.kind) {
    case AttemptEventKind::Finished:
        return event.sourceChanged && !allowChanged_ ? SourceState::Changed : SourceState::Finished;
    case AttemptEventKind::Cancelled:
        return answer_.skip ? SourceState::Skipped : SourceState::Cancelled;
    case AttemptEventKind::GaveUp:
        // The reason decides: a file that the server refused may have been deleted since then.
        return event.sourceLost ||
                       (event.step == AttemptStep::Send && whyUnreadable(source.path, source.size))
                   ? SourceState::Unreadable
                   : SourceState::GaveUp;
    case AttemptEventKind::Started:
    case AttemptEventKind::StepChanged:
    case AttemptEventKind::Progress:
    case AttemptEventKind::Failed:
    case AttemptEventKind::Waiting: break;
    }
    return SourceState::Queued;
}

RunProgress PutView::progressAfter(const AttemptEvent& event)
{
    const bool sent = current_.state == SourceState::Finished ||
                      current_.state == SourceState::Changed ||
                      current_.state == SourceState::Skipped;
    const bool ended = sent || current_.state != SourceState::Queued;
    if (sent)
        doneBytes_ += current_.size;
    else if (ended)
        queuedBytes_ -= current_.size;
    RunProgress run{event.row + 1, queued_.size(), doneBytes_, queuedBytes_, {}};
    if (!ended)
        run.bytes += std::min(event.bytes, event.total);
    // The other files will take as long as the current one would for their size.
    AttemptEvent all = event;
    all.bytes = run.bytes;
    all.total = run.total;
    run.timeLeft = timeLeft(all);
    return run;
}

Source PutView::update(const AttemptEvent& event)
{
    const std::lock_guard lock(sourcesMutex_);
    if (event.row >= queued_.size())
        return {};
    Source* const source = &sources_[queued_[event.row]];
    source->state = stateAfter(event, *source);
    source->attempt = event.attempt;
    source->sentBytes = event.sentBytes;
    if (event.step == AttemptStep::Send && event.sentBytes == 0)
        source->resumedBytes = std::min(event.bytes, event.total);
    if (const std::int32_t percent = statusPercent(event); percent >= 0)
        source->percent = percent;
    return *source;
}

std::optional<std::int32_t> PutView::runModal(const Alert& alert)
{
    if (closed_)
        return std::nullopt;
    if (alert.buttons.empty())
        return kFirstButton; // the final alert, which repeats the GaveUp event
    report_.prepareQuestion();
    const std::optional<CopyAnswer> answer = ask_(current_, alert);
    if (!answer)
        return std::nullopt;
    answer_ = *answer;
    if (!answer_.skip && !answer_.giveUp)
        report_.answered(current_, answerText(alert, *answer));
    return answer->button;
}

void PutView::terminate()
{
    if (!closed_)
        onEnd_();
}

} // namespace quenmoor
