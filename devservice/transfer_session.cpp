#include "devservice/transfer_session.h"

#include "base/text.h"
#include "devservice/request_reader.h"
#include "devservice/response_documents.h"

#include <algorithm>
#include <array>
#include <limits>
#include <vector>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr std::int32_t kRefused = 1;
constexpr std::int64_t kRoom = 1 << 20;
constexpr std::size_t kDocumentRoom = 4096;
constexpr auto kShortPoll = 2ms;
constexpr auto kLongPoll = 20ms;
constexpr std::int64_t kPaceSteps = 10; // a second

constexpr std::string_view kGarbage = "These words are no document. <<<";

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
                                 std::shared_ptr<SessionSignal> signal)
    : services_(services), client_(std::move(client)), signal_(std::move(signal))
{
}

void TransferSession::run()
{
    say("a client at {}", client_.peer.text());
    const std::optional<RequestContainer> request = receiveRequest();
    if (!request)
        return;
    say("announces {} bytes for \"{}\"", request->size, printableLine(request->originFilename));
    if (has(FaultKind::RefuseRendezvous)) {
        drop("told to refuse the rendezvous");
        return;
    }
    if (!meetClient())
        return;
    if (has(FaultKind::NeverAnswer)) {
        awaitClose(services_.limits.confirmation);
        drop("told never to answer");
        return;
    }
    serve(*request);
}

std::optional<RequestContainer> TransferSession::receiveRequest()
{
    const Time deadline = steady_clock::now() + services_.limits.request;
    std::string text;
    while (!endsRequest(text)) {
        if (!gather(client_.socket, text, kLongestRequest, deadline))
            return std::nullopt;
    }
    std::optional<RequestContainer> request = readRequest(text);
    if (!request)
        drop("its request cannot be read");
    return request;
}

bool TransferSession::meetClient()
{
    std::string error;
    link_ = UdtSocket::rendezvous(client_.local, client_.peer, error);
    if (!link_)
        return drop(error);
    const Time deadline = steady_clock::now() + services_.limits.rendezvous;
    while (!link_->connected()) {
        if (!signal_->sleepFor(kShortPoll))
            return drop(signal_->reason());
        if (steady_clock::now() >= deadline)
            return drop("it did not come to the rendezvous");
    }
    return signal_->sleepFor(services_.limits.settling) || drop(signal_->reason());
}

void TransferSession::serve(const RequestContainer& request)
{
    const std::string& name = request.originFilename;
    if (!services_.tokens.accepts(request.token, name, request.size)) {
        refuse("its token is not known");
        return;
    }
    const auto turn = services_.turns.take(request.token, client_.attempt, signal_,
                                           services_.limits.displacement);
    if (!turn) {
        refuse("another attempt with its token goes on");
        return;
    }
    std::string error;
    std::unique_ptr<StoredUpload> upload = services_.store.upload(name, request.size, error);
    if (upload == nullptr) {
        refuse(error);
        return;
    }
    if (!respond(*upload) || !settle(*upload) || !receiveFile(*upload))
        return;
    const std::int64_t held = upload->position();
    if (!upload->complete()) {
        drop(upload->error());
        return;
    }
    upload.reset(); // others may have the name from here on
    say("finished, {} bytes held", held);
    sendClosing(held);
}

bool TransferSession::respond(const StoredUpload& upload)
{
    if (has(FaultKind::AnswerLate))
        awaitClose(std::min(std::chrono::milliseconds(valueOf(FaultKind::AnswerLate, 0)),
                            services_.limits.confirmation));
    const HeldCopy& held = upload.held();
    const std::string document = responseDocument(responseFor(held));
    // After such words nobody knows what the client sends, so nothing of it is taken.
    if (has(FaultKind::GarbageResponse) || has(FaultKind::CutOffResponse)) {
        const std::string_view half = std::string_view(document).substr(0, document.size() / 2);
        if (link_->send(has(FaultKind::GarbageResponse) ? kGarbage : half))
            awaitClose(services_.limits.silence);
        return drop("told to spoil the response");
    }
    if (!link_->send(document))
        return drop("the response could not be sent");
    if (held.exists)
        say("holds {} bytes ({}, {})", held.size, held.equal ? "the same file" : "another file",
            held.complete ? "complete" : "incomplete");
    return true;
}

// Without a copy the file follows the response; with one, the client first says what to do.
bool TransferSession::settle(StoredUpload& upload)
{
    if (!upload.held().exists)
        return upload.startOver() || drop(upload.error());

    const Time deadline = steady_clock::now() + services_.limits.confirmation;
    std::optional<std::size_t> length;
    while (!(length = confirmationLength(early_))) {
        if (!gather(*link_, early_, kLongestConfirmation, deadline))
            return false;
    }
    const auto confirmation = readConfirmation(std::string_view(early_).substr(0, *length));
    early_.erase(0, *length);
    if (!confirmation)
        return drop("its confirmation cannot be read");
    if (!confirmation->resume)
        return drop("cancelled by the client");
    const bool ready = confirmation->overwrite ? upload.startOver() : upload.resume();
    if (!ready)
        return drop(upload.error());
    say("{} at {} bytes", confirmation->overwrite ? "starts over" : "resumes", upload.position());
    return true;
}

bool TransferSession::receiveFile(StoredUpload& upload)
{
    const std::int64_t end = std::min(valueOf(FaultKind::DropAfter, upload.due()),
                                      valueOf(FaultKind::StopReading, upload.due()));
    const std::int64_t step = std::clamp<std::int64_t>(
        valueOf(FaultKind::SlowReading, kRoom * kPaceSteps) / kPaceSteps, 1, kRoom);
    std::vector<char> room(static_cast<std::size_t>(step));
    const Time start = steady_clock::now();
    Time lastByte = start;
    std::int64_t received = 0;
    while (upload.due() > 0) {
        const std::int64_t wanted = std::min({step, upload.due(), end - received});
        if (wanted == 0)
            return stopEarly(received);
        const Received got = receiveBytes(std::span(room).first(static_cast<std::size_t>(wanted)));
        if (got.outcome == Received::Outcome::Gone)
            return drop(fmt::format("the client has gone, {} bytes held", upload.position()));
        if (!upload.append(std::span(room).first(got.count)))
            return drop(upload.error());
        if (got.count > 0)
            lastByte = steady_clock::now();
        else if (steady_clock::now() - lastByte >= services_.limits.silence)
            return drop(fmt::format("the client fell silent, {} bytes held", upload.position()));
        received += static_cast<std::int64_t>(got.count);
        if (!keepPace(start, received))
            return drop(signal_->reason());
    }
    return true;
}

void TransferSession::sendClosing(std::int64_t held)
{
    // A client that sent nothing since the response may not have read that yet.
    if (held == 0 && !awaitAcknowledgement())
        return;
    held += has(FaultKind::LargerFinalSize) ? 1 : 0;
    held -= has(FaultKind::SmallerFinalSize) ? 1 : 0;
    if (has(FaultKind::GarbageClosing))
        (void)link_->send(kGarbage);
    else if (!has(FaultKind::NoClosingDocument) && !link_->send(finishedDocument(held)))
        drop("the closing document could not be sent");
    awaitClose(services_.limits.goodbye);
}

void TransferSession::refuse(const std::string& reason)
{
    ResponseContainer response = responseFor({});
    response.response = kRefused;
    say("refused: {}", reason);
    if (link_->send(responseDocument(response)))
        awaitClose(services_.limits.goodbye);
}

// Appends what comes next to `text`; false, logged, when there is nothing to wait for any more.
bool TransferSession::gather(UdtSocket& socket, std::string& text, std::size_t longest,
                             Time deadline)
{
    if (text.size() >= longest)
        return drop("its document does not end");
    if (steady_clock::now() >= deadline)
        return drop("its document did not come in time");
    std::array<char, kDocumentRoom> room{};
    const Received got = socket.receive(room);
    if (got.outcome == Received::Outcome::Gone)
        return drop("the client has gone");
    text.append(room.data(), got.count);
    const std::string reason = signal_->reason();
    return reason.empty() || drop(reason);
}

Received TransferSession::receiveBytes(std::span<char> room)
{
    if (early_.empty())
        return link_->receive(room);
    const std::size_t count = early_.copy(room.data(), room.size());
    early_.erase(0, count);
    return {Received::Outcome::Bytes, count};
}

// Rests as long as a slow reader would. False when the session is to end.
bool TransferSession::keepPace(Time start, std::int64_t received)
{
    const std::int64_t rate = valueOf(FaultKind::SlowReading, 0);
    if (rate == 0)
        return signal_->reason().empty();
    const auto due = start + std::chrono::milliseconds(received * 1000 / rate);
    return signal_->sleepFor(std::max(
        0ms, std::chrono::duration_cast<std::chrono::milliseconds>(due - steady_clock::now())));
}

bool TransferSession::stopEarly(std::int64_t received)
{
    if (has(FaultKind::StopReading)) {
        say("told to stop reading after {} bytes", received);
        awaitClose(services_.limits.confirmation);
    }
    return drop(fmt::format("told to end after {} bytes", received));
}

bool TransferSession::awaitAcknowledgement()
{
    const Time deadline = steady_clock::now() + services_.limits.goodbye;
    while (link_->unacknowledgedPackets() != 0) {
        if (!link_->connected() || steady_clock::now() >= deadline)
            return drop("the response did not arrive");
        if (!signal_->sleepFor(kShortPoll))
            return drop(signal_->reason());
    }
    return signal_->sleepFor(services_.limits.betweenDocuments) || drop(signal_->reason());
}

// Reads nothing. Returns when the client has closed the link or lost it.
void TransferSession::awaitClose(std::chrono::milliseconds longest)
{
    const Time deadline = steady_clock::now() + longest;
    while (link_->connected() && steady_clock::now() < deadline) {
        if (!signal_->sleepFor(kLongPoll))
            return;
    }
}

bool TransferSession::drop(const std::string& reason)
{
    say("dropped: {}", reason);
    return false;
}

std::int64_t TransferSession::valueOf(FaultKind kind, std::int64_t without) const
{
    const Fault* const fault = findFault(client_.faults, kind);
    return fault != nullptr ? fault->value : without;
}

} // namespace quenmoor
