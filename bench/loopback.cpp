#include "bench/loopback.h"

#include "bench/fresh_service.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <future>
#include <stdexcept>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr double kMegabyte = 1048576;
constexpr double kGigabyte = 1073741824;
constexpr std::int64_t kSmallFile = 1000;

struct Cost {
    double seconds;
    double sender;   // processor seconds
    double receiver; // likewise
};

using Command = std::function<std::vector<std::string>(std::uint16_t port)>;

Cost measure(const BenchSetup& setup, const Command& command, std::int64_t bytes)
{
    FreshService service(setup);
    const ProcessCost sender = MeasuredProcess(command(service.port())).finish(5min);
    if (sender.status != 0 || service.heldBytes() != bytes)
        throw std::runtime_error(fmt::format("a sender failed: status {}, {} of {} bytes held",
                                             sender.status, service.heldBytes(), bytes));
    return {sender.wall, sender.cpu, service.end()};
}

Command bare(const BenchSetup& setup, int count, std::int64_t size)
{
    return [&setup, count, size](std::uint16_t port) -> std::vector<std::string> {
        return {setup.programs / "quenmoor-bare-send", std::to_string(port), FreshService::kToken,
                std::to_string(count), std::to_string(size)};
    };
}

Command put(const BenchSetup& setup, const std::string& congestion, std::vector<std::string> files)
{
    return [&setup, congestion, files = std::move(files)](std::uint16_t port) {
        return putCommand(setup, port, congestion, files);
    };
}

std::string makeFile(const std::filesystem::path& path, std::int64_t size)
{
    std::ofstream file(path, std::ios::binary);
    const std::vector<char> block(1 << 20, 'q');
    for (std::int64_t left = size; left > 0; left -= std::min<std::int64_t>(left, 1 << 20))
        file.write(block.data(), std::min<std::int64_t>(left, 1 << 20));
    file.close();
    if (!file)
        throw std::runtime_error("no room for " + path.string());
    return path;
}

std::vector<double> collect(const std::vector<Cost>& costs, double (*value)(const Cost&, double),
                            double amount)
{
    std::vector<double> values;
    values.reserve(costs.size());
    for (const Cost& cost : costs)
        values.push_back(value(cost, amount));
    return values;
}

double speed(const Cost& cost, double bytes)
{
    return bytes / kMegabyte / cost.seconds;
}

double senderCost(const Cost& cost, double bytes)
{
    return cost.sender / (bytes / kGigabyte);
}

double receiverCost(const Cost& cost, double bytes)
{
    return cost.receiver / (bytes / kGigabyte);
}

double timePerFile(const Cost& cost, double files)
{
    return cost.seconds * 1000 / files;
}

// Of the bare library, the library's control, and ours.
using Costs = std::array<std::vector<Cost>, 3>;

// One after the other, in changing order: none of them always has the machine as another left it.
Costs takeTurns(const BenchSetup& setup, const std::array<Command, 3>& commands, std::int64_t bytes)
{
    Costs costs;
    for (int round = 0; round < setup.rounds; ++round) {
        sayProgress("one large file", round, setup.rounds);
        for (std::size_t i = 0; i < commands.size(); ++i) {
            const std::size_t turn = (i + static_cast<std::size_t>(round)) % commands.size();
            costs.at(turn).push_back(measure(setup, commands.at(turn), bytes));
        }
    }
    return costs;
}

// All at once, for commands that mostly wait for the peer.
Costs runTogether(const BenchSetup& setup, const std::array<Command, 3>& commands,
                  std::int64_t bytes)
{
    Costs costs;
    for (int round = 0; round < setup.rounds; ++round) {
        sayProgress("small files", round, setup.rounds);
        std::array<std::future<Cost>, 3> running;
        for (std::size_t i = 0; i < commands.size(); ++i)
            running.at(i) = std::async(std::launch::async, [&setup, &commands, i, bytes] {
                return measure(setup, commands.at(i), bytes);
            });
        for (std::size_t i = 0; i < commands.size(); ++i)
            costs.at(i).push_back(running.at(i).get());
    }
    return costs;
}

} // namespace

std::vector<Figure> loopbackFigures(const BenchSetup& setup)
{
    const std::string file = makeFile(setup.folder / "large.mov", setup.largeFile);
    const Costs costs = takeTurns(setup,
                                  {bare(setup, 1, setup.largeFile), put(setup, "library", {file}),
                                   put(setup, "paced", {file})},
                                  setup.largeFile);
    std::filesystem::remove(file);

    const auto& limit = costs[0];
    const auto& library = costs[1];
    const auto& paced = costs[2];
    const auto bytes = static_cast<double>(setup.largeFile);
    const std::string section = "one large file on loopback";
    const std::string bareName = "the bare library";
    const Aim fast{Aim::Bound::AtLeast, 0.95};
    const Aim cheap{Aim::Bound::AtMost, 1.10};
    const auto figure = [&](const char* name, const char* unit, const std::vector<Cost>& ours,
                            double (*value)(const Cost&, double), Aim aim) {
        return Figure{
            section,  name, unit, collect(ours, value, bytes), collect(limit, value, bytes),
            bareName, aim};
    };
    return {figure("speed, library's control", "MB/s", library, speed, fast),
            figure("sender, library's control", "s/GB", library, senderCost, cheap),
            figure("receiver, library's control", "s/GB", library, receiverCost, cheap),
            figure("speed, paced control", "MB/s", paced, speed, fast),
            figure("sender, paced control", "s/GB", paced, senderCost, cheap),
            figure("receiver, paced control", "s/GB", paced, receiverCost, cheap),
            Figure{section, "speed, paced control", "MB/s", collect(paced, speed, bytes),
                   collect(library, speed, bytes), "the library's control",
                   Aim{Aim::Bound::AtLeast, 0.97}}};
}

std::vector<Figure> smallFileFigures(const BenchSetup& setup)
{
    std::vector<std::string> files;
    files.reserve(static_cast<std::size_t>(setup.smallFiles));
    for (int i = 0; i < setup.smallFiles; ++i)
        files.push_back(makeFile(setup.folder / fmt::format("small-{}.mov", i), kSmallFile));
    const Costs costs = runTogether(setup,
                                    {bare(setup, setup.smallFiles, kSmallFile),
                                     put(setup, "library", files), put(setup, "paced", files)},
                                    kSmallFile * setup.smallFiles);
    for (const std::string& file : files)
        std::filesystem::remove(file);

    const double count = setup.smallFiles;
    const auto figure = [&](const char* name, const std::vector<Cost>& ours) {
        return Figure{"files of 1 kB",
                      name,
                      "ms/file",
                      collect(ours, timePerFile, count),
                      collect(costs[0], timePerFile, count),
                      "connect, rendezvous and two messages",
                      Aim{Aim::Bound::AtMost, 1.10}};
    };
    return {figure("time, library's control", costs[1]), figure("time, paced control", costs[2])};
}

} // namespace quenmoor
