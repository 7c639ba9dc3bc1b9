#include "devservice/attempt_turns.h"

namespace quenmoor {

AttemptTurns::Turn::~Turn()
{
    if (turns_ != nullptr)
        turns_->giveBack(token_);
}

std::optional<AttemptTurns::Turn> AttemptTurns::take(const std::string& token, int attempt,
                                                     const std::shared_ptr<SessionSignal>& signal,
                                                     std::chrono::milliseconds patience)
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::unique_lock lock(mutex_);
    for (;;) {
        const auto holder = holders_.find(token);
        if (holder == holders_.end())
            break;
        if (holder->second.attempt > attempt)
            return std::nullopt;
        const Holder older = holder->second;
        lock.unlock();
        older.signal->end("a newer attempt takes its place");
        lock.lock();
        const auto letGo = [&] {
            const auto now = holders_.find(token);
            return now == holders_.end() || now->second.attempt != older.attempt;
        };
        if (!givenBack_.wait_until(lock, deadline, letGo))
            return std::nullopt;
    }
    holders_.emplace(token, Holder{attempt, signal});
    return Turn(*this, token);
}

void AttemptTurns::giveBack(const std::string& token)
{
    {
        const std::lock_guard lock(mutex_);
        holders_.erase(token);
    }
    givenBack_.notify_all();
}

} // namespace quenmoor
