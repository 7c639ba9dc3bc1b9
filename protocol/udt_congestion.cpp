#include "protocol/udt_congestion.h"

#include <ccc.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>

#include "congestion/path_model.h"

namespace quenmoor {
namespace {

class SteadyClock final : public PacingClock {
public:
    Micros now() const override
    {
        return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
    }

    void waitUntil(std::condition_variable& condition, std::unique_lock<std::mutex>& lock,
                   Micros until) const override
    {
        condition.wait_until(lock, steady_clock::time_point(microseconds(until)));
    }

private:
    using steady_clock = std::chrono::steady_clock;
    using microseconds = std::chrono::microseconds;
};

class UdtCongestion : public CCC {
public:
    UdtCongestion(std::shared_ptr<const PacingClock> clock, std::shared_ptr<Pacer> pacer)
        : clock_(std::move(clock)), pacer_(std::move(pacer))
    {
    }

    // The library does not join its other threads first.
    ~UdtCongestion() override
    {
        guarded([this] { model_.reset(); });
    }

    void init() override
    {
        guarded([this] {
            highestSent_ = static_cast<std::int64_t>(m_iSndCurrSeqNo) + 1;
            model_ = std::make_unique<PathModel>(highestSent_, clock_->now());
            applyPace();
        });
    }

    void onPktSent(const CPacket* packet) override
    {
        guarded([&] {
            const Micros now = clock_->now();
            const std::int64_t number = unwrapped(packet->m_iSeqNo, highestSent_);
            if (number > highestSent_)
                pacer_->onPacketSent(now);
            highestSent_ = std::max(highestSent_, number);
            if (model_)
                model_->onSent(number, now);
        });
    }

    void onACK(std::int32_t next) override
    {
        onFeedback([&](Micros now) {
            pacer_->onAcknowledged(now);
            model_->onAcknowledged(unwrapped(next, highestSent_), now);
        });
    }

    void onLoss(const std::int32_t* list, int size) override
    {
        onFeedback([&](Micros now) {
            for (const NumberRange& range : decodeLossReport(
                     {list, static_cast<std::size_t>(std::max(size, 0))}, highestSent_))
                model_->onReportedLost(range, now);
        });
    }

    void onTimeout() override
    {
        onFeedback([&](Micros now) { model_->onTimeout(now); });
    }

private:
    // No exception may pass through the library. An event that is lost has little effect.
    template <typename Function>
    void guarded(Function function) noexcept
    {
        try {
            const std::lock_guard lock(mutex_);
            function();
        } catch (...) {
            return;
        }
    }

    template <typename Function>
    void onFeedback(Function function) noexcept
    {
        guarded([&] {
            if (!model_)
                return;
            function(clock_->now());
            applyPace();
            setRTO(static_cast<int>(std::min<Micros>(model_->pace().timeout, INT32_MAX)));
        });
    }

    // Writes the library's period and window: on the connecting and the receiving thread only.
    void applyPace()
    {
        const double period = model_->pace().libraryPeriod;
        const PathState path{period / kPacketPairFactor, model_->retransmitting(),
                             model_->shallowBuffer()};
        m_dPktSndPeriod = pacer_->setPath(path) ? period : 0;
        m_dCWndSize = model_->pace().window;
    }

    // Set once at construction.
    const std::shared_ptr<const PacingClock> clock_;
    const std::shared_ptr<Pacer> pacer_;

    std::mutex mutex_;

    // Guarded by mutex_.
    std::unique_ptr<PathModel> model_;
    std::int64_t highestSent_ = 0;
};

class UdtCongestionFactory : public CCCVirtualFactory {
public:
    UdtCongestionFactory(std::shared_ptr<const PacingClock> clock, std::shared_ptr<Pacer> pacer)
        : clock_(std::move(clock)), pacer_(std::move(pacer))
    {
    }

    // The library owns both results and reports a failed allocation as an error of its own.
    CCC* create() override { return new UdtCongestion(clock_, pacer_); }
    CCCVirtualFactory* clone() override { return new UdtCongestionFactory(clock_, pacer_); }

private:
    const std::shared_ptr<const PacingClock> clock_;
    const std::shared_ptr<Pacer> pacer_;
};

} // namespace

std::shared_ptr<Pacer> usePacedControl(std::int32_t socket)
{
    const auto clock = std::make_shared<const SteadyClock>();
    auto pacer = std::make_shared<Pacer>(clock);
    UdtCongestionFactory factory(clock, pacer); // the library copies it at once
    if (UDT::setsockopt(socket, 0, UDT_CC, &factory, sizeof factory) == UDT::ERROR)
        return nullptr;
    return pacer;
}

} // namespace quenmoor
