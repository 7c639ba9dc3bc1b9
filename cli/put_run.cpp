#include "cli/put_run.h"

#include "base/signal_pipe.h"
#include "base/text.h"
#include "cli/json_report.h"
#include "cli/put_log.h"
#include "cli/put_view.h"
#include "cli/sleep_inhibitor.h"
#include "cli/terminal_report.h"
#include "cli/text_reports.h"
#include "engine/upload_engine.h"

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <system_error>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

// An interrupted run may take one second altogether.
constexpr auto kInterruptLimit = 500ms;
// After the last file only the sockets remain to be closed, which takes up to 2 seconds each.
constexpr auto kFinishLimit = 5s;
constexpr auto kFinishPoll = 50ms;

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};

// A terminal without a type, or of the type "dumb", prints control sequences.
bool movesCursor()
{
    const char* const type = std::getenv("TERM");
    return type != nullptr && *type != '\0' && std::string_view(type) != "dumb";
}

bool drawsOnTerminal(const PutOptions& options)
{
    return options.output == OutputMode::Human && !options.verbose && !options.dryRun &&
           isatty(STDOUT_FILENO) != 0 && movesCursor();
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
    return std::make_unique<PlainReport>(stdout, options.progress ? PlainReport::Samples::All
                                                                  : PlainReport::Samples::Tenths);
}

// Main thread.
class PutRun {
public:
    PutRun(const PutOptions& options, Clock& clock, TransferLink& link, std::FILE* logFile)
        : options_(options),
          logFile_(logFile),
          report_(makeReport(options)),
          question_(STDIN_FILENO, STDOUT_FILENO),
          clock_(clock),
          view_(
              queueSources(), *report_,
              [this](const Source& source, const Alert& alert) { return answer(source, alert); },
              [this] { signals_.wake(); }, options.allowChanged),
          engine_(queues_, link, view_, clock, options.retry)
    {
    }

    int run(const OnInterrupt& onInterrupt);

private:
    // Lists the files, reports each of them and gives the readable ones to the upload queue.
    std::vector<Source> queueSources();
    std::optional<CopyAnswer> answer(const Source& source, const Alert& alert);
    // Both return false if the upload thread is still blocked in the link.
    bool endUploadThread(int signal, const OnInterrupt& onInterrupt);
    bool awaitClosedSockets(const OnInterrupt& onInterrupt);

    // Starts the upload, unless there is nothing to send. Returns why the system refused, or
    // nothing.
    std::string start();
    // Reports on standard error what could not be written.
    bool outputWasWritten() const;

    const PutOptions& options_;
    std::FILE* const logFile_;
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

std::optional<CopyAnswer> PutRun::answer(const Source& source, const Alert& alert)
{
    if (!asksOnTerminal(options_))
        return policyAnswer(options_.existing, source.size, alert);
    const std::optional<std::int32_t> button = question_.ask(source.name, alert);
    if (!button)
        return std::nullopt;
    return CopyAnswer{*button, {}};
}

int PutRun::run(const OnInterrupt& onInterrupt)
{
    const std::int64_t began = clock_.nanoseconds();
    int signal = 0;
    bool ended = true;
    const std::string failure = start();
    if (failure.empty() && queues_.uploadCount() > 0 && !options_.dryRun) {
        const SleepInhibitor inhibitor;
        signal = signals_.read();
        if (signal != 0)
            onInterrupt(kExitSignal + signal);
        ended = endUploadThread(signal, onInterrupt);
    }
    RunOutcome outcome = outcomeOf(view_.sources(), signal, failure);
    outcome.elapsed = std::chrono::nanoseconds(clock_.nanoseconds() - began);
    outcome.dryRun = options_.dryRun;
    report_->summary(outcome);
    if (!failure.empty())
        std::fputs(("quenmoor-put: " + failure + '\n').c_str(), stderr);
    const int status = outputWasWritten() || outcome.status != 0 ? outcome.status : kExitOutput;
    if (!ended) // the upload thread uses objects that the destructors would destroy
        std::_Exit(status);
    return status;
}

std::string PutRun::start()
{
    if (signals_.error() != 0)
        return "no pipe can be created: " + std::generic_category().message(signals_.error());
    if (!options_.dryRun && !engine_.initiateUpload())
        return "no thread can be started: a limit of processes or memory applies";
    return {};
}

bool PutRun::outputWasWritten() const
{
    const auto written = [](std::FILE* file, const std::string& name) {
        if (file == nullptr || (std::fflush(file) == 0 && std::ferror(file) == 0))
            return true;
        std::fputs(("quenmoor-put: " + name + " could not be written\n").c_str(), stderr);
        return false;
    };
    const bool report = written(stdout, "standard output");
    return written(logFile_, printableLine(options_.logFile)) && report;
}

bool PutRun::endUploadThread(int signal, const OnInterrupt& onInterrupt)
{
    view_.close();
    question_.abandon();
    clock_.end();
    return signal != 0 ? engine_.waitForEnd(kInterruptLimit) : awaitClosedSockets(onInterrupt);
}

// A signal shortens the wait. It does not change the exit status, because every file has ended.
bool PutRun::awaitClosedSockets(const OnInterrupt& onInterrupt)
{
    pollfd input{signals_.readEnd(), POLLIN, 0};
    for (auto waited = 0ms; waited < kFinishLimit; waited += kFinishPoll) {
        if (engine_.waitForEnd(kFinishPoll))
            return true;
        const int signal = poll(&input, 1, 0) > 0 ? signals_.read() : 0;
        if (signal == 0)
            continue;
        onInterrupt(kExitSignal + signal);
        return engine_.waitForEnd(kInterruptLimit);
    }
    return false;
}

} // namespace

int runPut(const PutOptions& options, Clock& clock, TransferLink& link,
           const OnInterrupt& onInterrupt)
{
    std::FILE* logFile = nullptr;
    if (!options.logFile.empty()) {
        logFile = std::fopen(options.logFile.c_str(), "ae");
        if (logFile == nullptr) {
            const std::string why = std::generic_category().message(errno);
            std::fputs(fmt::format("quenmoor-put: --log-file: {}: {}\n",
                                   printableLine(options.logFile), why)
                           .c_str(),
                       stderr);
            return kExitUsage;
        }
        setvbuf(logFile, nullptr, _IOLBF, BUFSIZ);
    }
    startLog(options.output == OutputMode::Json || options.verbose, logFile);
    return PutRun(options, clock, link, logFile).run(onInterrupt);
}

} // namespace quenmoor
