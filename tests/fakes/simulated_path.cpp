#include "tests/fakes/simulated_path.h"

#include <cmath>

namespace quenmoor {
namespace {

constexpr Micros kPacketCost = 3; // what the sending thread needs for a packet
constexpr Micros kCheckEvery = 100'000;
constexpr Micros kAckEvery = 10'000;
constexpr std::int64_t kPacketsOfSend = 12;
constexpr std::int64_t kFlowWindow = 8192;
constexpr Micros kSampleEvery = 100'000;

// As it would come over the wire.
std::int64_t overTheWire(std::int64_t number, std::int64_t near)
{
    return unwrapped(static_cast<std::int32_t>(number & 0x7fffffff), near);
}

} // namespace

SimulatedPath::SimulatedPath(SimulatedLink link, std::int64_t firstNumber)
    : link_(std::move(link)), random_(link_.seed)
{
    add(now_, firstNumber);
}

SimulatedFlow& SimulatedPath::add(Micros start, std::int64_t firstNumber)
{
    flows_.push_back(std::make_unique<SimulatedFlow>(firstNumber, start));
    at(start, Kind::Start, flows_.size() - 1);
    return *flows_.back();
}

void SimulatedPath::at(Micros time, Kind kind, std::size_t flow, std::int64_t first,
                       std::int64_t last)
{
    events_.push({time, ++order_, kind, flow, first, last});
}

void SimulatedPath::run(Micros until)
{
    while (!events_.empty() && events_.top().time <= until) {
        const Event event = events_.top();
        events_.pop();
        now_ = event.time;
        handle(event);
    }
    now_ = until;
}

void SimulatedPath::handle(const Event& event)
{
    SimulatedFlow& flow = *flows_[event.flow];
    switch (event.kind) {
    case Kind::Start:
        flow.due = flow.heard = flow.checked = flow.roundSeenAt = now_;
        at(now_, Kind::Wake, event.flow);
        at(now_ + kCheckEvery, Kind::Check, event.flow);
        at(now_ + kSampleEvery, Kind::Sample, event.flow);
        at(now_ + kAckEvery, Kind::Timer, event.flow);
        break;
    case Kind::Wake:
        wake(event.flow);
        at(now_ + link_.tick, Kind::Wake, event.flow);
        break;
    case Kind::Data: arrive(event.flow, event.first); break;
    case Kind::Ack:
    case Kind::Report: hear(event.flow, event); break;
    case Kind::Confirm: flow.confirmedAck = std::max(flow.confirmedAck, event.first); break;
    case Kind::Check:
        if (now_ - flow.checked >= kCheckEvery)
            check(event.flow);
        at(std::max(now_ + 1, flow.checked + kCheckEvery), Kind::Check, event.flow);
        break;
    case Kind::Timer:
        acknowledge(event.flow);
        at(now_ + kAckEvery, Kind::Timer, event.flow);
        break;
    case Kind::Sample:
        flow.delivered.push_back(flow.payload());
        at(now_ + kSampleEvery, Kind::Sample, event.flow);
        break;
    }
}

bool SimulatedPath::lose(double share)
{
    return static_cast<double>(random_() >> 11) * 0x1p-53 < share;
}

double SimulatedPath::rateAt(Micros time) const
{
    double rate = link_.rate;
    for (const auto& [from, changed] : link_.schedule) {
        if (time >= from)
            rate = changed;
    }
    return rate;
}

Micros SimulatedPath::oneWay() const
{
    return now_ >= link_.longerFrom ? link_.roundTrip : link_.roundTrip / 2;
}

// The sending thread: all that is due, one packet after the other.
void SimulatedPath::wake(std::size_t index)
{
    SimulatedFlow& flow = *flows_[index];
    if (flow.due == 0 && flow.offered(now_) > flow.next - flow.first)
        flow.due = now_;
    Micros time = now_;
    while (flow.brokenAt < 0 && flow.due != 0 && flow.due <= time && time < now_ + link_.tick) {
        if (sendOne(index, time))
            time += kPacketCost;
    }
}

bool SimulatedPath::sendOne(std::size_t index, Micros time)
{
    SimulatedFlow& flow = *flows_[index];
    const Pace& pace = flow.model.pace();
    const auto interval = static_cast<Micros>(std::lround(pace.libraryPeriod));
    if (flow.target != 0)
        flow.behind += std::max<Micros>(time - flow.target, 0);
    std::int64_t number = 0;
    bool pair = false;
    if (!flow.resend.empty()) {
        number = *flow.resend.begin();
        flow.resend.erase(flow.resend.begin());
    } else {
        const auto window = std::min(kFlowWindow, static_cast<std::int64_t>(pace.window));
        if (flow.next + 1 - flow.acknowledged > window ||
            flow.next - flow.first >= flow.offered(now_)) {
            flow.due = flow.target = 0;
            flow.behind = 0;
            return false;
        }
        number = flow.next++;
        pair = number % 16 == 0;
    }
    flow.model.onSent(overTheWire(number, flow.next), time);
    transmit(index, number, time, number + 1 < flow.next);
    if (pair || flow.behind >= interval) {
        if (!pair)
            flow.behind -= interval;
        flow.due = time;
    } else {
        flow.due = time + interval - flow.behind;
        flow.behind = 0;
    }
    flow.target = flow.due;
    return true;
}

void SimulatedPath::transmit(std::size_t index, std::int64_t number, Micros time, bool again)
{
    SimulatedFlow& flow = *flows_[index];
    ++flow.wire;
    const double rate = rateAt(time);
    if (time > backlogAt_) {
        backlog_ = std::max(0.0, backlog_ - rate * static_cast<double>(time - backlogAt_) * 1e-6);
        backlogAt_ = time;
    }
    queues_.push_back(static_cast<float>(backlog_));
    if (backlog_ + 1 > link_.queue) {
        ++dropped_;
        return;
    }
    backlog_ += 1;
    const std::int64_t count = number - flow.first;
    const bool inHole = !again && count >= link_.hole.first && count <= link_.hole.last;
    if (lose(link_.loss) || inHole || dead())
        return;
    const auto passing = static_cast<Micros>(backlog_ / rate * 1e6);
    lastArrival_ = std::max(lastArrival_, time + passing + oneWay());
    at(lastArrival_, Kind::Data, index, number);
}

// The receiving thread of the sender: an acknowledgement or a report.
void SimulatedPath::hear(std::size_t index, const Event& event)
{
    SimulatedFlow& flow = *flows_[index];
    flow.heard = now_;
    flow.expired = 1;
    if (event.kind == Kind::Ack) {
        if (!lose(link_.loss))
            at(now_ + oneWay(), Kind::Confirm, index, event.first);
        if (event.first > flow.acknowledged) {
            flow.acknowledged = event.first;
            flow.resend.erase(flow.resend.begin(), flow.resend.lower_bound(event.first));
            if (flow.due == 0)
                flow.due = now_;
            flow.model.onAcknowledged(overTheWire(event.first, flow.next), now_);
        }
    } else {
        const NumberRange lost{overTheWire(event.first, flow.next),
                               overTheWire(event.last, flow.next)};
        flow.model.onReportedLost(lost, now_);
        for (auto number = std::max(lost.first, flow.acknowledged); number <= lost.last; ++number)
            flow.resend.insert(number);
        flow.due = now_;
    }
    check(index);
    wake(index);
}

void SimulatedPath::check(std::size_t index)
{
    SimulatedFlow& flow = *flows_[index];
    flow.checked = now_;
    const bool busy = flow.next > flow.acknowledged;
    if (flow.model.rounds() != flow.roundsSeen || !busy) {
        flow.roundsSeen = flow.model.rounds();
        flow.roundSeenAt = now_;
    }
    flow.longestRound = std::max(flow.longestRound, now_ - flow.roundSeenAt);
    if (flow.brokenAt >= 0 || now_ <= flow.heard + flow.model.pace().timeout)
        return;
    if (flow.expired > 16 && now_ - flow.heard > 5'000'000) {
        flow.brokenAt = now_;
        return;
    }
    if (busy) {
        if (flow.resend.empty()) {
            for (std::int64_t number = flow.acknowledged; number < flow.next; ++number)
                flow.resend.insert(flow.resend.end(), number);
        }
        ++flow.timeOuts;
        flow.model.onTimeout(now_);
        flow.due = now_;
    }
    ++flow.expired;
    flow.heard = now_;
}

void SimulatedPath::arrive(std::size_t index, std::int64_t number)
{
    SimulatedFlow& flow = *flows_[index];
    if (number > flow.received) {
        if (number > flow.received + 1) {
            for (std::int64_t hole = flow.received + 1; hole < number; ++hole)
                flow.holes.insert(flow.holes.end(), hole);
            answer(Kind::Report, index, flow.received + 1, number - 1);
        }
        flow.received = number;
    } else {
        flow.holes.erase(number);
    }
    // Every block that the application sends ends in a short packet, acknowledged at once.
    if ((number - flow.first) % kPacketsOfSend == kPacketsOfSend - 1)
        acknowledge(index);
}

void SimulatedPath::acknowledge(std::size_t index)
{
    SimulatedFlow& flow = *flows_[index];
    const std::int64_t ack = flow.holes.empty() ? flow.received + 1 : *flow.holes.begin();
    if (ack == flow.first || ack == flow.confirmedAck)
        return;
    if (ack == flow.lastAck && now_ - flow.lastAckAt < link_.roundTrip * 3 / 2)
        return;
    flow.lastAck = ack;
    flow.lastAckAt = now_;
    answer(Kind::Ack, index, ack);
}

void SimulatedPath::answer(Kind kind, std::size_t index, std::int64_t first, std::int64_t last)
{
    if (!dead() && !lose(link_.lossBack))
        at(now_ + oneWay(), kind, index, first, last);
}

double SimulatedPath::share(Micros from, Micros to, std::size_t index) const
{
    const auto& delivered = flows_[index]->delivered;
    const auto sample = [&](Micros time) {
        const auto count = static_cast<std::size_t>(time / kSampleEvery);
        return count == 0 ? 0 : delivered.at(count - 1);
    };
    double possible = 0;
    for (Micros time = from; time < to; time += kSampleEvery)
        possible += rateAt(1'000'000 + time) * static_cast<double>(kSampleEvery) * 1e-6;
    return static_cast<double>(sample(to) - sample(from)) / possible;
}

double SimulatedPath::wireOverPayload(std::size_t index) const
{
    const SimulatedFlow& flow = *flows_[index];
    return static_cast<double>(flow.wire) / static_cast<double>(flow.payload());
}

double SimulatedPath::queueAt(double share) const
{
    std::vector<float> sorted = queues_;
    std::sort(sorted.begin(), sorted.end());
    const auto place = static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1));
    return static_cast<double>(sorted.at(place)) /
           (link_.rate * static_cast<double>(link_.roundTrip) * 1e-6);
}

} // namespace quenmoor
