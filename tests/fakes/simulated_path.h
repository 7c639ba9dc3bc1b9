// A link and the library's sender and receiver at its ends, in simulated time. Drives one PathModel
// and one ReleaseSchedule per flow by the library's rules: window, retransmissions before new
// packets, pace, one loss report per gap, acknowledgements for blocks and by timer, and the
// retransmission timeout.
#pragma once

#include "tests/fakes/simulated_flow.h"

#include <algorithm>
#include <cmath>
#include <list>
#include <map>
#include <random>

namespace quenmoor {

class SimulatedPath {
public:
    static constexpr Micros kStart = 1'000'000;

    explicit SimulatedPath(SimulatedLink link, std::int64_t firstNumber = 1)
        : link_(std::move(link))
    {
        add(kStart, firstNumber);
    }

    // Adds a flow that sends from the time `start` on.
    SimulatedFlow& add(Micros start, std::int64_t firstNumber = 1)
    {
        SimulatedFlow& flow = flows_.emplace_back(firstNumber, start);
        at(start, [this, &flow] {
            flow.due = flow.lastFeedback = flow.advancedAt = now_;
            repeat(link_.sleep, [this, &flow] { wake(flow); });
            repeat(kTimerInterval, [this, &flow] {
                checkTimeout(flow);
                flow.samples.push_back(flow.payload());
                measureStall(flow);
            });
            repeat(link_.ackTimer, [this, &flow] {
                if (now_ - flow.arrivedAt <= link_.ackTimer ||
                    now_ - flow.lastAckAt >= link_.idleTimer)
                    acknowledge(flow);
            });
        });
        return flow;
    }

    SimulatedFlow& flow() { return flows_.front(); }

    void run(Micros until)
    {
        while (!events_.empty() && events_.begin()->first <= until) {
            auto event = events_.extract(events_.begin());
            now_ = event.key();
            event.mapped()();
        }
        now_ = until;
    }

    double rateAt(Micros time) const
    {
        double rate = link_.rate;
        for (const auto& [from, changed] : link_.rates)
            rate = time >= from ? changed : rate;
        return rate;
    }

    // Packets delivered in order between two times since the start, as a share of what the link
    // and the receiver's buffer permit.
    double share(Micros from, Micros to) const
    {
        const double window = kFlowWindow * 1e6 / static_cast<double>(link_.roundTrip);
        double possible = 0;
        for (Micros time = from; time < to; time += kTimerInterval)
            possible += std::min(rateAt(kStart + time), window) * kTimerInterval * 1e-6;
        const auto delivered = [this](Micros time) {
            return flows_.front().samples.at(static_cast<std::size_t>(time / kTimerInterval));
        };
        return static_cast<double>(delivered(to) - delivered(from)) / possible;
    }

    static double wireOverPayload(const SimulatedFlow& flow)
    {
        return static_cast<double>(flow.wire) / static_cast<double>(flow.payload());
    }

    // The 95th percentile of the queue that a packet met, in bandwidth-delay products of the link.
    double longQueue() const
    {
        std::vector<double> sorted = queues_;
        const auto place = sorted.begin() + std::ssize(sorted) * 95 / 100;
        std::nth_element(sorted.begin(), place, sorted.end());
        return *place / (link_.rate * static_cast<double>(link_.roundTrip) * 1e-6);
    }

    std::int64_t dropped() const { return dropped_; }

private:
    static constexpr Micros kPacketCost = 3; // the sending thread's time for a packet
    static constexpr Micros kWakeUp = 60;    // until a thread whose sleep has ended runs
    static constexpr Micros kTimerInterval = 100'000;
    static constexpr Micros kReorderDelay = 5'000;
    static constexpr std::int64_t kBlockPackets = 12;
    static constexpr std::int64_t kFlowWindow = 8192;

    void at(Micros time, std::function<void()> event) { events_.emplace(time, std::move(event)); }

    void repeat(Micros interval, const std::function<void()>& event)
    {
        event();
        at(now_ + interval, [this, interval, event] { repeat(interval, event); });
    }

    bool chance(double share)
    {
        return share > 0 && static_cast<double>(random_() >> 11) * 0x1p-53 < share;
    }
    bool dead() const { return now_ >= link_.deadFrom && now_ < link_.deadUntil; }
    Micros oneWay() const
    {
        return now_ >= link_.longerFrom ? link_.roundTrip : link_.roundTrip / 2;
    }

    // The library's sending thread sends every packet that is due, and the application's thread
    // adds the blocks that may follow.
    void wake(SimulatedFlow& flow)
    {
        repair(flow);
        Micros time = now_;
        do {
            while (flow.brokenAt < 0 && flow.due != 0 && flow.due <= time &&
                   time < now_ + link_.sleep)
                time += sendOne(flow, time) ? kPacketCost : 0;
        } while (supply(flow));
    }

    // Returns true if the library has packets to send that it had not before.
    bool supply(SimulatedFlow& flow)
    {
        bool added = false;
        while (flow.brokenAt < 0) {
            const std::int64_t block =
                std::min(kBlockPackets, flow.supplied(now_) - (flow.released - flow.first));
            const Micros time =
                block > 0 ? flow.schedule.releaseTime(block) : ReleaseSchedule::kNever;
            if (time > now_) {
                wakeSupplier(flow, time);
                break;
            }
            flow.schedule.onReleased(block, now_);
            flow.released += block;
            added = flow.due == 0;
            flow.due = added ? now_ : flow.due;
        }
        return added;
    }

    void wakeSupplier(SimulatedFlow& flow, Micros time)
    {
        if (time >= flow.supplyAt)
            return;
        flow.supplyAt = time;
        at(time + kWakeUp, [this, &flow, time] {
            if (flow.supplyAt == time) {
                flow.supplyAt = INT64_MAX;
                wake(flow);
            }
        });
    }

    void repair(SimulatedFlow& flow)
    {
        while (flow.brokenAt < 0) {
            const std::optional<std::int64_t> number = flow.model.takeRepair(now_);
            if (!number)
                return;
            flow.schedule.onRepairSent();
            if (*number <= flow.highest && !flow.gaps.contains(*number))
                ++flow.needlessRepairs;
            transmit(flow, *number, now_);
        }
    }

    bool sendOne(SimulatedFlow& flow, Micros time)
    {
        const bool repeated = !flow.retransmissions.empty();
        const auto window =
            std::min(kFlowWindow, static_cast<std::int64_t>(flow.model.pace().window));
        if (!repeated &&
            (flow.next + 1 - flow.acknowledged > window || flow.next == flow.released)) {
            flow.due = 0;
            return false;
        }
        if (flow.next == flow.acknowledged)
            flow.advancedAt = flow.lastFeedback = time; // the library restarts its timer
        const std::int64_t number =
            repeated ? flow.retransmissions.extract(flow.retransmissions.begin()).value()
                     : flow.next++;
        flow.model.onSent(wrapped(number, flow), time);
        if (repeated)
            flow.schedule.onRetransmitted();
        else
            flow.schedule.onPacketSent();
        transmit(flow, number, time);
        // The second packet of a pair follows at once.
        const bool pair = !repeated && number % 16 == 0;
        const double wait = flow.libraryPaces && !pair ? flow.model.pace().libraryPeriod : 0;
        flow.due = (flow.libraryPaces ? flow.due : time) + std::lround(wait);
        return true;
    }

    void transmit(SimulatedFlow& flow, std::int64_t number, Micros time)
    {
        ++flow.wire;
        const double rate = rateAt(time) * 1e-6; // packets per microsecond
        const auto elapsed = static_cast<double>(std::max<Micros>(time - backlogAt_, 0));
        backlog_ = std::max(0.0, backlog_ - rate * elapsed);
        backlogAt_ = std::max(backlogAt_, time);
        queues_.push_back(backlog_);
        if (backlog_ + 1 > link_.queue) {
            ++dropped_;
            return;
        }
        backlog_ += 1;
        if (chance(link_.loss) || dead())
            return;
        const auto jitter = static_cast<std::uint64_t>(link_.jitter);
        const auto delay = static_cast<Micros>(backlog_ / rate) + oneWay() +
                           static_cast<Micros>(jitter > 0 ? random_() % jitter : 0);
        lastArrival_ = std::max(lastArrival_, time + delay);
        const Micros late = chance(link_.reordered) ? kReorderDelay : 0;
        for (int copies = chance(link_.duplicated) ? 2 : 1; copies > 0; --copies)
            at((lastArrival_ + late + link_.burst - 1) / link_.burst * link_.burst,
               [this, &flow, number] { arrive(flow, number); });
    }

    void arrive(SimulatedFlow& flow, std::int64_t number)
    {
        flow.arrivedAt = now_;
        if (number > flow.highest) {
            for (std::int64_t gap = flow.highest + 1; gap < number; ++gap)
                flow.gaps.insert(flow.gaps.end(), gap);
            if (number > flow.highest + 1)
                feedBack([this, &flow, lost = NumberRange{flow.highest + 1, number - 1}] {
                    onReport(flow, lost);
                });
            flow.highest = number;
        } else if (flow.gaps.erase(number) == 0) {
            return; // a duplicate
        }
        // Each block ends in a short packet, which is acknowledged at once.
        if ((number - flow.first) % kBlockPackets == kBlockPackets - 1)
            acknowledge(flow);
    }

    void acknowledge(SimulatedFlow& flow)
    {
        const std::int64_t ack = flow.gaps.empty() ? flow.highest + 1 : *flow.gaps.begin();
        const bool repeated =
            ack == flow.lastAck && now_ - flow.lastAckAt < link_.roundTrip * 3 / 2;
        if (ack == flow.first || ack == flow.confirmedAck || repeated)
            return;
        flow.lastAck = ack;
        flow.lastAckAt = now_;
        feedBack([this, &flow, ack] { onAck(flow, ack); });
    }

    void feedBack(const std::function<void()>& received)
    {
        if (dead() || chance(link_.lossBack))
            return;
        for (int copies = chance(link_.duplicated) ? 2 : 1; copies > 0; --copies)
            at(now_ + oneWay(), received);
    }

    void measureStall(SimulatedFlow& flow) const
    {
        if (flow.next == flow.acknowledged)
            flow.advancedAt = now_;
        flow.longestStall =
            std::max(flow.longestStall, static_cast<double>(now_ - flow.advancedAt) /
                                            static_cast<double>(flow.model.resendTimeout()));
    }

    void onAck(SimulatedFlow& flow, std::int64_t ack)
    {
        if (!chance(link_.loss))
            at(now_ + oneWay(),
               [&flow, ack] { flow.confirmedAck = std::max(flow.confirmedAck, ack); });
        if (ack > flow.acknowledged) {
            flow.acknowledged = ack;
            measureStall(flow);
            flow.advancedAt = now_;
            flow.retransmissions.erase(flow.retransmissions.begin(),
                                       flow.retransmissions.lower_bound(ack));
            flow.due = flow.due == 0 ? now_ : flow.due;
            flow.model.onAcknowledged(wrapped(ack, flow), now_);
        }
        onFeedback(flow);
    }

    void onReport(SimulatedFlow& flow, NumberRange lost)
    {
        flow.model.onReportedLost({wrapped(lost.first, flow), wrapped(lost.last, flow)}, now_);
        retransmit(flow, std::max(lost.first, flow.acknowledged), lost.last);
        onFeedback(flow);
    }

    void retransmit(SimulatedFlow& flow, std::int64_t from, std::int64_t to)
    {
        for (; from <= to; ++from)
            flow.retransmissions.insert(from);
        flow.due = flow.due == 0 ? now_ : std::min(flow.due, now_);
    }

    void onFeedback(SimulatedFlow& flow)
    {
        flow.lastFeedback = now_;
        flow.timerExpiries = 1;
        checkTimeout(flow);
        applyPace(flow);
        wake(flow);
    }

    void applyPace(SimulatedFlow& flow)
    {
        flow.libraryPaces =
            flow.schedule.setPath({flow.model.pace().libraryPeriod / kPacketPairFactor,
                                   flow.model.retransmitting(), flow.model.shallowBuffer()});
    }

    void checkTimeout(SimulatedFlow& flow)
    {
        if (flow.brokenAt >= 0 || now_ <= flow.lastFeedback + flow.model.pace().timeout)
            return;
        if (flow.timerExpiries > 16 && now_ - flow.lastFeedback > 5'000'000) {
            flow.brokenAt = now_;
            return;
        }
        if (flow.next > flow.acknowledged) {
            // Everything in flight, unless retransmissions are pending, which are then due.
            retransmit(flow, flow.retransmissions.empty() ? flow.acknowledged : flow.next,
                       flow.next - 1);
            ++flow.timeouts;
            flow.model.onTimeout(now_);
            applyPace(flow);
        }
        ++flow.timerExpiries;
        flow.lastFeedback = now_;
    }

    // The number after its way over the wire, which has 31 bits for it.
    static std::int64_t wrapped(std::int64_t number, const SimulatedFlow& flow)
    {
        return unwrapped(static_cast<std::int32_t>(number & INT32_MAX), flow.next);
    }

    const SimulatedLink link_;
    std::mt19937_64 random_{link_.seed};
    std::multimap<Micros, std::function<void()>> events_; // in the order of their insertion
    Micros now_ = kStart;
    std::list<SimulatedFlow> flows_;
    double backlog_ = 0; // packets in the queue at backlogAt_
    Micros backlogAt_ = 0;
    Micros lastArrival_ = 0;
    std::vector<double> queues_; // the queue that each packet met, in packets
    std::int64_t dropped_ = 0;
};

} // namespace quenmoor
