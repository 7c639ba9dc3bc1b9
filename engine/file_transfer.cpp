#include "base/log.h"
#include "engine/upload_engine.h"
#include "protocol/documents.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

// Measured twice as fast on loopback as whole packets or larger blocks: the short last packet of
// each block is acknowledged at once.
constexpr std::size_t kBlockSize = 16384;

// A send of zero bytes returns at once. Without the pause, a file that ends too early would keep
// one core busy.
constexpr auto kEmptyReadPause = 10ms;
constexpr std::int64_t kEmptyReadLimit = 10'000'000'000; // nanoseconds

constexpr auto kAcknowledgementPoll = 2ms;
constexpr std::int64_t kAcknowledgementLimit = 10'000'000'000; // nanoseconds

constexpr std::int32_t kStateUnknown = -1337; // logged for a state that was never read

} // namespace

std::int64_t UploadEngine::Upload(std::int64_t offset)
{
    logSystem("Uploading file.");
    const std::optional<InfoContainer> head = queues_.uploadHead();
    if (!head)
        return 0;
    attempt_.bytes = offset;
    if (!enterStep(AttemptStep::Send))
        return 0;
    SourceFile file(head->file.path());
    SendResult result{};
    {
        ProgressMonitor monitor(clock_, offset,
                                [this, &head, start = attempt_](const auto& sample) {
                                    onSample(sample, start, *head);
                                });
        result = sendData(*head, file, monitor);
    }
    const std::int64_t sent = attempt_.bytes - offset;
    attempt_.sentBytes += sent;
    attempt_.sourceChanged = sourceChanged(*head);
    bool confirmed = false;
    if (result == SendResult::Complete) {
        logSystem("Exited send data loop.");
        confirmed = enterStep(AttemptStep::Drain) && receiveFinished();
    }
    if (!confirmed) {
        closeSockets();
        file.close();
        return result == SendResult::SourceEnded ? 0 : sent;
    }
    logSystem("Progress monitor thread joined.");
    closeAfterSuccess(file);
    report(AttemptEventKind::Finished);
    return kUploadConfirmed;
}

UploadEngine::SendResult UploadEngine::sendData(const InfoContainer& head, SourceFile& file,
                                                ProgressMonitor& monitor)
{
    std::array<char, kBlockSize> buffer{};
    std::int64_t lastRead = clock_.nanoseconds(); // the latest time that a read yielded bytes
    while (attempt_.bytes < attempt_.total) {
        const auto bytesRead = static_cast<std::int64_t>(file.read(attempt_.bytes, buffer));
        // A file that grew since it was announced is sent up to its announced size.
        const std::int64_t offered = std::min(bytesRead, attempt_.total - attempt_.bytes);
        const std::int32_t accepted = link_.send(
            rendezvousSocket_, std::span(buffer.data(), static_cast<std::size_t>(offered)));
        if (accepted == kLinkError) {
            attempt_.reason = link_.failureReason();
            logSendFailure(bytesRead);
            return SendResult::Stopped;
        }
        attempt_.bytes += accepted; // an unsent remainder of the block is read again
        monitor.setBytesSent(attempt_.bytes);
        if (attempt_.bytes == attempt_.total)
            logSystem("Correct size sent.");
        if (bytesRead > 0)
            lastRead = clock_.nanoseconds();
        else if (sourceLost(head) || clock_.nanoseconds() - lastRead >= kEmptyReadLimit)
            return sourceEnded(file);
        if (bytesRead == 0 ? !clock_.sleepFor(kEmptyReadPause) : clock_.ending())
            return SendResult::Stopped;
    }
    return SendResult::Complete;
}

UploadEngine::SendResult UploadEngine::sourceEnded(const SourceFile& file)
{
    if (!attempt_.sourceLost)
        attempt_.reason = file.failure();
    if (attempt_.reason.empty())
        attempt_.reason =
            fmt::format("the file ends after {} of {} bytes", attempt_.bytes, attempt_.total);
    return SendResult::SourceEnded;
}

// The position is that after the read, or -1 if the read reached the end of the file.
void UploadEngine::logSendFailure(std::int64_t bytesRead)
{
    const bool atEnd = bytesRead < static_cast<std::int64_t>(kBlockSize);
    logOutput("sendfile: " + link_.lastErrorMessage());
    logOutput(fmt::format("Last recorded progress: {} bytes read: {} position: {}", attempt_.bytes,
                          bytesRead, atEnd ? -1 : attempt_.bytes + bytesRead));
}

void UploadEngine::onSample(const std::optional<ProgressSample>& sample, const AttemptEvent& start,
                            const InfoContainer& head)
{
    if (!sample) {
        statusBarUpdate(false, "Upload rate: 0.000 MB/s");
        return;
    }
    AttemptEvent event = start;
    event.kind = AttemptEventKind::Progress;
    event.bytes = sample->bytes;
    event.sentBytes = start.sentBytes + sample->bytes - start.bytes;
    event.rate = sample->rate;
    event.firstSample = sample->first;
    event.averageRate = sample->averageRate;
    event.sourceChanged = sourceChanged(head);
    event.elapsed = std::chrono::nanoseconds(clock_.nanoseconds() - startedAt_);
    reportProgress(event);
}

void UploadEngine::reportProgress(const AttemptEvent& sample)
{
    statusUpdate(statusText(sample), statusPercent(sample));
    statusBarUpdate(true, fmt::format("Upload rate: {:.03f} MB/s", sample.rate));
    view_.attemptChanged(sample);
}

// The library accepts up to 12 MB more than the network has carried. Without this wait the closing
// receive would time out on a slow uplink, and every upload would fail at its end.
bool UploadEngine::waitForAcknowledgement()
{
    std::int64_t lastProgress = clock_.nanoseconds();
    std::int32_t left = link_.unacknowledged(rendezvousSocket_).value_or(0);
    while (left > 0) {
        if (link_.socketState(rendezvousSocket_) != kSocketConnected ||
            !clock_.sleepFor(kAcknowledgementPoll))
            return false;
        const std::int32_t now = link_.unacknowledged(rendezvousSocket_).value_or(0);
        if (now < left)
            lastProgress = clock_.nanoseconds();
        else if (clock_.nanoseconds() - lastProgress >= kAcknowledgementLimit)
            return false;
        left = now;
    }
    return true;
}

bool UploadEngine::receiveFinished()
{
    const bool acknowledged = waitForAcknowledgement();
    if (acknowledged ? !enterStep(AttemptStep::Finish) : clock_.ending())
        return false;
    // A link that broke may have delivered the document before.
    const bool stalled = !acknowledged && link_.socketState(rendezvousSocket_) == kSocketConnected;
    const std::string text = stalled ? std::string() : link_.receiveString(rendezvousSocket_);
    logSystem("{}", text);
    if (text.empty()) {
        attempt_.reason =
            stalled ? "the server acknowledged no data for 10 s" : link_.failureReason();
        logSystem("Failed receiving response back after upload.");
        return false;
    }
    attempt_.step = AttemptStep::Finish;
    logSystem("Received response object from server.");
    FinishedContainer finished;
    const std::int64_t held = finished.parseXML(text).size;
    if (held >= attempt_.bytes)
        return true;
    attempt_.reason = fmt::format("the server holds {} of {} bytes", held, attempt_.bytes);
    return false;
}

void UploadEngine::closeAfterSuccess(SourceFile& file)
{
    // The library forgets a closed socket; the last known state is logged then.
    std::int32_t state = kStateUnknown;
    const auto logState = [this, &state] {
        state = link_.socketState(rendezvousSocket_).value_or(state);
        logSystem("Socket state: {}", state);
    };
    logState();
    logState();
    closeSockets();
    file.close();
    logState();
    logSystem("Exiting upload method.");
}

} // namespace quenmoor
