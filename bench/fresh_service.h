// A quenmoor-devservice of its own for one measured transfer.
#pragma once

#include "bench/bench_setup.h"
#include "bench/measured_process.h"

#include <cstdint>

namespace quenmoor {

// Each is used by one thread. Its storage is empty at first, and gone when it is.
class FreshService {
public:
    static constexpr const char* kToken = "bench";

    // Listens when it returns. Throws std::runtime_error when it does not.
    explicit FreshService(const BenchSetup& setup);
    ~FreshService();

    std::uint16_t port() const { return port_; }

    // Bytes of files on its disk, finished or not.
    [[nodiscard]] std::int64_t heldBytes() const;

    // Ends it; the processor seconds that it took.
    [[nodiscard]] double end();

private:
    const std::filesystem::path root_;
    MeasuredProcess process_;
    std::uint16_t port_ = 0;
};

// quenmoor-put with FreshService's token for each file, and `congestion`, "library" or "paced".
[[nodiscard]] std::vector<std::string> putCommand(const BenchSetup& setup, std::uint16_t port,
                                                  const std::string& congestion,
                                                  const std::vector<std::string>& files);

} // namespace quenmoor
