// Sends the queued files to the server, one at a time, on one background thread.
//
// The thread is started by the first initiateUpload() that finds a queued file. It polls an empty
// queue and ends only with the program. The end of the clock interrupts every sleep of the thread,
// but not the transfer link: a rendezvous can block for 30 seconds. Wait for the thread with a
// limit only.
#pragma once

#include "engine/clock.h"
#include "engine/existing_file.h"
#include "engine/progress_monitor.h"
#include "engine/retry_schedule.h"
#include "engine/source_file.h"
#include "engine/upload_view.h"
#include "protocol/transfer_link.h"
#include "queue/upload_queues.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace quenmoor {

// Results of handleFile and Upload. Any other value is the number of bytes that were sent before
// the failure; it may be 0.
inline constexpr std::int64_t kUploadConfirmed = -1;
inline constexpr std::int64_t kUploadCancelled = -2;

class UploadEngine {
public:
    // All four outlive the engine.
    UploadEngine(UploadQueues& queues, TransferLink& link, UploadView& view, Clock& clock,
                 const RetryPolicy& policy = {});

    // The upload thread must have ended: see waitForEnd().
    ~UploadEngine();

    UploadEngine(const UploadEngine&) = delete;
    UploadEngine& operator=(const UploadEngine&) = delete;

    // Any thread. Starts the upload thread, unless it is running or nothing is queued. Returns
    // false if the system refused the thread: nothing is sent, and a later call tries again.
    [[nodiscard]] bool initiateUpload();

    // The body of the upload thread; a test may run it on its own thread. Returns when the program
    // is ending, and after the final failure of a file unless the policy keeps going.
    void uploadFile();

    // One thread, after the end of the clock. Waits at most `limit` for the upload thread to end.
    // Returns false if it is still blocked in the link: then the engine must not be destroyed, and
    // the process has to exit without destructors.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds limit);

    // Upload or monitor thread; all block until the view has applied the change. The current row
    // gets the text and, unless it is negative, the percentage.
    void statusUpdate(const std::string& status, std::int32_t percent);
    // Shows the file name of the current row, or "[none]", together with `rate`.
    void statusBarUpdate(bool showFile, const std::string& rate);
    // Shows `sample`, a Progress event, in the row and in the status bar, and reports it.
    void reportProgress(const AttemptEvent& sample);

private:
    // What the driver does after an attempt depends on nothing else.
    enum class Outcome : std::uint8_t { Done, Cancelled, Failed, Ended };

    // Runs one attempt for the head of the upload queue and acts on its outcome. Returns false if
    // the thread has to end.
    bool runAttempt();

    // The attempt itself. Leaves the sockets open.
    Outcome attemptUpload(const InfoContainer& head);

    void beginAttempt(const InfoContainer& head);

    // Returns true, with the reason, if the policy gives up a lost source and `head` is one.
    bool sourceLost(const InfoContainer& head);

    // Connects, sends the request and receives the response. Returns an empty string if a step
    // failed. Previous: beginAttempt(). Next: resolveExistingCopy() with the parsed response.
    std::string requestUpload(const InfoContainer& head);

    // Decides about an existing copy and asks the user if necessary. Returns false if the program
    // ended during the question. Next: handleFile().
    bool resolveExistingCopy(const ResponseContainer& response);

    // Asks the user about an existing copy and sets choice_. Returns false if there was no answer.
    bool InterrogateExists(const ResponseContainer& response);

    // Sends the confirmation for `choice`, if the server expects one, and then the file.
    std::int64_t handleFile(std::int32_t choice, const ResponseContainer& response);

    // The only place that interprets a result of handleFile().
    Outcome outcomeOf(std::int64_t result);

    void finishFile();
    // Returns false if the thread has to end: no attempt is left, or the program is ending.
    bool waitForRetry();
    // Returns false if the program has to end. Next: the next file, if the policy keeps going.
    bool giveUp();

    // Streams the file at the head of the upload queue from `offset` and waits for the server to
    // confirm the size it now holds. Blocks for the whole transfer. Closes the sockets and the
    // file and joins the monitor thread before every return.
    std::int64_t Upload(std::int64_t offset);

    enum class SendResult : std::uint8_t { Complete, Stopped, SourceEnded };

    // Sends from attempt_.bytes to attempt_.total. Stopped: the link failed, or the program is
    // ending. SourceEnded: for ten seconds the file yielded nothing more, or the source is lost.
    SendResult sendData(const InfoContainer& head, SourceFile& file, ProgressMonitor& monitor);
    SendResult sourceEnded(const SourceFile& file);
    // Returns false if the server acknowledged nothing for ten seconds, or the link is broken.
    bool waitForAcknowledgement();
    // Waits until everything is acknowledged, and then for the closing document, each for up to ten
    // seconds without progress. Returns true if the server confirmed at least the bytes that were
    // sent.
    bool receiveFinished();
    void logSendFailure(std::int64_t bytesRead);
    void closeAfterSuccess(SourceFile& file);
    void closeSockets() { link_.closeSockets(rendezvousSocket_, connectSocket_); }

    // Changes the row to what the event shows, if it shows anything, and reports the event. Upload
    // thread, while no monitor runs.
    void report(AttemptEventKind kind);
    // Reports the step. Returns false if the program is ending: then the step must not begin, so
    // that a decision no longer changes the copy on the server.
    [[nodiscard]] bool enterStep(AttemptStep step);
    // What the progress monitor calls for the transfer of `head` that `start` describes. Monitor
    // thread.
    void onSample(const std::optional<ProgressSample>& sample, const AttemptEvent& start,
                  const InfoContainer& head);

    // Set once at construction.
    UploadQueues& queues_;
    TransferLink& link_;
    UploadView& view_;
    Clock& clock_;
    const bool keepGoing_;
    const bool giveUpLostSource_;

    // Upload thread only.
    RetrySchedule schedule_;
    AttemptEvent attempt_;       // the current attempt, as last reported or since then
    std::int64_t startedAt_ = 0; // time of the clock when the first attempt of the file began
    std::string reason_;         // for the final alert; never cleared, also not between files
    std::int32_t choice_ = kUndecided;
    std::int32_t connectSocket_ = 0;
    std::int32_t rendezvousSocket_ = 0;

    // Upload thread. The monitor reads it only while the upload thread is inside Upload(), which
    // does not change it.
    std::size_t progressRowIndex_ = 0;

    std::atomic<bool> running_{false}; // any thread

    // The thread that starts and ends the engine.
    std::thread uploadThread_;

    std::mutex endMutex_;
    std::condition_variable endReached_;
    bool ended_ = false; // guarded by endMutex_
};

} // namespace quenmoor
