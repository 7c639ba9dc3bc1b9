#include "cli/put_run.h"

#include "base/signal_pipe.h"
#include "cli/existing_policy.h"
#include "cli/json_report.h"
#include "cli/plain_report.h"
#include "cli/put_log_sink.h"
#include "cli/put_view.h"
#include "cli/shown_text.h"
#include "cli/source_file.h"
#include "cli/terminal_question.h"
#include "cli/terminal_report.h"
#include "engine/upload_engine.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

// Well under the second that an interrupted run may still take.
constexpr auto kInterruptedPatience = 500ms;
// After the last file only the sockets are still to be closed, at 2 seconds each.
constexpr auto kFinishedPatience = 5s;

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

bool drawsOnTerminal(const PutOptions& options)
{
    return options.output == Output::Human && !options.verbose && isatty(STDOUT_FILENO) != 0;
}

bool asksOnTerminal(const PutOptions& options)
{
    return options.existing == Existing::Ask && options.output != Output::Json &&
           isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

std::unique_ptr<PutReport> makeReport(const PutOptions& options)
{
    if (options.output == Output::Json)
        return std::make_unique<JsonReport>(stdout);
    if (options.output == Output::Quiet)
        return std::make_unique<QuietReport>();
    if (drawsOnTerminal(options))
        return std::make_unique<TerminalReport>(stdout);
    return std::make_unique<PlainReport>(stdout);
}

class PutRun {
public:
    PutRun(const PutOptions& options, Clock& clock, TransferLink& link)
        : options_(options),
          report_(makeReport(options)),
          question_(STDIN_FILENO, STDOUT_FILENO),
          clock_(clock),
          view_(
              *report_, [this](const Alert& alert) { return answer(alert); },
              [this] { signals_.wake(); }),
          engine_(queues_, link, view_, clock)
    {
    }

    int run(const OnInterrupt& onInterrupt);

private:
    std::optional<Answer> answer(const Alert& alert);
    void queueFiles();
    void reportUnreadable(const std::string& name, const std::string& why);
    // The end of the upload thread, or of the process when that thread is held by the link.
    void end(int signal);
    int conclude(int signal);
    int statusOf(const PutTally& tally);

    const PutOptions& options_;
    SignalPipe signals_{kSignals};
    std::unique_ptr<PutReport> report_;
    TerminalQuestion question_;
    Clock& clock_;
    UploadQueues queues_;
    PutView view_;
    UploadEngine engine_;

    // Main thread.
    struct Source {
        std::string name; // as given
        InfoContainer file;
    };
    std::vector<Source> sources_; // by row
    std::size_t unreadable_ = 0;
};

int PutRun::run(const OnInterrupt& onInterrupt)
{
    queueFiles();
    if (sources_.empty())
        return conclude(0);
    engine_.initiateUpload();
    const int signal = signals_.read();
    if (signal != 0)
        onInterrupt(kExitSignal + signal);
    end(signal);
    return conclude(signal);
}

std::optional<Answer> PutRun::answer(const Alert& alert)
{
    if (!asksOnTerminal(options_))
        return fixedAnswer(options_.existing, alert);
    const std::optional<std::int32_t> button = question_.ask(alert);
    if (!button)
        return std::nullopt;
    return Answer{*button, {}};
}

void PutRun::queueFiles()
{
    for (std::size_t i = 0; i < options_.files.size(); ++i) {
        const std::string& name = options_.files[i];
        std::error_code failed;
        const std::filesystem::path path = std::filesystem::absolute(name, failed);
        const auto why = failed ? failed.message() : whyUnreadable(path).value_or("");
        if (why.empty())
            queues_.addFiles(std::array{FileUrl::fromPath(path)});
        if (!why.empty() || queues_.fileQueue().empty()) {
            reportUnreadable(name, why.empty() ? "cannot be found" : why);
            continue;
        }
        sources_.push_back({name, queues_.fileQueue().front()});
        view_.addFile(name, sources_.back().file.size);
        queues_.acceptToken(options_.tokens[i]);
    }
}

void PutRun::reportUnreadable(const std::string& name, const std::string& why)
{
    ++unreadable_;
    PutEvent event;
    event.kind = PutEventKind::Failed;
    event.file = name;
    event.step = "open";
    event.message = "cannot be read: " + why;
    report_->report(event);
}

void PutRun::end(int signal)
{
    view_.close();
    question_.abandon();
    clock_.end();
    if (engine_.waitForEnd(signal != 0 ? kInterruptedPatience : kFinishedPatience))
        return;
    const int status = conclude(signal);
    std::fflush(stdout);
    std::_Exit(status);
}

int PutRun::conclude(int signal)
{
    const PutTally tally = view_.tally();
    const int status = signal != 0 ? kExitSignal + signal : statusOf(tally);

    PutEvent event;
    event.kind = PutEventKind::Summary;
    event.bytes = tally.bytes;
    std::string words = fmt::format("{} finished", tally.finished);
    const auto add = [&words](std::size_t count, const char* what) {
        if (count > 0)
            words += fmt::format(", {} {}", count, what);
    };
    add(tally.cancelled, "cancelled");
    add(unreadable_, "unreadable");
    add(tally.unfinished, "not finished");
    if (signal != 0)
        words += ", interrupted";
    event.message = words + fmt::format("; {} sent", shownSize(tally.bytes));
    report_->report(event);
    return status;
}

int PutRun::statusOf(const PutTally& tally)
{
    if (tally.gaveUp) {
        // The server cannot know why the bytes stayed away; the file can tell.
        const Source& source = sources_[view_.failedRow()];
        const auto why = whyUnreadable(source.file.file.path(), source.file.size);
        if (!why)
            return kExitGaveUp;
        reportUnreadable(source.name, *why);
    }
    if (unreadable_ > 0)
        return kExitUnreadable;
    return tally.cancelled > 0 ? kExitCancelled : kExitFinished;
}

} // namespace

int runPut(const PutOptions& options, Clock& clock, TransferLink& link,
           const OnInterrupt& onInterrupt)
{
    // Never destroyed: a thread that the link still holds may log after this.
    static auto* const log = new PutLogSink(options.output == Output::Json || options.verbose);
    setLogSink(log);
    return PutRun(options, clock, link).run(onInterrupt);
}

} // namespace quenmoor
