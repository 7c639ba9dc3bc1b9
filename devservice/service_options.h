// What quenmoor-devservice is told on its command line.
#pragma once

#include "devservice/faults.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace quenmoor {

// The upload page. Without it the service takes uploads with fixed tokens only.
struct PageOptions {
    std::uint16_t port = 8443;
    std::string folder;      // empty: the page that comes with the service
    std::string stateFolder; // for the certificate
    std::array<std::string, 3> newestVersion;
    std::string updateUrl; // empty: a page of the service
    std::chrono::seconds tokenLifetime = std::chrono::hours(24);
    bool automatic = false;
};

struct ServiceOptions {
    std::string root;
    std::string bindAddress = "127.0.0.1";
    std::uint16_t port = 0;
    std::vector<std::string> tokens;
    Faults faults;
    std::optional<int> faultCount; // without: every attempt
    std::optional<PageOptions> page;
};

// The program ends with `text` said: 0 for what was asked for, 2 for a wrong command line.
struct ServiceExit {
    int status;
    std::string text;
};

inline constexpr int kServiceFailed = 1;
inline constexpr int kServiceUsage = 2;

[[nodiscard]] std::variant<ServiceOptions, ServiceExit>
parseServiceOptions(int argc, const char* const* argv);

} // namespace quenmoor
