#include "engine/upload_engine.h"

#include "base/log.h"
#include "protocol/documents.h"

#include <fmt/format.h>

#include <cassert>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr auto kIdlePoll = 200ms;
constexpr auto kCountdownTick = 1s;
constexpr std::int32_t kRefusal = 1; // the one status code that turns an upload down

} // namespace

std::string_view stepName(AttemptStep step)
{
    switch (step) {
    case AttemptStep::Idle: return "idle";
    case AttemptStep::Announce: return "announce";
    case AttemptStep::Rendezvous: return "rendezvous";
    case AttemptStep::Response: return "response";
    case AttemptStep::Refused: return "refused";
    case AttemptStep::Question: return "question";
    case AttemptStep::Confirm: return "confirm";
    case AttemptStep::Send: return "send";
    case AttemptStep::Drain: return "drain";
    case AttemptStep::Finish: return "finish";
    }
    return "";
}

UploadEngine::UploadEngine(UploadQueues& queues, TransferLink& link, UploadView& view, Clock& clock)
    : queues_(queues), link_(link), view_(view), clock_(clock)
{
}

UploadEngine::~UploadEngine()
{
    assert(!uploadThread_.joinable());
}

void UploadEngine::initiateUpload()
{
    if (queues_.uploadCount() == 0 || running_.exchange(true))
        return;
    uploadThread_ = std::thread([this] {
        uploadFile();
        const std::lock_guard lock(endMutex_);
        ended_ = true;
        endReached_.notify_all();
    });
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
    const Outcome outcome = attemptUpload(*head);
    if (choice_ == kCancel)
        statusUpdate("Canceled", 0);
    if (outcome == Outcome::Done || choice_ == kCancel) {
        finishFile();
        return true;
    }
    if (outcome == Outcome::Ended || clock_.ending()) {
        closeSockets();
        return false;
    }
    logSystem("Upload attempt unsuccessful.");
    statusUpdate("Waiting (Error)", -1);
    closeSockets();
    return waitForRetry();
}

UploadEngine::Outcome UploadEngine::attemptUpload(const InfoContainer& head)
{
    attempt_.bytesSent = 0;
    attempt_.totalBytes = head.size;
    attempt_.samples = 0;
    attempt_.step = AttemptStep::Announce;
    statusUpdate("Connecting", 0);
    const std::string text = announce(head);
    logSystem("{}", text);
    if (text.empty()) {
        // However far the attempt came, the user is told of the answer that is missing.
        reason_ = "Response from server not received.";
        return Outcome::Failed;
    }
    logSystem("Received response object from server.");
    ResponseContainer response;
    if (response.parseXML(text).response == kRefusal) {
        attempt_.step = AttemptStep::Refused;
        return Outcome::Failed;
    }
    return settleAndSend(response);
}

std::string UploadEngine::announce(const InfoContainer& head)
{
    const RequestContainer request{head.file.filename(), head.token.value_or(""), head.size};
    const std::string document = buildXML(request.XMLpayload(), "RequestContainer");
    logSystem("Sending XML: {}", document);
    if (!link_.connectAndSendRequest(connectSocket_, document))
        return {};
    logSystem("Initial connection successful.");

    attempt_.step = AttemptStep::Rendezvous;
    if (!link_.rendezvousWithServer(connectSocket_, rendezvousSocket_))
        return {};
    logSystem("Rendezvous successfully connected.");

    attempt_.step = AttemptStep::Response;
    return link_.receiveString(rendezvousSocket_);
}

UploadEngine::Outcome UploadEngine::settleAndSend(const ResponseContainer& response)
{
    if (response.exists && choice_ == kUndecided && !InterrogateExists(response))
        return Outcome::Ended;
    logSystem("Alert selection value: {}", choice_);
    if (choice_ == kUndecided)
        choice_ = kNotAsked;

    logSystem("Invoking file handler");
    const std::int64_t result = handleFile(choice_, response);
    if (result >= 1)
        schedule_.reset();
    return result == kUploadConfirmed ? Outcome::Done : Outcome::Failed;
}

bool UploadEngine::InterrogateExists(const ResponseContainer& response)
{
    attempt_.step = AttemptStep::Question;
    const std::optional<std::int32_t> answer = view_.runModal(existingFileAlert(response));
    if (!answer)
        return false;
    choice_ = choiceForButton(*answer);
    return true;
}

void UploadEngine::finishFile()
{
    queues_.removeUploadHead();
    ++progressRowIndex_;
    choice_ = kUndecided;
    schedule_.reset();
    attempt_.step = AttemptStep::Idle;
    attempt_.fileBytes = 0;
    closeSockets();
}

bool UploadEngine::waitForRetry()
{
    if (schedule_.exhausted()) {
        giveUp();
        return false;
    }
    for (auto left = schedule_.delay(); left.count() > 0; left -= kCountdownTick) {
        statusUpdate(fmt::format("Retrying in {}s", left.count()), -1);
        if (!clock_.sleepFor(kCountdownTick))
            return false;
    }
    schedule_.countFailure();
    return true;
}

void UploadEngine::giveUp()
{
    const Alert alert{"Upload attempt unsuccessful.  Unable to continue.  The application will "
                      "exit.\nReason: " +
                          reason_,
                      {},
                      {}};
    // There is one button only, so any answer is as good as none.
    static_cast<void>(view_.runModal(alert));
    view_.terminate();
}

} // namespace quenmoor
