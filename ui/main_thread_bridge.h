// Runs a background thread's work on the main thread and waits for it.
//
// Call close() before the event loop is told to quit. Qt's own blocking calls do not replace this
// class: they hang after the event loop has ended and report success for work that never ran. The
// class itself uses no Qt, so that ThreadSanitizer can check it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace quenmoor {

class MainThreadBridge {
public:
    using Work = std::function<void()>;
    using AnswerCallback = std::function<void(std::int32_t)>;

    // `wake` makes the main thread call runPending() soon. It is called on any thread, with no lock
    // held.
    explicit MainThreadBridge(std::function<void()> wake);

    MainThreadBridge(const MainThreadBridge&) = delete;
    MainThreadBridge& operator=(const MainThreadBridge&) = delete;

    // Any thread except main; blocks on it. Returns false if the bridge was closed before the work
    // began; work that has begun is always waited for. The calls of one thread run in order.
    [[nodiscard]] bool runOnMainAndWait(Work work);

    // Any thread except main; blocks without a time limit. Runs `ask` on the main thread, which
    // returns at once and calls its argument later, on any thread, with the answer. Returns nullopt
    // if the bridge was closed first. A second or later answer is ignored.
    [[nodiscard]] std::optional<std::int32_t>
    askOnMainAndWait(std::function<void(AnswerCallback)> ask);

    // Main thread only. Runs all waiting work. May be called from that work.
    void runPending();

    // Main thread only. Releases every caller whose work has not begun or whose question has no
    // answer yet, and rejects all later calls.
    void close();

private:
    enum class Progress : std::uint8_t { Waiting, Running, Done, Dropped };

    // Located on the caller's stack. The main thread does not access it once it is Done or Dropped.
    struct Job {
        Work work;
        Progress progress = Progress::Waiting;
    };

    Job* takeJob();

    // Set once at construction.
    const std::function<void()> wake_;

    std::mutex mutex_;
    std::condition_variable changed_;

    // Guarded by mutex_.
    std::deque<Job*> waiting_;
    bool closed_ = false;
};

} // namespace quenmoor
