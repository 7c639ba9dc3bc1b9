#include "bench/local_service.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <future>
#include <stdexcept>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;

constexpr double kMebibyte = 1048576;
constexpr double kGibibyte = 1073741824;
constexpr std::int64_t kSmallFile = 1000;

// quenmoor-bare-send, and quenmoor-put with either congestion control.
enum Sender : std::size_t { Bare, Library, Paced };
constexpr std::array kCongestion{"", "library", "paced"};

struct Sample {
    double speed;        // MiB a second
    double senderCost;   // processor seconds for a GiB
    double receiverCost; // likewise
    double timePerFile;  // ms
};
using Samples = std::array<std::vector<Sample>, kCongestion.size()>;

struct Load {
    const char* name;
    int count; // of files
    std::int64_t size;
    std::launch policy; // whether the three senders run at the same time or in turn
};

Sample measure(const Settings& settings, const Load& load, const std::vector<std::string>& files,
               Sender sender)
{
    LocalService service(settings);
    Process process(sender == Bare
                        ? std::vector<std::string>{settings.programs / "quenmoor-bare-send",
                                                   std::to_string(service.port()),
                                                   LocalService::kToken, std::to_string(load.count),
                                                   std::to_string(load.size)}
                        : putCommand(settings, service.port(), kCongestion.at(sender), files));
    const auto status = process.exitStatus(5min);
    const std::int64_t bytes = load.count * load.size;
    if (status != 0 || service.heldBytes() != bytes)
        throw std::runtime_error(fmt::format("a sender failed: status {}, {} of {} bytes stored",
                                             status.value_or(-1), service.heldBytes(), bytes));
    const double gibibytes = static_cast<double>(bytes) / kGibibyte;
    return {static_cast<double>(bytes) / kMebibyte / process.wallSeconds(),
            process.cpuSeconds() / gibibytes, service.end() / gibibytes,
            process.wallSeconds() * 1000 / load.count};
}

std::vector<std::string> makeFiles(const TempFolder& folder, const Load& load)
{
    std::vector<std::string> files;
    const std::vector<char> block(1 << 20, 'q');
    for (int i = 0; i < load.count; ++i) {
        files.push_back(folder.path() / fmt::format("file-{}.mov", i));
        std::ofstream file(files.back(), std::ios::binary);
        for (std::int64_t left = load.size; left > 0; left -= 1 << 20)
            file.write(block.data(), std::min<std::int64_t>(left, 1 << 20));
        file.close();
        if (!file)
            throw std::runtime_error("cannot write " + files.back());
    }
    return files;
}

// The order changes from round to round, so that no sender always follows the same other one.
Samples measureAll(const Settings& settings, const Load& load)
{
    const TempFolder folder;
    const std::vector<std::string> files = makeFiles(folder, load);
    Samples samples;
    for (int round = 0; round < settings.rounds; ++round) {
        printProgress(load.name, round, settings.rounds);
        std::array<std::future<Sample>, samples.size()> running;
        for (const Sender sender : {Bare, Library, Paced})
            running.at(sender) = std::async(load.policy, [&settings, &load, &files, sender] {
                return measure(settings, load, files, sender);
            });
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const std::size_t sender = (i + static_cast<std::size_t>(round)) % samples.size();
            samples.at(sender).push_back(running.at(sender).get());
        }
    }
    return samples;
}

} // namespace

std::vector<Figure> largeFileFigures(const Settings& settings)
{
    const Load load{"one large file on loopback", 1, settings.largeFile, std::launch::deferred};
    const Samples samples = measureAll(settings, load);
    const Aim fast{Aim::Bound::AtLeast, 0.95};
    const Aim cheap{Aim::Bound::AtMost, 1.10};
    std::vector<Figure> figures;
    const auto add = [&](const char* name, const char* unit, Sender sender, Sender limit,
                         double Sample::*value, Aim aim) {
        figures.push_back({load.name, name, unit, valuesOf(samples.at(sender), value),
                           valuesOf(samples.at(limit), value),
                           limit == Bare ? "the bare library" : "the library's control", aim});
    };
    add("speed, library's control", "MB/s", Library, Bare, &Sample::speed, fast);
    add("sender, library's control", "s/GB", Library, Bare, &Sample::senderCost, cheap);
    add("receiver, library's control", "s/GB", Library, Bare, &Sample::receiverCost, cheap);
    add("speed, paced control", "MB/s", Paced, Bare, &Sample::speed, fast);
    add("sender, paced control", "s/GB", Paced, Bare, &Sample::senderCost, cheap);
    add("receiver, paced control", "s/GB", Paced, Bare, &Sample::receiverCost, cheap);
    add("speed, paced control", "MB/s", Paced, Library, &Sample::speed,
        {Aim::Bound::AtLeast, 0.97});
    return figures;
}

// The senders mostly wait for the peer, so they run at the same time.
std::vector<Figure> smallFileFigures(const Settings& settings)
{
    const Load load{"files of 1 kB", settings.smallFiles, kSmallFile, std::launch::async};
    const Samples samples = measureAll(settings, load);
    const auto figure = [&](const char* name, Sender sender) {
        return Figure{load.name,
                      name,
                      "ms/file",
                      valuesOf(samples.at(sender), &Sample::timePerFile),
                      valuesOf(samples.at(Bare), &Sample::timePerFile),
                      "connect, rendezvous and two messages",
                      Aim{Aim::Bound::AtMost, 1.10}};
    };
    return {figure("time, library's control", Library), figure("time, paced control", Paced)};
}

} // namespace quenmoor
