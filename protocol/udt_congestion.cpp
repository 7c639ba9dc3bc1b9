#include "protocol/udt_congestion.h"

#include <ccc.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>

#include "congestion/packet_number.h"
#include "congestion/path_model.h"

namespace quenmoor {
namespace {

constexpr std::uint32_t kFirstOfPair = 0x80000000U;

Micros steadyNow()
{
    using namespace std::chrono;
    return duration_cast<microseconds>(steady_clock::now().time_since_epoch()).count();
}

// Reads the library's list of losses: single numbers, and pairs whose first has its top bit set.
// Calls `range` with the numbers as they are on the wire. A pair without a second is left out.
template <typename Function>
void forEachRange(const std::int32_t* list, int size, Function range)
{
    for (int i = 0; i < size; ++i) {
        const auto word = static_cast<std::uint32_t>(list[i]);
        const auto first = static_cast<std::int32_t>(word & ~kFirstOfPair);
        if ((word & kFirstOfPair) == 0)
            range(first, first);
        else if (++i < size)
            range(first, list[i] & INT32_MAX);
    }
}

class UdtCongestion : public CCC {
public:
    explicit UdtCongestion(std::shared_ptr<Pacer> gate) : gate_(std::move(gate)) {}

    // On a thread of its own, that was not told whether the others have left.
    ~UdtCongestion() override
    {
        guarded([this] { model_.reset(); });
    }

    void init() override
    {
        guarded([this] {
            last_ = static_cast<std::int64_t>(m_iSndCurrSeqNo) + 1;
            model_ = std::make_unique<PathModel>(last_, steadyNow());
            keepPace();
        });
    }

    void onPktSent(const CPacket* packet) override
    {
        guarded([&] {
            const std::int64_t number = unwrapped(packet->m_iSeqNo, last_);
            if (number > last_)
                gate_->packetSent();
            last_ = std::max(last_, number);
            if (model_)
                model_->sent(number, steadyNow());
        });
    }

    void onACK(std::int32_t next) override
    {
        gate_->acknowledged();
        heard([&](Micros now) { model_->acknowledged(unwrapped(next, last_), now); });
    }

    void onLoss(const std::int32_t* list, int size) override
    {
        heard([&](Micros now) {
            forEachRange(list, size, [&](std::int32_t first, std::int32_t last) {
                model_->reported({unwrapped(first, last_), unwrapped(last, last_)}, now);
            });
        });
    }

    void onTimeout() override
    {
        heard([&](Micros now) { model_->timedOut(now); });
    }

private:
    // Nothing may be thrown through the library. An event that is lost changes little.
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
    void heard(Function function) noexcept
    {
        guarded([&] {
            if (!model_)
                return;
            function(steadyNow());
            keepPace();
            setRTO(static_cast<int>(std::min<Micros>(model_->pace().timeOut, INT32_MAX)));
        });
    }

    // Only on the threads that may write these fields: the connecting and the receiving one.
    void keepPace()
    {
        const double period = model_->pace().period;
        const Feed feed{period / kPairs, model_->resending(), model_->shortQueue()};
        m_dPktSndPeriod = gate_->set(feed) ? period : 0;
        m_dCWndSize = model_->pace().window;
    }

    const std::shared_ptr<Pacer> gate_;

    std::mutex mutex_;
    std::unique_ptr<PathModel> model_; // guarded by mutex_, like all below
    std::int64_t last_ = 0;            // the highest number sent
};

class UdtCongestionFactory : public CCCVirtualFactory {
public:
    explicit UdtCongestionFactory(std::shared_ptr<Pacer> gate) : gate_(std::move(gate)) {}

    // The library owns both, and makes an error of its own of an allocation that fails.
    CCC* create() override { return new UdtCongestion(gate_); }
    CCCVirtualFactory* clone() override { return new UdtCongestionFactory(gate_); }

private:
    const std::shared_ptr<Pacer> gate_;
};

} // namespace

std::shared_ptr<Pacer> usePacedControl(std::int32_t socket)
{
    auto gate = std::make_shared<Pacer>();
    UdtCongestionFactory factory(gate); // cloned at once
    if (UDT::setsockopt(socket, 0, UDT_CC, &factory, sizeof factory) == UDT::ERROR)
        return nullptr;
    return gate;
}

} // namespace quenmoor
