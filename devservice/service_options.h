// The command line of quenmoor-devservice.
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

// The upload page.
struct PageOptions {
    std::uint16_t port = 8443;
    std::string folder;      // empty: the page of the service
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
    std::vector<std::string> tokens; // accepted for every file
    Faults faults;
    std::optional<int> faultCount;   // nothing: every attempt
    std::optional<PageOptions> page; // nothing: only uploads with a fixed token
};

// The program prints `text` and exits: with status 0 after --help, with kServiceUsage after an
// error.
struct ServiceExit {
    int status;
    std::string text;
};

// Exit statuses besides 0.
inline constexpr int kServiceFailed = 1; // the service cannot start, or did not stop cleanly
inline constexpr int kServiceUsage = 2;  // the command line is not valid

// Depends on the environment: XDG_STATE_HOME and HOME determine the default of --state.
[[nodiscard]] std::variant<ServiceOptions, ServiceExit>
parseServiceOptions(int argc, const char* const* argv);

} // namespace quenmoor
