#include "cli/sleep_inhibitor.h"

#ifdef __linux__

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstdint>
#include <memory>
#include <system_error>

namespace quenmoor {
namespace {

constexpr const char* kWho = "quenmoor-put";
constexpr const char* kWhy = "Files are being uploaded";
constexpr std::uint32_t kPortalSuspend = 4; // flag of org.freedesktop.portal.Inhibit

// Closing does not send what is still queued, because that could block.
struct CloseBus {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

struct Answer {
    bool received = false;
    bool granted = false;
    int lock = -1; // of the login manager; closing it releases the inhibitor
};

int onLoginAnswer(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    auto& answer = *static_cast<Answer*>(data);
    answer.received = true;
    int lock = -1; // owned by the message
    if (sd_bus_message_is_method_error(message, nullptr) == 0 &&
        sd_bus_message_read(message, "h", &lock) > 0)
        answer.lock = fcntl(lock, F_DUPFD_CLOEXEC, 0);
    answer.granted = answer.lock >= 0;
    return 0;
}

int onPortalAnswer(sd_bus_message* message, void* data, sd_bus_error* /*error*/)
{
    auto& answer = *static_cast<Answer*>(data);
    answer.received = true;
    answer.granted = sd_bus_message_is_method_error(message, nullptr) == 0;
    return 0;
}

// The time until the bus connection needs attention without input, in milliseconds for poll().
int timeoutOf(sd_bus* bus)
{
    std::uint64_t due = 0; // microseconds of the monotonic clock
    if (sd_bus_get_timeout(bus, &due) < 0 || due == UINT64_MAX)
        return -1;
    const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
                         std::chrono::steady_clock::now().time_since_epoch())
                         .count();
    const auto left = (static_cast<std::int64_t>(due) - now) / 1000 + 1;
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, INT_MAX));
}

// Waits for the answer to a call that was queued on `bus`: until it arrives, the library's limit of
// 25 seconds passes, the connection breaks, or `wakeEnd` becomes readable.
bool awaitAnswer(sd_bus* bus, const Answer& answer, int wakeEnd)
{
    while (!answer.received) {
        const int processed = sd_bus_process(bus, nullptr);
        if (processed < 0)
            return false;
        if (processed > 0)
            continue;
        std::array<pollfd, 2> ends{
            {{sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
             {wakeEnd, POLLIN, 0}}};
        if (poll(ends.data(), ends.size(), timeoutOf(bus)) < 0 && errno != EINTR)
            return false;
        if (ends[1].revents != 0)
            return false;
    }
    return answer.granted;
}

Bus openBus(int (*open)(sd_bus**))
{
    sd_bus* bus = nullptr;
    return Bus(open(&bus) < 0 ? nullptr : bus);
}

// Returns the descriptor that holds the inhibitor, or -1.
int inhibitorOfLogin(int wakeEnd)
{
    Answer answer; // outlives the bus, which refers to it
    const Bus bus = openBus(sd_bus_open_system);
    if (bus == nullptr ||
        sd_bus_call_method_async(bus.get(), nullptr, "org.freedesktop.login1",
                                 "/org/freedesktop/login1", "org.freedesktop.login1.Manager",
                                 "Inhibit", onLoginAnswer, &answer, "ssss", "sleep", kWho, kWhy,
                                 "block") < 0)
        return -1;
    return awaitAnswer(bus.get(), answer, wakeEnd) ? answer.lock : -1;
}

// Returns the connection that holds the inhibitor, or null.
Bus inhibitorOfPortal(int wakeEnd)
{
    Answer answer; // outlives the bus, which refers to it
    Bus bus = openBus(sd_bus_open_user);
    if (bus == nullptr ||
        sd_bus_call_method_async(
            bus.get(), nullptr, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
            "org.freedesktop.portal.Inhibit", "Inhibit", onPortalAnswer, &answer, "sua{sv}", "",
            kPortalSuspend, 1, "reason", "s", kWhy) < 0 ||
        !awaitAnswer(bus.get(), answer, wakeEnd))
        return nullptr;
    return bus;
}

} // namespace

SleepInhibitor::SleepInhibitor() : wakeEnd_(eventfd(0, EFD_CLOEXEC))
{
    try {
        if (wakeEnd_ >= 0)
            thread_ = std::jthread([this](const std::stop_token& stop) { hold(stop); });
    } catch (const std::system_error&) {
        // Without a thread the upload runs and the computer may go to sleep.
    }
}

SleepInhibitor::~SleepInhibitor()
{
    thread_.request_stop();
    if (thread_.joinable())
        thread_.join();
    if (wakeEnd_ >= 0)
        close(wakeEnd_);
}

void SleepInhibitor::hold(const std::stop_token& stop) const
{
    const std::stop_callback wake(stop, [this] { eventfd_write(wakeEnd_, 1); });
    const int lock = inhibitorOfLogin(wakeEnd_);
    const Bus portal = lock < 0 && !stop.stop_requested() ? inhibitorOfPortal(wakeEnd_) : nullptr;
    pollfd end{wakeEnd_, POLLIN, 0};
    while (!stop.stop_requested())
        poll(&end, 1, -1);
    if (lock >= 0)
        close(lock);
}

} // namespace quenmoor

#else // no login manager and no portal

namespace quenmoor {

SleepInhibitor::SleepInhibitor() : wakeEnd_(-1) {}
SleepInhibitor::~SleepInhibitor() = default;

} // namespace quenmoor

#endif
