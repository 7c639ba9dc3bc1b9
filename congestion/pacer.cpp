#include "congestion/pacer.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace quenmoor {
namespace {

constexpr std::size_t kPayload = 1456; // of a packet; every block ends with a packet of its own
constexpr double kFewPackets = 48;     // four blocks
constexpr double kShortTime = 1'000;
constexpr double kBunchTime = 12'000;
constexpr double kMostLateness = 2'000;
constexpr Micros kPatience = 10'000'000; // the library's own, for room to send
constexpr Micros kPoll = 200;

Micros steadyNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

bool Pacer::set(const Feed& feed)
{
    const std::lock_guard lock(mutex_);
    feed_ = feed;
    libraryPaces_ = feed.resending || ahead_ > few();
    return libraryPaces_;
}

void Pacer::packetSent()
{
    const std::lock_guard lock(mutex_);
    ahead_ = std::max<std::int64_t>(ahead_ - 1, 0); // documents do not pass here
    ++progress_;
}

void Pacer::acknowledged()
{
    const std::lock_guard lock(mutex_);
    ++progress_;
}

std::int64_t Pacer::few() const
{
    return static_cast<std::int64_t>(std::max(kFewPackets, kShortTime / feed_.period));
}

std::int64_t Pacer::room() const
{
    if (!feed_.resending || feed_.shortQueue)
        return few();
    return static_cast<std::int64_t>(kFewPackets + kBunchTime / feed_.period);
}

std::optional<Micros> Pacer::admit(std::size_t bytes, Micros now)
{
    const std::lock_guard lock(mutex_);
    const auto packets = static_cast<std::int64_t>((bytes + kPayload - 1) / kPayload);
    const bool timed = !libraryPaces_ || feed_.shortQueue;
    Micros wait = timed ? static_cast<Micros>(due_) - now : 0;
    if (ahead_ > 0 && ahead_ + packets > room()) // a block of any size goes sometime
        wait = std::max(wait, kPoll);
    if (wait <= 0) {
        due_ = std::max(due_, static_cast<double>(now) - kMostLateness) +
               feed_.period * static_cast<double>(packets);
        ahead_ += packets;
        progressAt_.reset();
        return 0;
    }
    if (!progressAt_ || progress_ != progressBefore_) {
        progressAt_ = now;
        progressBefore_ = progress_;
    }
    if (now - *progressAt_ >= kPatience)
        return std::nullopt;
    return wait;
}

bool Pacer::pass(std::size_t bytes)
{
    while (const auto wait = admit(bytes, steadyNow())) {
        if (*wait == 0)
            return true;
        std::this_thread::sleep_for(std::chrono::microseconds(*wait));
    }
    return false;
}

} // namespace quenmoor
