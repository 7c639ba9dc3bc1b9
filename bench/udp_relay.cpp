#include "bench/udp_relay.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

namespace quenmoor {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using Time = steady_clock::time_point;

constexpr std::size_t kLargestPacket = 1600;
constexpr std::size_t kBatch = 32;
constexpr int kSocketBuffer = 8 << 20;
constexpr int kIpAndUdpHeader = 28;
constexpr std::size_t kTransportHeader = 16;
constexpr microseconds kLongestPoll{50'000};
constexpr microseconds kReorderDelay{2'000};

struct Packet {
    Time due;
    std::size_t size;
    std::array<char, kLargestPacket> bytes;
};

sockaddr_in loopbackAddress(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int openSocket()
{
    const int made = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopbackAddress(0);
    if (made < 0 || bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("the relay cannot open a UDP socket");
    setsockopt(made, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof kSocketBuffer);
    setsockopt(made, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
    return made;
}

// Counts data packets by their UDT header: the first word is the sequence number of a data packet,
// its top bit marks control packets, the fourth word identifies the receiving socket.
class DataCounter {
public:
    void count(const Packet& packet, PathCounts& counts)
    {
        if (packet.size < kTransportHeader)
            return;
        const std::uint32_t number = word(packet, 0);
        if ((number & 0x80000000U) != 0)
            return;
        ++counts.dataPackets;
        const auto [highest, isFirst] = highest_.try_emplace(word(packet, 3), number);
        // Sequence numbers have 31 bits and wrap around.
        const bool isNew = isFirst || ((number - highest->second) & 0x7fffffffU) - 1 < 0x3fffffffU;
        if (isNew)
            highest->second = number;
        else
            ++counts.retransmitted;
    }

private:
    static std::uint32_t word(const Packet& packet, std::size_t index)
    {
        std::uint32_t value = 0;
        std::memcpy(&value, packet.bytes.data() + index * sizeof value, sizeof value);
        return ntohl(value);
    }

    std::map<std::uint32_t, std::uint32_t> highest_; // by the receiving socket
};

// One direction of the path.
class Wire {
public:
    Wire(const PathQuality& quality, unsigned seed) : quality_(quality), random_(seed) {}

    void setQuality(const PathQuality& quality) { quality_ = quality; }

    // Returns false if the queue dropped the packet.
    bool enqueue(Packet& packet, Time now)
    {
        const Time begins = std::max(now, free_);
        const auto wait = duration_cast<microseconds>(begins - now);
        if (wait > quality_.queue)
            return false;
        waits_.push_back(static_cast<std::uint32_t>(wait.count()));
        if (quality_.rate > 0) {
            const double bits = static_cast<double>(packet.size + kIpAndUdpHeader) * 8;
            free_ = begins + nanoseconds(std::llround(bits / quality_.rate * 1e9));
        } else {
            free_ = begins;
        }
        if (happens(quality_.loss))
            return true;
        if (packet.size > kTransportHeader && happens(quality_.damaged))
            damage(packet);
        const Time due = free_ + quality_.delay;
        if (happens(quality_.reordered)) {
            ++reordered_;
            push(late_, packet, due + kReorderDelay);
        } else {
            push(inOrder_, packet, due);
        }
        if (happens(quality_.duplicated)) {
            ++duplicated_;
            push(inOrder_, packet, due);
        }
        return true;
    }

    // No later than the next packet's arrival; nothing while no packet is under way.
    std::optional<Time> nextDue() const
    {
        std::optional<Time> next;
        for (const auto* const packets : {&inOrder_, &late_}) {
            if (!packets->empty())
                next = std::min(next.value_or(Time::max()), packets->front().due);
        }
        return next;
    }

    // Passes every packet that arrives until `now` to `send`.
    template <typename Send>
    void deliver(Time now, Send send)
    {
        for (auto* const packets : {&inOrder_, &late_}) {
            for (; !packets->empty() && packets->front().due <= now; packets->pop_front())
                send(packets->front());
        }
    }

    std::int64_t duplicated() const { return duplicated_; }
    std::int64_t reordered() const { return reordered_; }
    std::int64_t damaged() const { return damaged_; }

    microseconds medianWait()
    {
        if (waits_.empty())
            return microseconds(0);
        const auto middle = waits_.begin() + static_cast<std::ptrdiff_t>(waits_.size() / 2);
        std::nth_element(waits_.begin(), middle, waits_.end());
        return microseconds(*middle);
    }

private:
    // Draws no random number for a share of 0, so that a seed's losses do not depend on the other
    // settings.
    bool happens(double share) { return share > 0 && uniform_(random_) < share; }

    void damage(Packet& packet)
    {
        ++damaged_;
        const bool spares = (packet.bytes[0] & 0x80) == 0 && !quality_.damagesContent;
        if (!spares && below(8) == 0) {
            packet.size = below(packet.size);
            return;
        }
        // The first word of a data packet is its sequence number.
        const std::size_t at = spares ? 4 + below(kTransportHeader - 4) : below(packet.size);
        packet.bytes[at] = static_cast<char>(packet.bytes[at] ^ (1 << below(8)));
    }

    std::size_t below(std::size_t limit)
    {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(random_);
    }

    static void push(std::deque<Packet>& packets, const Packet& packet, Time due)
    {
        packets.push_back(packet);
        packets.back().due = due;
    }

    PathQuality quality_;
    std::minstd_rand random_;
    std::uniform_real_distribution<double> uniform_{0, 1};
    Time free_; // the end of the latest packet's transmission
    // Both are sorted by arrival, because every packet of a queue has the same delay.
    std::deque<Packet> inOrder_;
    std::deque<Packet> late_;
    std::vector<std::uint32_t> waits_; // the queueing delay of each packet in microseconds
    std::int64_t duplicated_ = 0;
    std::int64_t reordered_ = 0;
    std::int64_t damaged_ = 0;
};

} // namespace

class UdpRelay::Path {
public:
    Path(std::uint16_t servicePort, const PathQuality& quality, unsigned seed, Edit edit)
        : edit_(std::move(edit)), uplink_(quality, seed), downlink_(quality, seed + 1)
    {
        const sockaddr_in service = loopbackAddress(servicePort);
        if (connect(toService_, reinterpret_cast<const sockaddr*>(&service), sizeof service) != 0)
            throw std::runtime_error("the relay cannot connect to the service");
    }

    ~Path()
    {
        close(toSender_);
        close(toService_);
    }

    void setQuality(const PathQuality& quality)
    {
        uplink_.setQuality(quality);
        downlink_.setQuality(quality);
    }

    void relayOnce()
    {
        waitForWork();
        receiveBatch(toSender_, [&](Packet& packet, Time now) {
            counter_.count(packet, counts_);
            if (!uplink_.enqueue(packet, now))
                ++counts_.queueDrops;
        });
        receiveBatch(toService_, [&](Packet& packet, Time now) {
            if (edit_)
                edit(packet);
            downlink_.enqueue(packet, now);
        });
        const Time now = steady_clock::now();
        uplink_.deliver(now, [&](const Packet& packet) {
            (void)::send(toService_, packet.bytes.data(), packet.size, 0);
        });
        downlink_.deliver(now, [&](const Packet& packet) {
            (void)sendto(toSender_, packet.bytes.data(), packet.size, 0,
                         reinterpret_cast<const sockaddr*>(&sender_), sizeof sender_);
        });
    }

    // Requires that relayOnce() is not called any more.
    PathCounts finalCounts()
    {
        counts_.medianWait = uplink_.medianWait();
        counts_.duplicated = uplink_.duplicated();
        counts_.reordered = uplink_.reordered();
        counts_.damaged = uplink_.damaged();
        return counts_;
    }

    std::uint16_t port() const
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(toSender_, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

private:
    void edit(Packet& packet) const
    {
        std::string bytes(packet.bytes.data(), packet.size);
        edit_(bytes);
        packet.size = bytes.copy(packet.bytes.data(), packet.bytes.size());
    }

    void waitForWork()
    {
        const Time now = steady_clock::now();
        Time until = now + kLongestPoll;
        for (const Wire* const wire : {&uplink_, &downlink_})
            until = std::min(until, wire->nextDue().value_or(until));
        const auto left = std::max(nanoseconds(0), duration_cast<nanoseconds>(until - now));
        const timespec limit{0, static_cast<long>(left.count())};
        std::array<pollfd, 2> sockets{{{toSender_, POLLIN, 0}, {toService_, POLLIN, 0}}};
        ppoll(sockets.data(), sockets.size(), &limit, nullptr);
    }

    // Receives up to kBatch packets that have arrived.
    template <typename Handle>
    void receiveBatch(int socket, Handle handle)
    {
        for (std::size_t i = 0; i < kBatch; ++i) {
            socklen_t length = sizeof sender_;
            auto* const from =
                socket == toSender_ ? reinterpret_cast<sockaddr*>(&sender_) : nullptr;
            const ssize_t got = recvfrom(socket, packet_.bytes.data(), packet_.bytes.size(), 0,
                                         from, from != nullptr ? &length : nullptr);
            if (got < 0)
                return;
            packet_.size = static_cast<std::size_t>(got);
            handle(packet_, steady_clock::now());
        }
    }

    const Edit edit_;
    const int toSender_ = openSocket();
    const int toService_ = openSocket();
    sockaddr_in sender_{}; // of the latest packet
    Packet packet_{};      // the buffer of receiveBatch()
    Wire uplink_;
    Wire downlink_;
    DataCounter counter_;
    PathCounts counts_;
};

UdpRelay::UdpRelay(std::uint16_t servicePort, PathQuality quality, unsigned seed, Edit edit)
    : path_(std::make_unique<Path>(servicePort, quality, seed, std::move(edit))), thread_([this] {
          while (!stopping_) {
              if (const auto next = takeQuality())
                  path_->setQuality(*next);
              path_->relayOnce();
          }
      })
{
}

UdpRelay::~UdpRelay()
{
    (void)stop();
}

std::uint16_t UdpRelay::port() const
{
    return path_->port();
}

void UdpRelay::setQuality(const PathQuality& quality)
{
    const std::lock_guard lock(mutex_);
    nextQuality_ = quality;
}

std::optional<PathQuality> UdpRelay::takeQuality()
{
    const std::lock_guard lock(mutex_);
    return std::exchange(nextQuality_, std::nullopt);
}

PathCounts UdpRelay::stop()
{
    stopping_ = true;
    if (thread_.joinable())
        thread_.join();
    return path_->finalCounts();
}

} // namespace quenmoor
