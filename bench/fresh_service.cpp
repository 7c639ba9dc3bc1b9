#include "bench/fresh_service.h"

#include <fmt/format.h>

#include <atomic>
#include <charconv>
#include <csignal>
#include <stdexcept>

namespace quenmoor {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr std::string_view kGreeting = "Listening on 127.0.0.1:";

// Several may be at work at once.
fs::path newRoot(const fs::path& folder)
{
    static std::atomic<int> count = 0;
    return folder / fmt::format("store-{}", ++count);
}

std::uint16_t portIn(const std::string& line)
{
    std::uint16_t port = 0;
    if (line.starts_with(kGreeting))
        std::from_chars(line.data() + kGreeting.size(), line.data() + line.size(), port);
    if (port == 0)
        throw std::runtime_error("the service does not listen");
    return port;
}

} // namespace

FreshService::FreshService(const BenchSetup& setup)
    : root_(newRoot(setup.folder)),
      process_({setup.programs / "quenmoor-devservice", "--root", root_, "--port", "0", "--token",
                kToken})
{
    port_ = portIn(process_.readLine(10s).value_or(""));
}

FreshService::~FreshService()
{
    if (process_.id() >= 0)
        (void)end();
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

std::int64_t FreshService::heldBytes() const
{
    std::int64_t held = 0;
    for (const fs::path& folder : {root_, root_ / ".quenmoor" / "parts"}) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.is_regular_file())
                held += static_cast<std::int64_t>(entry.file_size());
        }
    }
    return held;
}

double FreshService::end()
{
    process_.signal(SIGTERM);
    return process_.finish(20s).cpu;
}

std::vector<std::string> putCommand(const BenchSetup& setup, std::uint16_t port,
                                    const std::string& congestion,
                                    const std::vector<std::string>& files)
{
    std::vector<std::string> command{setup.programs / "quenmoor-put",
                                     "--host",
                                     fmt::format("127.0.0.1:{}", port),
                                     "--congestion",
                                     congestion,
                                     "--quiet"};
    for (std::size_t i = 0; i < files.size(); ++i)
        command.insert(command.end(), {"--token", FreshService::kToken});
    command.emplace_back("--");
    command.insert(command.end(), files.begin(), files.end());
    return command;
}

} // namespace quenmoor
