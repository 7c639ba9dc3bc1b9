#include "base/log.h"
#include "engine/upload_engine.h"
#include "protocol/documents.h"

#include <array>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

// Measured twice as fast on loopback as whole packets or larger blocks: the short last packet of
// each block is acknowledged at once.
constexpr std::size_t kBlockSize = 16384;

// Zero-length sends return at once, fifty million a second. A file that ends too early would keep
// a core busy until the server gives up.
constexpr auto kEmptyReadPause = 10ms;

constexpr auto kEmptyLinkPoll = 2ms;
constexpr std::int64_t kStalledLinkNanoseconds = 10'000'000'000;

constexpr std::int32_t kStateUnknown = -1337; // what the log shows for a state never written

} // namespace

std::int64_t UploadEngine::Upload(std::int64_t offset)
{
    logSystem("Uploading file.");
    const std::optional<InfoContainer> head = queues_.uploadHead();
    if (!head)
        return 0;
    // A file that cannot be opened reads as empty, and ends as a link that sends nothing.
    std::ifstream file(head->file.path(), std::ios::in | std::ios::binary);
    file.seekg(offset);

    attempt_.step = AttemptStep::Send;
    attempt_.bytesSent = offset;
    ProgressMonitorState state{*this, clock_, head->size, true, offset};
    std::thread monitor(progressMonitor, std::ref(state));

    std::int64_t sent = 0;
    bool confirmed = sendData(file, state, sent);
    attempt_.fileBytes += sent;
    if (confirmed) {
        logSystem("Exited send data loop.");
        state.stop();
        attempt_.bytesSent = state.bytesSent.load();
        waitForEmptyLink();
        confirmed = receiveFinished(state.bytesSent);
    }
    if (!confirmed) {
        closeSockets();
        file.close();
        state.stop();
        monitor.join();
        return sent;
    }
    monitor.join();
    logSystem("Progress monitor thread joined.");
    closeAfterSuccess(file);
    statusUpdate("Finished", 100);
    return kUploadConfirmed;
}

bool UploadEngine::sendData(std::ifstream& file, ProgressMonitorState& state, std::int64_t& sent)
{
    std::array<char, kBlockSize> buffer{};
    std::int64_t position = state.bytesSent;
    while (position < state.totalBytes) {
        file.read(buffer.data(), kBlockSize);
        const std::int64_t bytesRead = file.gcount();
        // A file that grew since it was announced is sent up to its announced size.
        const std::int64_t offered = std::min(bytesRead, state.totalBytes - position);
        const std::int32_t taken = link_.send(
            rendezvousSocket_, std::span(buffer.data(), static_cast<std::size_t>(offered)));
        if (taken == kLinkError) {
            logSendFailure(file, position, bytesRead);
            return false;
        }
        position += taken;
        state.bytesSent = position;
        sent += taken;
        if (file.eof())
            file.clear();
        if (taken < bytesRead)
            file.seekg(position); // what the link did not take is read again
        if (position == state.totalBytes)
            logSystem("Correct size sent.");
        if (bytesRead == 0 ? !clock_.sleepFor(kEmptyReadPause) : clock_.ending())
            return false;
    }
    return true;
}

void UploadEngine::logSendFailure(std::ifstream& file, std::int64_t position,
                                  std::int64_t bytesRead)
{
    logOutput("sendfile: " + link_.lastErrorMessage());
    logOutput(fmt::format("Last recorded progress: {} bytes read: {} position: {}", position,
                          bytesRead, static_cast<std::int64_t>(file.tellg())));
}

// The library takes up to 12 MB beyond what the link has carried. On a slow uplink that is more
// than the closing receive waits for, and every upload would fail at its very end.
void UploadEngine::waitForEmptyLink()
{
    attempt_.step = AttemptStep::Drain;
    std::int64_t lastFall = clock_.nanoseconds();
    std::int32_t left = link_.unacknowledged(rendezvousSocket_).value_or(0);
    while (left > 0 && link_.socketState(rendezvousSocket_) == kSocketConnected) {
        if (!clock_.sleepFor(kEmptyLinkPoll))
            return;
        const std::int32_t now = link_.unacknowledged(rendezvousSocket_).value_or(0);
        if (now < left)
            lastFall = clock_.nanoseconds();
        else if (clock_.nanoseconds() - lastFall >= kStalledLinkNanoseconds)
            return;
        left = now;
    }
}

bool UploadEngine::receiveFinished(std::int64_t position)
{
    attempt_.step = AttemptStep::Finish;
    const std::string text = link_.receiveString(rendezvousSocket_);
    logSystem("{}", text);
    if (text.empty()) {
        logSystem("Failed receiving response back after upload.");
        return false;
    }
    logSystem("Received response object from server.");
    FinishedContainer finished;
    return finished.parseXML(text).size >= position;
}

void UploadEngine::closeAfterSuccess(std::ifstream& file)
{
    // Before the close the library may have forgotten the socket already; then the last known
    // value stands.
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
