// quenmoor-put check: tests the path to the transfer server without sending a file.
//
// Announces one byte under the name "quenmoor-put-check" with the token "check", which no service
// issues. The refusal arrives over the connection that would carry a file, so it proves that
// packets pass in both directions.
#pragma once

#include "cli/put_options.h"
#include "engine/attempt_event.h"
#include "engine/clock.h"
#include "protocol/transfer_link.h"

#include <functional>
#include <optional>
#include <string>

namespace quenmoor {

struct CheckResult {
    std::string address = {};  // of the server, "192.0.2.1:65000"; empty if its name was not found
    std::string failedAt = {}; // "resolve" or a stepName(); empty if the path works
    std::string message = {};  // the outcome in words
    std::string advice = {};   // what to do about it; empty if the path works
    double roundTripMs = 0;    // of the connection; 0 if there was none
    double rendezvousMs = 0;   // until the server's connection arrived; 0 if it did not
    std::optional<std::int32_t> receiveBuffer = {}; // bytes that the system grants

    bool works() const { return failedAt.empty(); }
};

// Called with a line about each step that has ended.
using OnCheckLine = std::function<void(const std::string& line)>;

// Connects, announces and receives the response, and completes `result`. Closes the sockets. Blocks
// for up to 45 seconds.
void checkPath(TransferLink& link, const Clock& clock, const OnCheckLine& onLine,
               CheckResult& result);

// Main thread. Checks the path over the network, prints the result, and returns the exit status:
// kExitFinished, kExitGaveUp if the path does not work, or kExitOutput.
int runCheck(const CheckOptions& options);

} // namespace quenmoor
