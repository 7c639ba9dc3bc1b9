#include "ui/main_thread_bridge.h"

#include <memory>

namespace quenmoor {

MainThreadBridge::MainThreadBridge(std::function<void()> wake) : wake_(std::move(wake)) {}

bool MainThreadBridge::runOnMainAndWait(Work work)
{
    Job job{std::move(work)};
    {
        const std::lock_guard lock(mutex_);
        if (closed_)
            return false;
        waiting_.push_back(&job);
    }
    wake_();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&job] {
        return job.progress == Progress::Done || job.progress == Progress::Dropped;
    });
    return job.progress == Progress::Done;
}

std::optional<std::int32_t>
MainThreadBridge::askOnMainAndWait(std::function<void(AnswerCallback)> ask)
{
    // Shared with the callback, which may be called after this function has returned.
    const auto answer = std::make_shared<std::optional<std::int32_t>>();
    const AnswerCallback give = [this, answer](std::int32_t value) {
        const std::lock_guard lock(mutex_);
        if (closed_ || *answer)
            return;
        *answer = value;
        changed_.notify_all();
    };
    if (!runOnMainAndWait([&ask, &give] { ask(give); }))
        return std::nullopt;
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this, &answer] { return closed_ || *answer; });
    return *answer;
}

void MainThreadBridge::runPending()
{
    while (Job* const job = takeJob()) {
        job->work();
        const std::lock_guard lock(mutex_);
        job->progress = Progress::Done;
        changed_.notify_all();
    }
}

void MainThreadBridge::close()
{
    const std::lock_guard lock(mutex_);
    closed_ = true;
    for (Job* const job : waiting_)
        job->progress = Progress::Dropped;
    waiting_.clear();
    changed_.notify_all();
}

MainThreadBridge::Job* MainThreadBridge::takeJob()
{
    const std::lock_guard lock(mutex_);
    if (waiting_.empty())
        return nullptr;
    Job* const job = waiting_.front();
    waiting_.pop_front();
    job->progress = Progress::Running;
    return job;
}

} // namespace quenmoor
