#include "cli/put_view.h"

#include "cli/shown_text.h"

#include <fmt/format.h>

namespace quenmoor {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kBytesPerMegabyte = 1048576;

std::string answerName(const Alert& alert, std::int32_t answer)
{
    const auto position = static_cast<std::size_t>(answer - kFirstButton);
    return answer >= kFirstButton && position < alert.buttons.size() ? alert.buttons[position]
                                                                     : alert.buttons.front();
}

} // namespace

PutView::PutView(PutReport& report, Answerer answerer, std::function<void()> onEnd)
    : report_(report), answerer_(std::move(answerer)), onEnd_(std::move(onEnd))
{
}

void PutView::addFile(const std::string& file, std::int64_t size)
{
    files_.push_back({file, size});
    {
        const std::lock_guard lock(tallyMutex_);
        ++tally_.unfinished;
    }
    PutEvent event;
    event.kind = PutEventKind::Queued;
    event.file = file;
    event.row = files_.size() - 1;
    event.status = "Queued";
    event.percent = 0;
    event.total = size;
    report_.report(event);
}

PutTally PutView::tally() const
{
    const std::lock_guard lock(tallyMutex_);
    return tally_;
}

PutEvent PutView::eventFor(PutEventKind kind) const
{
    const File& file = files_[current_];
    PutEvent event;
    event.kind = kind;
    event.file = file.name;
    event.row = current_;
    event.attempt = file.attempt;
    event.total = file.size;
    return event;
}

void PutView::attemptChanged(const AttemptEvent& attempt)
{
    if (closed_ || current_ >= files_.size())
        return;
    files_[current_].attempt = attempt.attempt;
    if (attempt.kind == AttemptEventKind::GaveUp) {
        PutEvent event = eventFor(PutEventKind::Failed);
        event.step = stepName(attempt.step);
        event.message = fmt::format("gave up after {} attempts ({}): {}", attempt.attempt,
                                    stepName(attempt.step), attempt.reason);
        report_.report(event);
        return;
    }
    reportStatus(attempt);
    if (attempt.kind == AttemptEventKind::Finished)
        reportFinished(attempt);
    else if (attempt.kind == AttemptEventKind::Cancelled)
        reportCancelled();
}

void PutView::reportStatus(const AttemptEvent& attempt)
{
    std::int32_t& percent = files_[current_].percent;
    if (statusPercent(attempt) >= 0)
        percent = statusPercent(attempt);
    PutEvent event = eventFor(PutEventKind::Status);
    event.status = statusText(attempt);
    event.percent = percent;
    if (attempt.kind == AttemptEventKind::Failed) {
        event.step = stepName(attempt.step);
        event.message = attempt.reason;
    }
    report_.report(event);
    if (attempt.kind != AttemptEventKind::Progress)
        return;
    PutEvent rate = eventFor(PutEventKind::Rate);
    rate.percent = percent;
    rate.bytes = attempt.bytes;
    rate.mbps = attempt.rate;
    report_.report(rate);
}

void PutView::reportFinished(const AttemptEvent& attempt)
{
    const double seconds = static_cast<double>(attempt.elapsed.count()) / kNanosecondsPerSecond;
    const std::int64_t sent = attempt.sentBytes;
    const double rate = seconds > 0 ? static_cast<double>(sent) / kBytesPerMegabyte / seconds : 0;

    PutEvent event = eventFor(PutEventKind::Finished);
    event.percent = 100;
    event.bytes = attempt.total;
    event.mbps = rate;
    event.message = fmt::format("finished, {} in {:.1f} s, {:.1f} MB/s", shownSize(attempt.total),
                                seconds, rate);
    report_.report(event);
    count(&PutTally::finished, sent);
}

void PutView::reportCancelled()
{
    PutEvent event = eventFor(PutEventKind::Cancelled);
    event.message = "cancelled: the copy on the server was left as it is";
    report_.report(event);
    count(&PutTally::cancelled, 0);
}

void PutView::count(std::size_t PutTally::*how, std::int64_t bytes)
{
    {
        const std::lock_guard lock(tallyMutex_);
        ++(tally_.*how);
        --tally_.unfinished;
        tally_.bytes += bytes;
    }
    ++current_;
    if (current_ == files_.size())
        onEnd_();
}

std::optional<std::int32_t> PutView::runModal(const Alert& alert)
{
    if (closed_)
        return std::nullopt;
    if (alert.buttons.empty())
        return kFirstButton; // the final alert, which the event of the given-up file precedes
    report_.makeRoom();
    const std::optional<Answer> answer = answerer_(alert);
    if (!answer)
        return std::nullopt;
    PutEvent event = eventFor(PutEventKind::Question);
    event.message = fmt::format("{}: {} Answer: {}.{}{}", alert.messageText, alert.informativeText,
                                answerName(alert, answer->button), answer->note.empty() ? "" : " ",
                                answer->note);
    report_.report(event);
    return answer->button;
}

void PutView::terminate()
{
    if (closed_)
        return;
    {
        const std::lock_guard lock(tallyMutex_);
        tally_.gaveUp = true;
    }
    onEnd_();
}

} // namespace quenmoor
