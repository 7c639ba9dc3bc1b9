// Carries work from background threads to the main thread and waits for it there.
//
// Knows no toolkit: whoever owns the main loop hands in a function that wakes it. The program's end
// is told by close(), which comes before the loop is told to quit; a toolkit's own blocking calls
// hang once the loop has ended, and report success for what never ran.
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
    using Answer = std::function<void(std::int32_t)>;

    // `wake` makes the main thread call runPending() soon. Called from any thread, without a lock.
    explicit MainThreadBridge(std::function<void()> wake);

    MainThreadBridge(const MainThreadBridge&) = delete;
    MainThreadBridge& operator=(const MainThreadBridge&) = delete;

    // Any thread but the main one: waits for it. False when the bridge was closed before the work
    // began; work that has begun is always waited for. Works of one caller run in their order.
    [[nodiscard]] bool runOnMainAndWait(Work work);

    // Any thread but the main one: waits without limit. Runs `ask` on the main thread, which
    // returns at once and gives the answer whenever it comes. Nothing when the bridge was closed
    // first; an answer given later, or a second one, is dropped.
    [[nodiscard]] std::optional<std::int32_t> askOnMainAndWait(std::function<void(Answer)> ask);

    // Main thread. Does what waits. May be entered again from the work itself.
    void runPending();

    // Main thread. Lets every caller go whose work has not begun or whose question stands open,
    // and turns all further ones away.
    void close();

private:
    enum class Progress : std::uint8_t { Waiting, Running, Done, Dropped };

    // On its caller's stack; the main thread leaves it alone once it is Done or Dropped.
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
