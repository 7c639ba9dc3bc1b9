#include "devservice/transfer_session.h"

#include "base/text.h"
#include "devservice/service_documents.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr std::int32_t kRefused = 1;
constexpr std::int64_t kMaxBlock = 1 << 20; // bytes read at once
constexpr std::size_t kDocumentBuffer = 4096;
constexpr auto kShortPoll = 2ms;
constexpr auto kLongPoll = 20ms;
constexpr std::int64_t kRateSteps = 10; // reads per second of a rate-limited session

constexpr std::string_view kGarbage = "This is not a document. <<<";

ResponseContainer responseFor(const HeldCopy& held)
{
    ResponseContainer response;
    response.exists = held.exists;
    response.equal = held.equal;
    response.complete = held.complete;
    response.size = held.size;
    response.response = 0;
    return response;
}

} // namespace

TransferSession::TransferSession(TransferServices& services, AcceptedClient client,
                                 std::shared_ptr<StopSignal> stop, std::atomic<SessionStage>& stage)
    : services_(services), client_(std::move(client)), stop_(std::move(stop)), stage_(stage)
{
}

void TransferSession::run()
{
    logAttempt("client {} connected", client_.peer.text());
    const std::optional<RequestContainer> request = receiveRequest();
    if (!request)
        return;
    const bool accepted =
        services_.tokens.accepts(request->token, request->originFilename, request->size);
    if (accepted)
        stage_ = SessionStage::Accepted;
    logAttempt("announces {} bytes for \"{}\"", request->size,
               printableLine(request->originFilename));
    if (hasFault(FaultKind::RefuseRendezvous)) {
        logEnd("fault refuse-rendezvous");
        return;
    }
    if (!connectRendezvous(accepted ? services_.timeouts.rendezvous : services_.timeouts.refusal))
        return;
    if (!accepted) {
        refuse("the token is unknown or not valid for this file");
        return;
    }
    stage_ = SessionStage::Connected;
    if (hasFault(FaultKind::NeverAnswer)) {
        awaitClose(services_.timeouts.confirmation);
        logEnd("fault never-answer");
        return;
    }
    serveRequest(*request);
}

std::optional<RequestContainer> TransferSession::receiveRequest()
{
    const Time deadline = steady_clock::now() + services_.timeouts.request;
    std::string text;
    while (!endsRequest(text)) {
        if (!receiveMore(client_.socket, text, kMaxRequestBytes, deadline))
            return std::nullopt;
    }
    std::optional<RequestContainer> request = readRequest(text);
    if (!request)
        logEnd("the request is not valid");
    return request;
}

bool TransferSession::connectRendezvous(std::chrono::milliseconds timeout)
{
    std::string error;
    link_ = UdtSocket::rendezvous(client_.local, client_.peer, error);
    if (!link_)
        return logEnd(error);
    const Time deadline = steady_clock::now() + timeout;
    while (!link_->connected()) {
        if (!stop_->sleepFor(kShortPoll))
            return logEnd(stop_->reason());
        if (steady_clock::now() >= deadline)
            return logEnd("the client did not connect to the rendezvous");
    }
    if (const std::string fault = link_->handshakeFault(); !fault.empty())
        return logEnd(fault);
    return stop_->sleepFor(services_.timeouts.responsePause) || logEnd(stop_->reason());
}

void TransferSession::serveRequest(const RequestContainer& request)
{
    const std::string& name = request.originFilename;
    // The NUL byte separates: no token contains one.
    const auto claim = services_.attempts.claim(request.token + '\0' + name, client_.attempt, stop_,
                                                services_.timeouts.takeover);
    if (!claim) {
        refuse("another attempt of this upload is active");
        return;
    }
    std::string error;
    std::unique_ptr<StoredUpload> upload = services_.store.upload(name, request.size, error);
    if (upload == nullptr) {
        refuse(error);
        return;
    }
    if (!sendResponse(*upload) || !prepareCopy(*upload) || !receiveFile(*upload))
        return;
    const std::int64_t held = upload->position();
    if (!upload->complete()) {
        logEnd(upload->error());
        return;
    }
    upload.reset(); // releases the name
    logAttempt("finished, {} bytes held", held);
    if (sendClosingDocument(held))
        services_.tokens.useUp(request.token);
}

bool TransferSession::sendResponse(const StoredUpload& upload)
{
    if (hasFault(FaultKind::AnswerLate))
        awaitClose(std::min(std::chrono::milliseconds(faultValue(FaultKind::AnswerLate, 0)),
                            services_.timeouts.confirmation));
    const HeldCopy& held = upload.held();
    const std::string document = responseDocument(responseFor(held));
    // What the client sends after an invalid response is undefined, so nothing of it is stored.
    if (hasFault(FaultKind::GarbageResponse) || hasFault(FaultKind::CutOffResponse)) {
        const std::string_view half = std::string_view(document).substr(0, document.size() / 2);
        if (link_->send(hasFault(FaultKind::GarbageResponse) ? kGarbage : half))
            awaitClose(services_.timeouts.idle);
        return logEnd("fault in the response");
    }
    if (!link_->send(document))
        return logEnd("the response could not be sent");
    if (held.exists)
        logAttempt("holds {} bytes ({}, {})", held.size,
                   held.equal ? "the same file" : "another file",
                   held.complete ? "complete" : "incomplete");
    return true;
}

// Without a held copy, the file follows the response. With one, the client first confirms whether
// to resume it, to overwrite it or to cancel.
bool TransferSession::prepareCopy(StoredUpload& upload)
{
    if (!upload.held().exists)
        return upload.startOver() || logEnd(upload.error());

    const Time deadline = steady_clock::now() + services_.timeouts.confirmation;
    std::optional<std::size_t> length;
    while (!(length = confirmationLength(pending_))) {
        if (!receiveMore(*link_, pending_, kMaxConfirmationBytes, deadline))
            return false;
    }
    const auto confirmation = readConfirmation(std::string_view(pending_).substr(0, *length));
    pending_.erase(0, *length);
    if (!confirmation)
        return logEnd("the confirmation is not valid");
    if (!confirmation->resume)
        return logEnd("cancelled by the client");
    const bool ready = confirmation->overwrite ? upload.startOver() : upload.resume();
    if (!ready)
        return logEnd(upload.error());
    logAttempt("{} at {} bytes", confirmation->overwrite ? "starts over" : "resumes",
               upload.position());
    return true;
}

bool TransferSession::receiveFile(StoredUpload& upload)
{
    const std::int64_t end = std::min(faultValue(FaultKind::DropAfter, upload.missing()),
                                      faultValue(FaultKind::StopReading, upload.missing()));
    const std::int64_t step = std::clamp<std::int64_t>(
        faultValue(FaultKind::SlowReading, kMaxBlock * kRateSteps) / kRateSteps, 1, kMaxBlock);
    std::vector<char> buffer(static_cast<std::size_t>(step));
    const Time start = steady_clock::now();
    Time lastByte = start;
    std::int64_t received = 0;
    while (upload.missing() > 0) {
        const std::int64_t wanted = std::min({step, upload.missing(), end - received});
        if (wanted == 0)
            return endOnFault(received);
        const Received got =
            receiveFileBytes(std::span(buffer).first(static_cast<std::size_t>(wanted)));
        if (got.outcome == Received::Outcome::Broken)
            return logEnd(
                fmt::format("the link was closed or lost, {} bytes held", upload.position()));
        if (!upload.append(std::span(buffer).first(got.count)))
            return logEnd(upload.error());
        if (got.count > 0)
            lastByte = steady_clock::now();
        else if (steady_clock::now() - lastByte >= services_.timeouts.idle)
            return logEnd(fmt::format("nothing received before the idle time-out, {} bytes held",
                                      upload.position()));
        received += static_cast<std::int64_t>(got.count);
        if (!limitRate(start, received))
            return logEnd(stop_->reason());
    }
    return true;
}

// Returns whether the client has the correct document. Otherwise it repeats the upload.
bool TransferSession::sendClosingDocument(std::int64_t held)
{
    // A client that sent nothing since the response may not have read it yet.
    if (held == 0 && !awaitAcknowledgement())
        return false;
    const std::int64_t reported = held + (hasFault(FaultKind::LargerFinalSize) ? 1 : 0) -
                                  (hasFault(FaultKind::SmallerFinalSize) ? 1 : 0);
    const bool garbage = hasFault(FaultKind::GarbageClosing);
    const bool nothing = hasFault(FaultKind::NoClosingDocument);
    if (!nothing && !link_->send(garbage ? std::string(kGarbage) : finishedDocument(reported)))
        return logEnd("the closing document could not be sent");
    awaitClose(services_.timeouts.close);
    const bool received = !link_->connected() || link_->unacknowledgedPackets() == 0;
    return received && !garbage && !nothing && reported == held;
}

void TransferSession::refuse(const std::string& reason)
{
    ResponseContainer response = responseFor({});
    response.response = kRefused;
    logAttempt("refused: {}", reason);
    if (link_->send(responseDocument(response)))
        awaitClose(services_.timeouts.close);
}

// Appends the next received bytes to `text`. Returns false, and logs the reason, if the document is
// too long or late, the link was closed or the session is requested to end.
bool TransferSession::receiveMore(UdtSocket& socket, std::string& text, std::size_t maxBytes,
                                  Time deadline)
{
    if (text.size() >= maxBytes)
        return logEnd("a document is too long");
    if (steady_clock::now() >= deadline)
        return logEnd("a document did not arrive in time");
    std::array<char, kDocumentBuffer> buffer{};
    const Received got = socket.receive(buffer);
    if (got.outcome == Received::Outcome::Broken)
        return logEnd("the link was closed or lost");
    text.append(buffer.data(), got.count);
    const std::string reason = stop_->reason();
    return reason.empty() || logEnd(reason);
}

Received TransferSession::receiveFileBytes(std::span<char> buffer)
{
    if (pending_.empty())
        return link_->receive(buffer);
    const std::size_t count = pending_.copy(buffer.data(), buffer.size());
    pending_.erase(0, count);
    return {Received::Outcome::Bytes, count};
}

// Blocks as long as the rate limit requires. Returns false if the session is requested to end.
bool TransferSession::limitRate(Time start, std::int64_t received)
{
    const std::int64_t rate = faultValue(FaultKind::SlowReading, 0);
    if (rate == 0)
        return stop_->reason().empty();
    const auto due = start + std::chrono::milliseconds(received * 1000 / rate);
    return stop_->sleepFor(std::max(
        0ms, std::chrono::duration_cast<std::chrono::milliseconds>(due - steady_clock::now())));
}

bool TransferSession::endOnFault(std::int64_t received)
{
    if (hasFault(FaultKind::StopReading)) {
        logAttempt("fault stop-reading after {} bytes", received);
        awaitClose(services_.timeouts.confirmation);
    }
    return logEnd(fmt::format("fault after {} bytes", received));
}

bool TransferSession::awaitAcknowledgement()
{
    const Time deadline = steady_clock::now() + services_.timeouts.close;
    while (link_->unacknowledgedPackets() != 0) {
        if (!link_->connected() || steady_clock::now() >= deadline)
            return logEnd("the response was not acknowledged");
        if (!stop_->sleepFor(kShortPoll))
            return logEnd(stop_->reason());
    }
    return stop_->sleepFor(services_.timeouts.closingPause) || logEnd(stop_->reason());
}

// Reads nothing. Returns once the link is closed or broken, after `timeout`, or if the session is
// requested to end.
void TransferSession::awaitClose(std::chrono::milliseconds timeout)
{
    const Time deadline = steady_clock::now() + timeout;
    while (link_->connected() && steady_clock::now() < deadline) {
        if (!stop_->sleepFor(kLongPoll))
            return;
    }
}

// Logs why the attempt ended. Returns false, for the caller to return.
bool TransferSession::logEnd(const std::string& reason) const
{
    logAttempt("ended: {}", reason);
    return false;
}

std::int64_t TransferSession::faultValue(FaultKind kind, std::int64_t otherwise) const
{
    const Fault* const fault = findFault(client_.faults, kind);
    return fault != nullptr ? fault->value : otherwise;
}

} // namespace quenmoor
