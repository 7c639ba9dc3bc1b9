// quenmoor-devservice as a process of its own, with empty storage that is removed with it.
#pragma once

#include "bench/process.h"
#include "bench/sections.h"
#include "tests/fakes/temp_folder.h"

namespace quenmoor {

// Used by one thread.
class LocalService {
public:
    static constexpr const char* kToken = "bench";

    // Runs the service with `options` and waits until it listens. The default is the transfer
    // server alone, on a free port. Throws std::runtime_error with the service's own message if
    // it does not start.
    explicit LocalService(const Settings& settings, const std::vector<std::string>& options = {
                                                        "--port", "0", "--token", kToken});

    std::uint16_t port() const { return port_; }

    // The folder of its uploads.
    const std::filesystem::path& root() const { return root_.path(); }

    // Sends a signal to the supervising process of the service.
    void signal(int number) const { process_->signal(number); }

    // The child process that receives uploads. Throws std::runtime_error if there is none.
    [[nodiscard]] pid_t transferPart() const;

    // Waits until the service, which was signalled, has ended. Runs its transfer server alone
    // again, with the storage and the port that it had and without faults.
    void restart();

    // The path of the page's certificate. Requires options with a page.
    [[nodiscard]] std::string certificate();

    // Bytes of the finished and unfinished files in its storage.
    [[nodiscard]] std::int64_t heldBytes() const;

    // Ends the service; returns its processor seconds.
    [[nodiscard]] double end();

private:
    void start(const std::vector<std::string>& options);
    [[nodiscard]] std::string require(const std::string& prefix);

    const std::filesystem::path program_;
    const TempFolder root_;
    const TempFolder state_;
    std::optional<Process> process_;
    std::uint16_t port_ = 0;
};

// The command line of quenmoor-put with LocalService's token for each file. `congestion` is
// "library" or "paced".
[[nodiscard]] std::vector<std::string> putCommand(const Settings& settings, std::uint16_t port,
                                                  const std::string& congestion,
                                                  const std::vector<std::string>& files);

} // namespace quenmoor
