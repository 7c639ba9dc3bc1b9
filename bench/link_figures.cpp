#include "bench/local_service.h"
#include "bench/udp_relay.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <stdexcept>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct Link {
    const char* name = "";
    PathQuality quality;
    bool isDefault = false;
};

// Delays are one way: half of the round-trip time in the name. A queue holds one bandwidth-delay
// product, as is usual for routers, unless the name gives another length.
const std::array kLinks{
    Link{"100 Mbit 40 ms", {20ms, 0, 100e6, 40ms}, true},
    Link{"200 Mbit 100 ms", {50ms, 0, 200e6, 100ms}, true},
    Link{"200 Mbit 100 ms 0.1 %", {50ms, 0.001, 200e6, 100ms}, true},
    Link{"50 Mbit 100 ms 1 %", {50ms, 0.01, 50e6, 100ms}, true},
    Link{"100 Mbit 200 ms 0.5 %", {100ms, 0.005, 100e6, 200ms}, false},
    Link{"300 Mbit 50 ms 0.01 %", {25ms, 0.0001, 300e6, 50ms}, false},
    Link{"500 Mbit 20 ms", {10ms, 0, 500e6, 20ms}, false},
    Link{"500 Mbit 20 ms, queue of 2 ms", {10ms, 0, 500e6, 2ms}, false},
    Link{"1 Gbit 1 ms, queue of 10 ms", {500us, 0, 1e9, 10ms}, false},
};

struct Transfer {
    double share;         // of the link's capacity that was stored by the service
    double retransmitted; // per cent of the data packets
    double queueDelay;    // median, ms
};

// Stops the transfer after a fixed time, because a slow control might need minutes for a file
// that a fast one sends in seconds.
Transfer transfer(const Settings& settings, const Link& link, const std::string& congestion,
                  unsigned seed)
{
    LocalService service(settings);
    UdpRelay relay(service.port(), link.quality, seed);
    const double capacity = link.quality.rate / 8 * settings.linkSeconds; // bytes
    const TempFolder folder;
    const std::filesystem::path file = folder.file("long.mov", "");
    std::filesystem::resize_file(file, static_cast<std::uintmax_t>(capacity * 1.1));

    Process sender(putCommand(settings, relay.port(), congestion, {file}));
    std::this_thread::sleep_for(std::chrono::duration<double>(settings.linkSeconds));
    const auto held = static_cast<double>(service.heldBytes());
    sender.signal(SIGKILL);
    const PathCounts counts = relay.stop();
    if (held <= 0)
        throw std::runtime_error(fmt::format("nothing arrived over {}", link.name));
    return {held / capacity,
            100 * static_cast<double>(counts.retransmitted) /
                static_cast<double>(counts.dataPackets),
            std::chrono::duration<double, std::milli>(counts.medianWait).count()};
}

std::vector<Figure> figuresOf(const Settings& settings, const Link& link)
{
    std::vector<Transfer> library;
    std::vector<Transfer> paced;
    for (int round = 0; round < settings.linkRounds; ++round) {
        printProgress(link.name, round, settings.linkRounds);
        const auto seed = static_cast<unsigned>(round) + 1;
        for (int turn = 0; turn < 2; ++turn) {
            if ((turn + round) % 2 == 0)
                library.push_back(transfer(settings, link, "library", seed));
            else
                paced.push_back(transfer(settings, link, "paced", seed));
        }
    }
    const std::string section = std::string("link of ") + link.name;
    const Aim mostRetransmitted{Aim::Bound::AtMost, 10.7}; // 1.12 times the payload is sent
    return {
        {section, "share of the link, paced", "", valuesOf(paced, &Transfer::share),
         valuesOf(library, &Transfer::share), "the library's control"},
        {section, "retransmitted, library", "%", valuesOf(library, &Transfer::retransmitted)},
        {section,
         "retransmitted, paced",
         "%",
         valuesOf(paced, &Transfer::retransmitted),
         {},
         "",
         mostRetransmitted},
        {section, "median queue delay, library", "ms", valuesOf(library, &Transfer::queueDelay)},
        {section, "median queue delay, paced", "ms", valuesOf(paced, &Transfer::queueDelay)}};
}

} // namespace

std::vector<std::string> linkNames()
{
    std::vector<std::string> names;
    names.reserve(kLinks.size());
    for (const Link& link : kLinks)
        names.emplace_back(link.name);
    return names;
}

std::vector<Figure> linkFigures(const Settings& settings)
{
    const auto isRequested = [&](const Link& link) {
        return settings.links.empty() ? link.isDefault
                                      : std::any_of(settings.links.begin(), settings.links.end(),
                                                    [&](const auto& name) {
                                                        return name == "all" || name == link.name;
                                                    });
    };
    std::vector<Figure> figures;
    for (const Link& link : kLinks) {
        if (!isRequested(link))
            continue;
        const std::vector<Figure> more = figuresOf(settings, link);
        figures.insert(figures.end(), more.begin(), more.end());
    }
    return figures;
}

} // namespace quenmoor
