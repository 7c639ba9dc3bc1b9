#include "cli/put_run.h"

#include "base/log.h"
#include "base/signal_pipe.h"
#include "base/text.h"
#include "cli/json_report.h"
#include "cli/put_view.h"
#include "cli/sleep_inhibitor.h"
#include "cli/text_reports.h"
#include "engine/upload_engine.h"

#include <syslog.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <memory>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

// An interrupted run may take one second altogether.
constexpr auto kInterruptLimit = 500ms;
// After the last file only the sockets remain to be closed, which takes up to 2 seconds each.
constexpr auto kFinishLimit = 5s;

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

// The diagnostics go to the system log and, if requested, to standard error; never to standard
// output, which belongs to the report. Any thread.
class PutLogSink : public LogSink {
public:
    explicit PutLogSink(bool onStandardError) : onStandardError_(onStandardError)
    {
        openlog("quenmoor-put", LOG_PID, LOG_USER);
    }

    void systemLine(std::string_view line) override
    {
        const std::string text(line);
        syslog(LOG_INFO, "%s", text.c_str());
        if (onStandardError_)
            std::fputs((text + '\n').c_str(), stderr);
    }
    void outputLine(std::string_view line) override { systemLine(printableLine(line)); }

private:
    const bool onStandardError_;
};

bool drawsOnTerminal(const PutOptions& options)
{
    return options.output == OutputMode::Human && !options.verbose && !options.dryRun &&
           isatty(STDOUT_FILENO) != 0;
}

bool asksOnTerminal(const PutOptions& options)
{
    return options.existing == ExistingPolicy::Ask && options.output != OutputMode::Json &&
           isatty(STDIN_FILENO) != 0 && isatty(STDOUT_FILENO) != 0;
}

std::unique_ptr<PutReport> makeReport(const PutOptions& options)
{
    if (options.output == OutputMode::Json)
        return std::make_unique<JsonReport>(stdout);
    if (options.output == OutputMode::Quiet)
        return std::make_unique<QuietReport>(stderr);
    if (drawsOnTerminal(options))
        return std::make_unique<TerminalReport>(stdout);
    return std::make_unique<PlainReport>(stdout);
}

// Main thread.
class PutRun {
public:
    PutRun(const PutOptions& options, Clock& clock, TransferLink& link)
        : options_(options),
          report_(makeReport(options)),
          question_(STDIN_FILENO, STDOUT_FILENO),
          clock_(clock),
          view_(
              queueSources(), *report_, [this](const Alert& alert) { return answer(alert); },
              [this] { signals_.wake(); }, options.allowChanged),
          engine_(queues_, link, view_, clock, options.retry)
    {
    }

    int run(const OnInterrupt& onInterrupt);

private:
    // Lists the files, reports each of them and gives the readable ones to the upload queue.
    std::vector<Source> queueSources();
    std::optional<CopyAnswer> answer(const Alert& alert);
    // Returns false if the upload thread is still blocked in the link.
    bool endUploadThread(int signal);

    const PutOptions& options_;
    SignalPipe signals_{kSignals};
    std::unique_ptr<PutReport> report_;
    TerminalQuestion question_;
    Clock& clock_;
    UploadQueues queues_;
    PutView view_;
    UploadEngine engine_;
};

std::vector<Source> PutRun::queueSources()
{
    std::vector<std::string> why;
    std::vector<Source> sources = listSources(options_, why);
    for (std::size_t i = 0; i < sources.size(); ++i) {
        Source& source = sources[i];
        if (source.state == SourceState::Queued) {
            queues_.addFiles(std::array{FileUrl::fromPath(source.path)});
            if (queues_.fileQueue().empty()) { // deleted since it was listed
                source.state = SourceState::Unreadable;
                why[i] = "cannot be found";
            }
        }
        if (source.state == SourceState::Unreadable) {
            report_->unreadable(source, why[i]);
            continue;
        }
        source.size = queues_.fileQueue().front().size;
        queues_.acceptToken(source.token);
        report_->queued(source);
    }
    return sources;
}

std::optional<CopyAnswer> PutRun::answer(const Alert& alert)
{
    if (!asksOnTerminal(options_))
        return policyAnswer(options_.existing, alert);
    const std::optional<std::int32_t> button = question_.ask(alert);
    if (!button)
        return std::nullopt;
    return CopyAnswer{*button, {}};
}

int PutRun::run(const OnInterrupt& onInterrupt)
{
    int signal = 0;
    bool ended = true;
    if (queues_.uploadCount() > 0 && !options_.dryRun) {
        const SleepInhibitor inhibitor;
        engine_.initiateUpload();
        signal = signals_.read();
        if (signal != 0)
            onInterrupt(kExitSignal + signal);
        ended = endUploadThread(signal);
    }
    RunOutcome outcome = outcomeOf(view_.sources(), signal);
    outcome.dryRun = options_.dryRun;
    report_->summary(outcome);
    if (!ended) {
        // The upload thread uses objects that the destructors would destroy.
        std::fflush(stdout);
        std::_Exit(outcome.status);
    }
    return outcome.status;
}

bool PutRun::endUploadThread(int signal)
{
    view_.close();
    question_.abandon();
    clock_.end();
    return engine_.waitForEnd(signal != 0 ? kInterruptLimit : kFinishLimit);
}

} // namespace

int runPut(const PutOptions& options, Clock& clock, TransferLink& link,
           const OnInterrupt& onInterrupt)
{
    // Never destroyed: a thread that is still blocked in the link may log after this function.
    static auto* const log = new PutLogSink(options.output == OutputMode::Json || options.verbose);
    setLogSink(log);
    return PutRun(options, clock, link).run(onInterrupt);
}

} // namespace quenmoor
