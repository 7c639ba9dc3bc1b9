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

PutView::PutView(const StatusTable& table, PutReport& report, const Clock& clock, Answerer answerer,
                 std::function<void()> onEnd)
    : table_(table),
      report_(report),
      clock_(clock),
      answerer_(std::move(answerer)),
      onEnd_(std::move(onEnd))
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

void PutView::reloadProgressGrid(std::optional<std::int32_t> /*percent*/)
{
    if (closed_ || current_ >= files_.size())
        return;
    StatusTable::Row row = table_.objectAtIndex(current_);
    if (row == nullptr || row == shown_)
        return;
    shown_ = std::move(row);
    reportStatus(*shown_);
    if (shown_->status == "Finished")
        reportFinished();
    else if (shown_->status == "Canceled")
        reportCancelled();
}

void PutView::reportStatus(const TableContainer& row)
{
    File& file = files_[current_];
    if (row.status == "Connecting") {
        reportedSample_ = 0;
        if (file.attempt++ == 0)
            file.startedAt = clock_.nanoseconds();
    }
    PutEvent event = eventFor(PutEventKind::Status);
    event.status = row.status;
    event.percent = row.percent;
    if (row.status == "Waiting (Error)")
        event.step = stepName(attempt_->step);
    report_.report(event);
}

void PutView::setStatusBar(const std::string& /*filename*/, const std::string& /*rate*/)
{
    // Only a sample has a rate of its own; the report that clears the bar has none.
    if (closed_ || current_ >= files_.size() || attempt_->samples == reportedSample_)
        return;
    reportedSample_ = attempt_->samples;
    PutEvent event = eventFor(PutEventKind::Rate);
    event.percent = shown_ != nullptr ? shown_->percent : 0;
    event.bytes = attempt_->bytesSent.load();
    event.mbps = attempt_->rate.load();
    report_.report(event);
}

void PutView::reportFinished()
{
    const File& file = files_[current_];
    const double seconds =
        static_cast<double>(clock_.nanoseconds() - file.startedAt) / kNanosecondsPerSecond;
    const std::int64_t sent = attempt_->fileBytes;
    const double rate = seconds > 0 ? static_cast<double>(sent) / kBytesPerMegabyte / seconds : 0;

    PutEvent event = eventFor(PutEventKind::Finished);
    event.percent = 100;
    event.bytes = file.size;
    event.mbps = rate;
    event.message =
        fmt::format("finished, {} in {:.1f} s, {:.1f} MB/s", shownSize(file.size), seconds, rate);
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
    shown_ = nullptr;
    if (current_ == files_.size())
        onEnd_();
}

std::optional<std::int32_t> PutView::runModal(const Alert& alert)
{
    if (closed_)
        return std::nullopt;
    if (alert.buttons.empty()) {
        PutEvent event = eventFor(PutEventKind::Failed);
        event.step = stepName(attempt_->step);
        event.message = alert.messageText;
        report_.report(event);
        return kFirstButton;
    }
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
