#include "bench/links.h"

#include "bench/fresh_service.h"
#include "bench/udp_relay.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

struct Link {
    const char* name = "";
    PathQuality quality;
    bool usual = false;
};

// Delays are one way: half of the round trip that the name tells. Queues hold one product of rate
// and round trip, as routers are told to, unless the name says otherwise.
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

struct Passage {
    double share;  // of the link's rate that became bytes on the service's disk
    double resent; // per cent of the data packets
    double wait;   // median time in the queue, ms
};

// Cut off after the given time: a slow control would never send what a fast one does.
Passage pass(const BenchSetup& setup, const Link& link, const std::string& congestion,
             unsigned seed)
{
    const auto time = std::chrono::duration<double>(setup.linkSeconds);
    FreshService service(setup);
    UdpRelay relay(service.port(), link.quality, seed);
    const std::filesystem::path file = setup.folder / "long.mov";
    std::ofstream(file).close();
    const auto most = static_cast<std::uintmax_t>(link.quality.rate / 8 * setup.linkSeconds * 1.1);
    std::filesystem::resize_file(file, most);

    MeasuredProcess sender(putCommand(setup, relay.port(), congestion, {file}));
    std::this_thread::sleep_for(time);
    const auto held = static_cast<double>(service.heldBytes());
    sender.signal(SIGKILL);
    const PathCounts counts = relay.stop();
    (void)sender.finish(10s);
    std::filesystem::remove(file);
    if (held <= 0)
        throw std::runtime_error(fmt::format("nothing arrived over {}", link.name));
    return {held / (link.quality.rate / 8 * setup.linkSeconds),
            100 * static_cast<double>(counts.resent) / static_cast<double>(counts.dataPackets),
            std::chrono::duration<double, std::milli>(counts.medianWait).count()};
}

std::vector<Figure> figuresOf(const BenchSetup& setup, const Link& link)
{
    std::array<std::vector<Passage>, 2> passages; // the library's control, ours
    for (int round = 0; round < setup.linkRounds; ++round) {
        sayProgress(link.name, round, setup.linkRounds);
        const auto seed = static_cast<unsigned>(round) + 1;
        for (int turn = 0; turn < 2; ++turn) {
            const bool paced = (turn + round) % 2 != 0;
            passages.at(paced ? 1 : 0)
                .push_back(pass(setup, link, paced ? "paced" : "library", seed));
        }
    }
    const auto figure = [&](const char* name, const char* unit, std::size_t control,
                            double Passage::*value) {
        Figure made{std::string("link of ") + link.name, name, unit, {}, {}};
        for (const Passage& passage : passages.at(control))
            made.ours.push_back(passage.*value);
        return made;
    };
    std::vector<Figure> figures{figure("share of the link, paced", "", 1, &Passage::share),
                                figure("sent again, library", "%", 0, &Passage::resent),
                                figure("sent again, paced", "%", 1, &Passage::resent),
                                figure("median wait, library", "ms", 0, &Passage::wait),
                                figure("median wait, paced", "ms", 1, &Passage::wait)};
    figures[0].limit = figure("", "", 0, &Passage::share).ours;
    figures[0].limitName = "the library's control";
    figures[2].aim = Aim{Aim::Bound::AtMost, 10.7}; // 1.12 times the payload on the wire
    return figures;
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

std::vector<Figure> linkFigures(const BenchSetup& setup)
{
    std::vector<Figure> figures;
    for (const std::string& name : setup.links) {
        const std::vector<std::string> names = linkNames();
        if (name != "all" && std::find(names.begin(), names.end(), name) == names.end())
            throw std::runtime_error("no link is named \"" + name + "\"");
    }
    for (const Link& link : kLinks) {
        const auto asked = [&](const std::string& name) {
            return name == "all" || name == link.name;
        };
        if (setup.links.empty() ? !link.usual
                                : std::none_of(setup.links.begin(), setup.links.end(), asked))
            continue;
        const std::vector<Figure> more = figuresOf(setup, link);
        figures.insert(figures.end(), more.begin(), more.end());
    }
    return figures;
}

} // namespace quenmoor
