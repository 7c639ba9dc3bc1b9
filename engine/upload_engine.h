// Sends the queued files, one at a time, over one background thread.
//
// The thread is started by the first initiateUpload() that finds a file and then idles between
// files; it ends only with the program. Everything that it waits for in between is either a rest
// of the clock, which the program's end cuts short, or the transfer link, which it does not: a
// rendezvous takes up to 30 seconds. So nobody may wait for the thread without a limit.
#pragma once

#include "engine/attempt_record.h"
#include "engine/clock.h"
#include "engine/existing_file.h"
#include "engine/progress_monitor.h"
#include "engine/retry_schedule.h"
#include "engine/upload_view.h"
#include "protocol/transfer_link.h"
#include "queue/upload_queues.h"

#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <thread>

namespace quenmoor {

// Results of handleFile and Upload. Anything else is the number of bytes that went out before the
// failure, 0 included.
inline constexpr std::int64_t kUploadConfirmed = -1;
inline constexpr std::int64_t kUploadCancelled = -2;

class UploadEngine {
public:
    // All five outlive the engine.
    UploadEngine(UploadQueues& queues, TransferLink& link, UploadView& view, Clock& clock);

    // The upload thread must have ended: see waitForEnd().
    ~UploadEngine();

    UploadEngine(const UploadEngine&) = delete;
    UploadEngine& operator=(const UploadEngine&) = delete;

    // Any thread. Starts the upload thread unless it runs or nothing is queued.
    void initiateUpload();

    // The upload thread's body; a test may run it on its own thread. Returns when the clock says
    // that the program is ending, and after the final failure of a file.
    void uploadFile();

    // One thread. Waits for the upload thread to end, at most for `limit`; end the clock first.
    // False when it is still inside the link: then the engine must not be destroyed, and the
    // process is to be left without destruction.
    [[nodiscard]] bool waitForEnd(std::chrono::milliseconds limit);

    // Upload or monitor thread, never the one that draws; both return once the view has applied
    // the change. The current row gets the text and, unless negative, the percentage.
    void statusUpdate(const std::string& status, std::int32_t percent);
    // Shows the current row's file name, or "[none]", beside `rate`.
    void statusBarUpdate(bool showFile, const std::string& rate);

    // Monitor thread. One sample of the transfer: `bytes` of `total` at `rate` MB/s.
    void reportSample(std::int64_t bytes, std::int64_t total, double rate);

    // Any thread.
    const AttemptRecord& attempt() const { return attempt_; }

    // After the upload thread ended, or from a call that it makes to the view: the last recorded
    // failure, "" at first. It is not cleared between files.
    const std::string& reason() const { return reason_; }

private:
    enum class Outcome : std::uint8_t { Done, Failed, Ended };

    // One attempt for the head of the upload queue, and what follows from its outcome.
    // False when the thread is to end.
    bool runAttempt();

    // The attempt itself: announce, response, question, file. Sockets stay open.
    Outcome attemptUpload(const InfoContainer& head);

    // Empty when any step failed; reason_ then says so. Next: settleAndSend().
    std::string announce(const InfoContainer& head);

    // After announce(). Asks when it must and hands over to handleFile().
    Outcome settleAndSend(const ResponseContainer& response);

    // False when the program ended while the question stood.
    bool InterrogateExists(const ResponseContainer& response);

    void finishFile();
    // False when the thread is to end: no further attempt, or the program ended in the wait.
    bool waitForRetry();
    void giveUp();

    // Sends the confirmation that `choice` asks for and then the file. The caller has no
    // confirmation of its own to give.
    std::int64_t handleFile(std::int32_t choice, const ResponseContainer& response);

    // Streams the file at the head of the upload queue from `offset` and waits for the server to
    // confirm the size it now holds. Blocks for the whole transfer. On every way out the sockets
    // and the file are closed and the monitor thread is joined.
    std::int64_t Upload(std::int64_t offset);

    // False when the link failed or the program is ending. `sent` counts what the link took.
    bool sendData(std::ifstream& file, ProgressMonitorState& state, std::int64_t& sent);
    void waitForEmptyLink();
    // True when the server confirmed at least `position` bytes.
    bool receiveFinished(std::int64_t position);
    void logSendFailure(std::ifstream& file, std::int64_t position, std::int64_t bytesRead);
    void closeAfterSuccess(std::ifstream& file);

    void closeSockets() { link_.closeSockets(rendezvousSocket_, connectSocket_); }

    // Set once at construction.
    UploadQueues& queues_;
    TransferLink& link_;
    UploadView& view_;
    Clock& clock_;

    // Upload thread only.
    RetrySchedule schedule_;
    std::string reason_;
    std::int32_t choice_ = kUndecided;
    std::int32_t connectSocket_ = 0;
    std::int32_t rendezvousSocket_ = 0;

    // Upload thread; the monitor reads it too, but only while the upload thread is inside
    // Upload(), where it does not change.
    std::size_t progressRowIndex_ = 0;

    // Any thread.
    AttemptRecord attempt_;
    std::atomic<bool> running_{false};

    // The thread that starts and ends the engine.
    std::thread uploadThread_;

    std::mutex endMutex_;
    std::condition_variable endReached_;
    bool ended_ = false; // guarded by endMutex_
};

} // namespace quenmoor
