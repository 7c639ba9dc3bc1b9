#include "devservice/active_attempts.h"

namespace quenmoor {

ActiveAttempts::Claim::~Claim()
{
    if (attempts_ != nullptr)
        attempts_->release(upload_);
}

std::optional<ActiveAttempts::Claim> ActiveAttempts::claim(const std::string& upload, int attempt,
                                                           const std::shared_ptr<StopSignal>& stop,
                                                           std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto active = active_.find(upload);
        if (active == active_.end())
            break;
        if (active->second.attempt > attempt)
            return std::nullopt;
        const Active older = active->second;
        lock.unlock();
        older.stop->request("replaced by a newer attempt");
        lock.lock();
        const auto hasEnded = [&] {
            const auto now = active_.find(upload);
            return now == active_.end() || now->second.attempt != older.attempt;
        };
        if (!released_.wait_until(lock, deadline, hasEnded))
            return std::nullopt;
    }
    active_.emplace(upload, Active{attempt, stop});
    return Claim(*this, upload);
}

void ActiveAttempts::release(const std::string& upload)
{
    {
        const std::lock_guard lock(mutex_);
        active_.erase(upload);
    }
    released_.notify_all();
}

} // namespace quenmoor
