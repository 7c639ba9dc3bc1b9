// Shows the engine's work as events, and answers its question.
//
// The engine tells only that something changed; which row, and what it means, is read off the
// table: rows go through their upload one after another, so one index follows them.
#pragma once

#include "cli/put_report.h"
#include "engine/upload_view.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <vector>

namespace quenmoor {

struct Answer {
    std::int32_t button = kFirstButton;
    std::string note; // why it is not the answer that the user might expect; may be empty
};

// Answers the question about an existing copy; nothing when the program ended meanwhile.
using Answerer = std::function<std::optional<Answer>(const Alert&)>;

struct PutTally {
    std::size_t finished = 0;
    std::size_t cancelled = 0;
    std::size_t unfinished = 0;
    std::int64_t bytes = 0; // what the link took of the finished files
    bool gaveUp = false;
};

class PutView : public UploadView {
public:
    // `onEnd` is called once, by the upload thread, when every file has ended or one was given
    // up. Everything outlives the view.
    PutView(PutReport& report, Answerer answerer, std::function<void()> onEnd);

    // Main thread, before the engine starts: the file of the next row.
    void addFile(const std::string& file, std::int64_t size);

    // Any thread. Further calls of the engine change nothing.
    void close() { closed_ = true; }

    // Any thread.
    PutTally tally() const;
    // The row of the file that was given up. Requires tally().gaveUp.
    std::size_t failedRow() const { return tally().finished + tally().cancelled; }

    void reloadProgressGrid(std::optional<std::int32_t> /*percent*/) override {}
    void setStatusBar(const std::string& /*filename*/, const std::string& /*rate*/) override {}
    std::optional<std::int32_t> runModal(const Alert& alert) override;
    void terminate() override;
    void attemptChanged(const AttemptEvent& event) override;

private:
    struct File {
        std::string name;
        std::int64_t size;
        std::int32_t attempt = 0;
        std::int32_t percent = 0;
    };

    PutEvent eventFor(PutEventKind kind) const;
    void reportStatus(const AttemptEvent& attempt);
    void reportFinished(const AttemptEvent& attempt);
    void reportCancelled();
    // Counts the current file's end and goes on to the next one.
    void count(std::size_t PutTally::*how, std::int64_t bytes);

    // Set once, before the engine starts.
    PutReport& report_;
    const Answerer answerer_;
    const std::function<void()> onEnd_;

    // Upload and monitor threads, which never call at the same time.
    std::vector<File> files_;
    std::size_t current_ = 0;

    // Any thread.
    std::atomic<bool> closed_{false};
    mutable std::mutex tallyMutex_;
    PutTally tally_; // guarded by tallyMutex_
};

} // namespace quenmoor
