#include "engine/upload_engine.h"

#include "base/fatal_error.h"
#include "base/log.h"
#include "protocol/documents.h"

#include <fmt/format.h>

#include <cassert>
#include <system_error>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdlePoll = 200ms;
constexpr auto kCountdownTick = 1s;
constexpr std::int32_t kRefusal = 1; // the only response code that refuses an upload

std::string_view confirmationName(std::int32_t choice)
{
    switch (choice) {
    case kResume:
    case kNotAsked: return "resume";
    case kOverwrite: return "overwrite";
    default: return "cancelation";
    }
}

} // namespace

UploadEngine::UploadEngine(UploadQueues& queues, TransferLink& link, UploadView& view, Clock& clock,
                           const RetryPolicy& policy)
    : queues_(queues),
      link_(link),
      view_(view),
      clock_(clock),
      keepGoing_(policy.keepGoing),
      giveUpLostSource_(policy.giveUpLostSource),
      schedule_(policy)
{
}

UploadEngine::~UploadEngine()
{
    assert(!uploadThread_.joinable());
}

bool UploadEngine::initiateUpload()
{
    if (queues_.uploadCount() == 0 || running_.exchange(true))
        return true;
    try {
        uploadThread_ = std::thread([this] {
            uploadFile();
            const std::lock_guard lock(endMutex_);
            ended_ = true;
            endReached_.notify_all();
        });
    } catch (const std::system_error& error) {
        logSystem("Cannot start the upload thread: {}", error.what());
        running_ = false;
        return false;
    }
    return true;
}

bool UploadEngine::waitForEnd(std::chrono::milliseconds limit)
{
    if (!uploadThread_.joinable())
        return true;
    {
        std::unique_lock lock(endMutex_);
        if (!endReached_.wait_for(lock, limit, [this] { return ended_; }))
            return false;
    }
    uploadThread_.join();
    return true;
}

void UploadEngine::uploadFile()
{
    running_ = true;
    progressRowIndex_ = 0;
    choice_ = kUndecided;
    while (!clock_.ending()) {
        if (queues_.uploadCount() > 0) {
            if (!runAttempt())
                return;
        } else if (!clock_.sleepFor(kIdlePoll)) {
            return;
        }
    }
}

bool UploadEngine::runAttempt()
{
    const std::optional<InfoContainer> head = queues_.uploadHead();
    if (!head)
        return true;
    switch (attemptUpload(*head)) {
    case Outcome::Cancelled: report(AttemptEventKind::Cancelled); [[fallthrough]];
    case Outcome::Done: finishFile(); return true;
    case Outcome::Failed: break;
    case Outcome::Ended: closeSockets(); return false;
    }
    logSystem("Upload attempt unsuccessful.");
    logSystem("Attempt {} failed ({}): {}", attempt_.attempt, stepName(attempt_.step),
              attempt_.reason);
    report(AttemptEventKind::Failed);
    closeSockets();
    return waitForRetry();
}

UploadEngine::Outcome UploadEngine::attemptUpload(const InfoContainer& head)
{
    beginAttempt(head);
    if (sourceLost(head)) {
        attempt_.step = AttemptStep::Open;
        return outcomeOf(0);
    }
    const std::string text = requestUpload(head);
    logSystem("{}", text);
    if (text.empty()) {
        // The final alert names the missing response, whichever step failed; the event names the
        // step.
        reason_ = "Response from server not received.";
        attempt_.reason = link_.failureReason();
        return outcomeOf(0);
    }
    logSystem("Received response object from server.");
    ResponseContainer response;
    if (response.parseXML(text).response == kRefusal) {
        attempt_.step = AttemptStep::Refused;
        attempt_.reason = "the server refused the upload";
        return outcomeOf(0);
    }
    if (!resolveExistingCopy(response))
        return Outcome::Ended;
    logSystem("Invoking file handler");
    return outcomeOf(handleFile(choice_, response));
}

void UploadEngine::beginAttempt(const InfoContainer& head)
{
    setUnfinishedUpload(head.file.filename());
    AttemptEvent next;
    next.row = progressRowIndex_;
    next.attempt = attempt_.attempt + 1;
    next.attemptInRow = schedule_.failures() + 1;
    next.attemptLimit = schedule_.limit();
    next.total = head.size;
    next.sentBytes = attempt_.sentBytes;
    next.sourceChanged = sourceChanged(head);
    attempt_ = next;
    if (attempt_.attempt == 1)
        startedAt_ = clock_.nanoseconds();
    report(AttemptEventKind::Started);
}

bool UploadEngine::sourceLost(const InfoContainer& head)
{
    if (!giveUpLostSource_)
        return false;
    const std::optional<SourceFault> fault = sourceFault(head.file.path(), head.size);
    if (!fault || !fault->lasting)
        return false;
    attempt_.sourceLost = true;
    attempt_.reason = "the file cannot be read: " + fault->why;
    return true;
}

std::string UploadEngine::requestUpload(const InfoContainer& head)
{
    const RequestContainer request{head.file.filename(), head.token.value_or(""), head.size};
    const std::string document = buildXML(request.XMLpayload(), "RequestContainer");
    logSystem("Sending XML: {}", document);
    if (clock_.ending() || !link_.connectAndSendRequest(connectSocket_, document))
        return {};
    logSystem("Initial connection successful.");

    if (!enterStep(AttemptStep::Rendezvous) ||
        !link_.rendezvousWithServer(connectSocket_, rendezvousSocket_))
        return {};
    logSystem("Rendezvous successfully connected.");

    if (!enterStep(AttemptStep::Response))
        return {};
    return link_.receiveString(rendezvousSocket_);
}

bool UploadEngine::resolveExistingCopy(const ResponseContainer& response)
{
    if (response.exists && choice_ == kUndecided && !InterrogateExists(response))
        return false;
    logSystem("Alert selection value: {}", choice_);
    if (choice_ == kUndecided)
        choice_ = kNotAsked;
    return true;
}

bool UploadEngine::InterrogateExists(const ResponseContainer& response)
{
    const std::optional<std::int32_t> button = view_.runModal(existingFileAlert(response));
    if (button)
        choice_ = choiceForButton(*button);
    return button.has_value();
}

std::int64_t UploadEngine::handleFile(std::int32_t choice, const ResponseContainer& response)
{
    logSystem("Entered file handling logic.");
    // A server without a copy expects no confirmation: the bytes follow its response.
    if (!response.exists)
        return Upload(0);

    if (!enterStep(AttemptStep::Confirm))
        return 0;
    logSystem("Sending {} confirmation.", confirmationName(choice));
    const ConfirmContainer confirmation = confirmationFor(choice);
    const bool sent = link_.sendString(rendezvousSocket_,
                                       buildXML(confirmation.XMLpayload(), "ConfirmContainer"));
    if (!confirmation.resume)
        return kUploadCancelled; // whether or not the server received it
    if (!sent) {
        attempt_.reason = link_.failureReason();
        return 0;
    }
    const std::int64_t offset = confirmation.overwrite ? 0 : response.size;
    if (offset < 0) {
        attempt_.reason = fmt::format("the server reports a copy of {} bytes", offset);
        return 0;
    }
    return Upload(offset);
}

UploadEngine::Outcome UploadEngine::outcomeOf(std::int64_t result)
{
    if (result == kUploadConfirmed)
        return Outcome::Done;
    if (result == kUploadCancelled)
        return Outcome::Cancelled;
    if (result >= 1)
        schedule_.reset();
    return clock_.ending() ? Outcome::Ended : Outcome::Failed;
}

void UploadEngine::finishFile()
{
    setUnfinishedUpload({});
    queues_.removeUploadHead();
    ++progressRowIndex_;
    choice_ = kUndecided;
    schedule_.reset();
    attempt_ = {};
    closeSockets();
}

bool UploadEngine::waitForRetry()
{
    if (attempt_.sourceLost || schedule_.exhausted(attempt_.elapsed))
        return giveUp();
    for (auto left = schedule_.delay(); left.count() > 0; left -= kCountdownTick) {
        attempt_.secondsLeft = left;
        report(AttemptEventKind::Waiting);
        if (!clock_.sleepFor(kCountdownTick))
            return false;
    }
    schedule_.countFailure();
    return true;
}

bool UploadEngine::giveUp()
{
    AttemptEvent event = attempt_;
    event.kind = AttemptEventKind::GaveUp;
    view_.attemptChanged(event);
    if (keepGoing_ || attempt_.sourceLost) {
        finishFile();
        return true;
    }
    const Alert alert{"Upload attempt unsuccessful.  Unable to continue.  The application will "
                      "exit.\nReason: " +
                          reason_,
                      {},
                      {}};
    // The alert has one button only: the answer decides nothing.
    static_cast<void>(view_.runModal(alert));
    view_.terminate();
    return false;
}

void UploadEngine::report(AttemptEventKind kind)
{
    attempt_.kind = kind;
    attempt_.elapsed = std::chrono::nanoseconds(clock_.nanoseconds() - startedAt_);
    if (const std::string status = statusText(attempt_); !status.empty())
        statusUpdate(status, statusPercent(attempt_));
    view_.attemptChanged(attempt_);
}

bool UploadEngine::enterStep(AttemptStep step)
{
    attempt_.step = step;
    report(AttemptEventKind::StepChanged);
    return !clock_.ending();
}

void UploadEngine::statusUpdate(const std::string& status, std::int32_t percent)
{
    const bool changed = queues_.tableList().replace(progressRowIndex_, status, percent);
    std::optional<std::int32_t> shown;
    if (changed && percent >= 0)
        shown = percent;
    view_.reloadProgressGrid(shown);
}

void UploadEngine::statusBarUpdate(bool showFile, const std::string& rate)
{
    std::string name = "[none]";
    const auto row = queues_.tableList().objectAtIndex(progressRowIndex_);
    if (showFile && row != nullptr)
        name = row->filename;
    view_.setStatusBar(name, rate);
}

} // namespace quenmoor
