#include "devservice/active_attempts.h"

namespace quenmoor {

ActiveAttempts::Claim::~Claim()
{
    if (attempts_ != nullptr)
        attempts_->release(token_);
}

std::optional<ActiveAttempts::Claim> ActiveAttempts::claim(const std::string& token, int attempt,
                                                           const std::shared_ptr<StopSignal>& stop,
                                                           std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto active = active_.find(token);
        if (active == active_.end())
            break;
        if (active->second.attempt > attempt)
            return std::nullopt;
        const Active older = active->second;
        lock.unlock();
        older.stop->request("replaced by a newer attempt");
        lock.lock();
        const auto hasEnded = [&] {
            const auto now = active_.find(token);
            return now == active_.end() || now->second.attempt != older.attempt;
        };
        if (!released_.wait_until(lock, deadline, hasEnded))
            return std::nullopt;
    }
    active_.emplace(token, Active{attempt, stop});
    return Claim(*this, token);
}

void ActiveAttempts::release(const std::string& token)
{
    {
        const std::lock_guard lock(mutex_);
        active_.erase(token);
    }
    released_.notify_all();
}

} // namespace quenmoor
