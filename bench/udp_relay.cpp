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

struct Packet {
    Time due;
    std::size_t size;
    std::array<char, kLargestPacket> bytes;
};

sockaddr_in onThisMachine(std::uint16_t port)
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
    const sockaddr_in address = onThisMachine(0);
    if (made < 0 || bind(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no UDP socket for the relay");
    setsockopt(made, SOL_SOCKET, SO_RCVBUF, &kSocketBuffer, sizeof kSocketBuffer);
    setsockopt(made, SOL_SOCKET, SO_SNDBUF, &kSocketBuffer, sizeof kSocketBuffer);
    return made;
}

// Counts what the sender's packets say of themselves: the first word of a data packet is its
// number, the top bit tells control packets apart, the fourth word names the receiving socket.
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
        // Numbers have 31 bits and wrap around.
        const bool isNew = isFirst || ((number - highest->second) & 0x7fffffffU) - 1 < 0x3fffffffU;
        if (isNew)
            highest->second = number;
        else
            ++counts.resent;
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

// One direction.
class Wire {
public:
    Wire(const PathQuality& quality, unsigned seed) : quality_(quality), random_(seed) {}

    // Whether there was room in the queue.
    bool offer(const Packet& packet, Time now)
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
        if (share_(random_) < quality_.loss)
            return true;
        onWire_.push_back(packet);
        onWire_.back().due = free_ + quality_.delay;
        return true;
    }

    std::optional<Time> nextDue() const
    {
        if (onWire_.empty())
            return std::nullopt;
        return onWire_.front().due;
    }

    // Hands what is due to `send`.
    template <typename Send>
    void deliver(Time now, Send send)
    {
        for (; !onWire_.empty() && onWire_.front().due <= now; onWire_.pop_front())
            send(onWire_.front());
    }

    microseconds medianWait()
    {
        if (waits_.empty())
            return microseconds(0);
        const auto middle = waits_.begin() + static_cast<std::ptrdiff_t>(waits_.size() / 2);
        std::nth_element(waits_.begin(), middle, waits_.end());
        return microseconds(*middle);
    }

private:
    const PathQuality quality_;
    std::minstd_rand random_;
    std::uniform_real_distribution<double> share_{0, 1};
    Time free_; // when the wire takes the next packet
    std::deque<Packet> onWire_;
    std::vector<std::uint32_t> waits_; // microseconds, one for each packet
};

} // namespace

class UdpRelay::Path {
public:
    Path(std::uint16_t servicePort, const PathQuality& quality, unsigned seed)
        : outward_(quality, seed), homeward_(quality, seed + 1)
    {
        const sockaddr_in service = onThisMachine(servicePort);
        if (connect(toService_, reinterpret_cast<const sockaddr*>(&service), sizeof service) != 0)
            throw std::runtime_error("no way to the service for the relay");
    }

    ~Path()
    {
        close(toSender_);
        close(toService_);
    }

    void carry(const std::atomic<bool>& cut, const std::atomic<bool>& stopping)
    {
        while (!stopping) {
            waitForWork();
            const bool isCut = cut;
            takeAll(toSender_, [&](const Packet& packet, Time now) {
                counter_.count(packet, counts_);
                if (!isCut && !outward_.offer(packet, now))
                    ++counts_.queueDrops;
            });
            takeAll(toService_, [&](const Packet& packet, Time now) {
                if (!isCut)
                    homeward_.offer(packet, now);
            });
            const Time now = steady_clock::now();
            outward_.deliver(now, [&](const Packet& packet) {
                if (!isCut)
                    (void)::send(toService_, packet.bytes.data(), packet.size, 0);
            });
            homeward_.deliver(now, [&](const Packet& packet) {
                if (!isCut)
                    (void)sendto(toSender_, packet.bytes.data(), packet.size, 0,
                                 reinterpret_cast<const sockaddr*>(&sender_), sizeof sender_);
            });
        }
        counts_.medianWait = outward_.medianWait();
    }

    std::uint16_t port() const
    {
        sockaddr_in address{};
        socklen_t length = sizeof address;
        getsockname(toSender_, reinterpret_cast<sockaddr*>(&address), &length);
        return ntohs(address.sin_port);
    }

    PathCounts counts() const { return counts_; }

private:
    void waitForWork()
    {
        const Time now = steady_clock::now();
        Time until = now + kLongestPoll;
        for (const Wire* const wire : {&outward_, &homeward_})
            until = std::min(until, wire->nextDue().value_or(until));
        const auto left = std::max(nanoseconds(0), duration_cast<nanoseconds>(until - now));
        const timespec limit{0, static_cast<long>(left.count())};
        std::array<pollfd, 2> sockets{{{toSender_, POLLIN, 0}, {toService_, POLLIN, 0}}};
        ppoll(sockets.data(), sockets.size(), &limit, nullptr);
    }

    template <typename Take>
    void takeAll(int socket, Take take)
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
            take(packet_, steady_clock::now());
        }
    }

    const int toSender_ = openSocket();
    const int toService_ = openSocket();
    sockaddr_in sender_{}; // who spoke last
    Packet packet_{};      // just read
    Wire outward_;
    Wire homeward_;
    DataCounter counter_;
    PathCounts counts_;
};

UdpRelay::UdpRelay(std::uint16_t servicePort, PathQuality quality, unsigned seed)
    : path_(std::make_unique<Path>(servicePort, quality, seed)),
      thread_([this] { path_->carry(cut_, stopping_); })
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

PathCounts UdpRelay::stop()
{
    stopping_ = true;
    if (thread_.joinable())
        thread_.join();
    return path_->counts();
}

} // namespace quenmoor
