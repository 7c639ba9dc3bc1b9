#include "protocol/udt_congestion.h"

#include "protocol/packet_copies.h"

#include <ccc.h>
#include <sys/uio.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <vector>

#include "congestion/path_model.h"

namespace quenmoor {
namespace {

// A peer whose last handshake was lost or ignored is connected by the next packet that it receives.
// The library sends a keep-alive packet when its timeout has expired, which it checks every 100 ms.
// With this timeout it does so at the first check, before the peer repeats its handshake.
constexpr Micros kFirstTimeout = 10'000;

constexpr Micros kRepairInterval = 10'000; // of the thread that sends the file

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

// What the library's control and the thread that sends the file share. The library calls for a sent
// packet with its list of senders locked, for which its other threads wait. Such a packet is
// therefore only noted, and given to the model before the model's next use.
class Sender final : public Repairs {
public:
    Sender(std::shared_ptr<const PacingClock> clock, UdpPort port, const UdtAddress& peer)
        : pacer(std::make_shared<Pacer>(clock)),
          clock_(std::move(clock)),
          port_(std::move(port)),
          peer_(peer)
    {
    }

    // The library's threads have used the members with the mutexes held.
    ~Sender() override { const std::scoped_lock lock(modelMutex_, sentMutex_); }

    const std::shared_ptr<Pacer> pacer;

    void begin(std::int64_t first)
    {
        const std::scoped_lock lock(modelMutex_, sentMutex_);
        highestSent_ = first;
        model_ = std::make_unique<PathModel>(first, clock_->now());
    }

    void onSent(const DataPacket& packet)
    {
        const Sent sent = note(packet);
        if (sent.isNew)
            pacer->onPacketSent(sent.time);
        else
            pacer->onRetransmitted();
    }

    // Calls `event` with the model, the highest number sent and the time, and `apply` with the
    // model after it.
    template <typename Event, typename Apply>
    void onFeedback(Event event, Apply apply)
    {
        const std::lock_guard lock(modelMutex_);
        if (!model_)
            return;
        const std::int64_t highest = takeSent();
        event(*model_, highest, clock_->now());
        apply(*model_);
    }

    void send() override
    {
        const Micros now = clock_->now();
        if (now - lastSend_ < kRepairInterval)
            return;
        lastSend_ = now;
        sendRepairs();
    }

    // Any thread.
    void sendRepairs()
    {
        PacketCopies::Datagram buffer;
        for (std::span<const char> datagram = takeRepair(buffer); !datagram.empty();
             datagram = takeRepair(buffer))
            port_.send(datagram, peer_);
    }

private:
    struct Sent {
        std::int64_t number;
        Micros time;
        bool isNew; // not a retransmission
    };

    Sent note(const DataPacket& packet)
    {
        const std::lock_guard lock(sentMutex_);
        const std::int64_t number = unwrapped(packet.number, highestSent_);
        const Sent& sent = sent_.emplace_back(Sent{number, clock_->now(), number > highestSent_});
        if (sent.isNew) {
            highestSent_ = number;
            copies_.keep(number, packet);
        }
        return sent;
    }

    // Requires modelMutex_ and a model. Returns the highest number sent.
    std::int64_t takeSent()
    {
        std::int64_t highest = 0;
        {
            const std::lock_guard lock(sentMutex_);
            std::swap(sent_, taken_);
            copies_.drop(model_->acknowledgedUpTo());
            highest = highestSent_;
        }
        for (const Sent& sent : taken_)
            model_->onSent(sent.number, sent.time);
        taken_.clear();
        return highest;
    }

    std::span<const char> takeRepair(PacketCopies::Datagram& buffer)
    {
        const std::lock_guard lock(modelMutex_);
        if (!model_)
            return {};
        takeSent();
        const auto number = model_->takeRepair(clock_->now());
        if (!number)
            return {};
        pacer->onRepairSent();
        const std::lock_guard sentLock(sentMutex_);
        return copies_.read(*number, buffer);
    }

    // Set once at construction.
    const std::shared_ptr<const PacingClock> clock_;
    const UdpPort port_;
    const UdtAddress peer_;

    Micros lastSend_ = 0; // used by the thread that sends the file

    std::mutex modelMutex_; // locked before sentMutex_

    // Guarded by modelMutex_.
    std::unique_ptr<PathModel> model_;
    std::vector<Sent> taken_; // empty

    std::mutex sentMutex_;

    // Guarded by sentMutex_.
    std::vector<Sent> sent_; // since the model was used last
    std::int64_t highestSent_ = 0;
    PacketCopies copies_;
};

class UdtCongestion : public CCC {
public:
    explicit UdtCongestion(std::shared_ptr<Sender> sender)
    {
        const std::scoped_lock lock(sending_.mutex, receiving_.mutex);
        sending_.sender = sender;
        receiving_.sender = std::move(sender);
    }

    // The library does not join its other threads first.
    ~UdtCongestion() override
    {
        for (Share* share : {&sending_, &receiving_})
            guarded(*share, [&](Sender& /*sender*/) { share->sender.reset(); });
    }

    void init() override
    {
        guarded(receiving_, [this](Sender& sender) {
            sender.begin(static_cast<std::int64_t>(m_iSndCurrSeqNo) + 1);
        });
        onFeedback([](auto&&...) {});
    }

    void onPktSent(const CPacket* packet) override
    {
        guarded(sending_, [&](Sender& sender) {
            // The library exports no function for the length. m_pcData is its alias of the iov_base
            // of an iovec, whose first member that is.
            const auto* const data = reinterpret_cast<const iovec*>(&packet->m_pcData);
            sender.onSent({packet->m_iSeqNo,
                           packet->m_iMsgNo,
                           packet->m_iTimeStamp,
                           packet->m_iID,
                           {packet->m_pcData, data->iov_len}});
        });
    }

    void onPktReceived(const CPacket* /*packet*/) override
    {
        onFeedback([this](auto&&...) { peerConnected_ = true; });
    }

    void onACK(std::int32_t next) override
    {
        onFeedback([&](PathModel& model, std::int64_t highest, Micros now) {
            receiving_.sender->pacer->onAcknowledged(now);
            model.onAcknowledged(unwrapped(next, highest), now);
        });
    }

    void onLoss(const std::int32_t* list, int size) override
    {
        onFeedback([&](PathModel& model, std::int64_t highest, Micros now) {
            for (const NumberRange& range :
                 decodeLossReport({list, static_cast<std::size_t>(std::max(size, 0))}, highest))
                model.onReportedLost(range, now);
        });
    }

    void onTimeout() override
    {
        onFeedback([](PathModel& model, std::int64_t, Micros now) { model.onTimeout(now); });
    }

private:
    // A callback of one of the library's threads never waits for one of another.
    struct Share {
        std::mutex mutex;
        std::shared_ptr<Sender> sender; // guarded by mutex, until the destructor
    };

    // No exception may pass through the library. An event that is lost has little effect.
    template <typename Function>
    static void guarded(Share& share, Function function) noexcept
    {
        try {
            const std::lock_guard lock(share.mutex);
            if (share.sender != nullptr)
                function(*share.sender);
        } catch (...) {
            return;
        }
    }

    // On the receiving thread only.
    template <typename Event>
    void onFeedback(Event event) noexcept
    {
        std::shared_ptr<Sender> sender;
        guarded(receiving_, [&](Sender& locked) {
            locked.onFeedback(event, [this](const PathModel& model) { apply(model); });
            sender = receiving_.sender;
        });
        if (sender != nullptr)
            sender->sendRepairs();
    }

    // Requires receiving_.mutex.
    void apply(const PathModel& model)
    {
        const double period = model.pace().libraryPeriod;
        const PathState path{period / kPacketPairFactor, model.retransmitting(),
                             model.shallowBuffer()};
        m_dPktSndPeriod = receiving_.sender->pacer->setPath(path) ? period : 0;
        m_dCWndSize = model.pace().window;
        const Micros timeout = peerConnected_ ? model.pace().timeout : kFirstTimeout;
        setRTO(static_cast<int>(std::min<Micros>(timeout, INT32_MAX)));
    }

    Share sending_;
    Share receiving_;
    bool peerConnected_ = false; // the peer sent a message; guarded by receiving_.mutex
};

// Created on the thread that opens the socket, used on the library's receiving thread.
class UdtCongestionFactory : public CCCVirtualFactory {
public:
    explicit UdtCongestionFactory(std::shared_ptr<Sender> sender)
    {
        const std::lock_guard lock(mutex_);
        sender_ = std::move(sender);
    }

    // The library owns both results and reports a failed allocation as an error of its own.
    CCC* create() override
    {
        const std::lock_guard lock(mutex_);
        return new UdtCongestion(sender_);
    }
    CCCVirtualFactory* clone() override
    {
        const std::lock_guard lock(mutex_);
        return new UdtCongestionFactory(sender_);
    }

private:
    std::mutex mutex_;
    std::shared_ptr<Sender> sender_; // guarded by mutex_
};

} // namespace

PacedControl usePacedControl(std::int32_t socket, UdpPort port, const UdtAddress& peer)
{
    const auto sender =
        std::make_shared<Sender>(std::make_shared<const SteadyClock>(), std::move(port), peer);
    UdtCongestionFactory factory(sender); // the library copies it at once
    if (UDT::setsockopt(socket, 0, UDT_CC, &factory, sizeof factory) == UDT::ERROR)
        return {};
    return {sender->pacer, sender};
}

} // namespace quenmoor
