// What the user asked quenmoor-put for.
#pragma once

#include "protocol/udt_transfer_link.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace quenmoor {

// The status of the process. Where several hold, the one that stands first in this list does:
// interrupted, gave up, unreadable, cancelled.
inline constexpr int kExitFinished = 0;   // every file finished
inline constexpr int kExitGaveUp = 1;     // ten failures of one file in a row
inline constexpr int kExitUsage = 2;      // the command line is wrong; nothing was sent
inline constexpr int kExitCancelled = 3;  // a file was cancelled because of the server's copy
inline constexpr int kExitUnreadable = 4; // a file cannot be read, or became shorter
inline constexpr int kExitSignal = 128;   // plus the signal's number

// What to do about a copy on the server. Asking takes a terminal; without one it cancels.
enum class Existing : std::uint8_t { Ask, Resume, Overwrite, Cancel };

enum class Output : std::uint8_t { Human, Json, Quiet };

struct PutOptions {
    std::string host;
    std::uint16_t port = 0;
    std::vector<std::string> files;  // as given, byte for byte
    std::vector<std::string> tokens; // one for each file
    Existing existing = Existing::Ask;
    Output output = Output::Human;
    Congestion congestion = kBuiltInCongestion;
    bool verbose = false; // diagnostics on standard error too
};

// A command line that ends here: what to print, and where to.
struct PutExit {
    int status; // kExitFinished for --help and --version, kExitUsage otherwise
    std::string text;
};

// Reads the command line. Prints nothing.
std::variant<PutOptions, PutExit> parsePutOptions(int argc, const char* const* argv);

} // namespace quenmoor
