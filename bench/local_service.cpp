#include "bench/local_service.h"

#include <fmt/format.h>

#include <csignal>
#include <stdexcept>

namespace quenmoor {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

LocalService::LocalService(const Settings& settings, const std::vector<std::string>& options)
    : program_(settings.programs / "quenmoor-devservice")
{
    start(options);
}

void LocalService::start(const std::vector<std::string>& options)
{
    std::vector<std::string> command{program_, "--root", root_.path(), "--state", state_.path()};
    command.insert(command.end(), options.begin(), options.end());
    process_.emplace(std::move(command),
                     ProcessOptions{.errorFile = state_.path() / "service.log"});
    port_ = static_cast<std::uint16_t>(std::stoi(require("Listening on 127.0.0.1:")));
}

std::string LocalService::require(const std::string& prefix)
{
    const auto text = process_->textAfter(prefix, 10s);
    if (!text)
        throw std::runtime_error("the local service does not start: " +
                                 contentOf(state_.path() / "service.log"));
    return *text;
}

pid_t LocalService::transferPart() const
{
    const std::string process = std::to_string(process_->id());
    std::ifstream children("/proc/" + process + "/task/" + process + "/children");
    pid_t part = 0;
    if (!(children >> part))
        throw std::runtime_error("the local service has no transfer part");
    return part;
}

void LocalService::restart()
{
    (void)process_->exitStatus();
    start({"--port", std::to_string(port_), "--token", kToken});
}

std::string LocalService::certificate()
{
    return require("Certificate: ");
}

std::int64_t LocalService::heldBytes() const
{
    std::int64_t held = 0;
    for (const fs::path& folder : {root_.path(), root_.path() / ".quenmoor" / "parts"}) {
        for (const auto& entry : fs::directory_iterator(folder)) {
            if (entry.is_regular_file())
                held += static_cast<std::int64_t>(entry.file_size());
        }
    }
    return held;
}

double LocalService::end()
{
    process_->signal(SIGTERM);
    if (!process_->exitStatus(20s))
        throw std::runtime_error("the local service does not end");
    return process_->cpuSeconds();
}

std::vector<std::string> putCommand(const Settings& settings, std::uint16_t port,
                                    const std::string& congestion,
                                    const std::vector<std::string>& files)
{
    std::vector<std::string> command{settings.programs / "quenmoor-put",
                                     "--host",
                                     fmt::format("127.0.0.1:{}", port),
                                     "--congestion",
                                     congestion,
                                     "--quiet"};
    for (std::size_t i = 0; i < files.size(); ++i)
        command.insert(command.end(), {"--token", LocalService::kToken});
    command.emplace_back("--");
    command.insert(command.end(), files.begin(), files.end());
    return command;
}

} // namespace quenmoor
