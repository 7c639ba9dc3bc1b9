// The command line of quenmoor-put.
#pragma once

#include "engine/retry_schedule.h"
#include "protocol/udt_transfer_link.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace quenmoor {

// The exit status of the process. If several apply, the first of this order is used: interrupted,
// system failure, gave up, unreadable, cancelled, output lost.
inline constexpr int kExitFinished = 0;   // every file finished
inline constexpr int kExitGaveUp = 1;     // a file failed too often or for too long
inline constexpr int kExitUsage = 2;      // wrong command line; nothing was sent
inline constexpr int kExitCancelled = 3;  // a file was cancelled because the server holds a copy
inline constexpr int kExitUnreadable = 4; // a file cannot be read, or changed after it was queued
inline constexpr int kExitOutput = 5;     // output or log could not be written
inline constexpr int kExitSystem = 6;     // the system refused a pipe or the upload thread
inline constexpr int kExitSignal = 128;   // plus the number of the signal

// What to do about an existing copy on the server. Ask requires a terminal and cancels without.
// Skip resumes an incomplete copy and counts a complete one as sent, if it is of the same file.
enum class ExistingPolicy : std::uint8_t { Ask, Resume, Overwrite, Cancel, Skip };

enum class OutputMode : std::uint8_t { Human, Json, Quiet };

struct PutOptions {
    std::string host;
    std::uint16_t port = 0;
    std::vector<std::string> files;  // as given, byte for byte
    std::vector<std::string> tokens; // one for each file
    ExistingPolicy existing = ExistingPolicy::Ask;
    OutputMode output = OutputMode::Human;
    Congestion congestion = kBuiltInCongestion;
    std::int64_t rateLimit = 0; // bytes per second; 0 for none
    RetryPolicy retry{.giveUpLostSource = true};
    bool allowChanged = false; // a file that changes after it was queued counts as finished
    bool progress = false;     // a line about all files every 30 seconds, without a terminal
    bool dryRun = false;       // list the files, send nothing
    bool verbose = false;      // diagnostics also on standard error
    std::string logFile;       // diagnostics are appended to it; empty: none
};

// Of "quenmoor-put check".
struct CheckOptions {
    std::string host;
    std::uint16_t port = 0;
    bool json = false; // the result as one JSON object
};

// A command line that ends the program: what to print, on standard output if the status is
// kExitFinished and on standard error otherwise.
struct EarlyExit {
    int status; // kExitFinished for --help and --version, kExitUsage otherwise
    std::string text;
};

// Parses the command line and reads the tokens and the list of files that it names. Prints nothing.
// The text of an error has no control characters.
std::variant<PutOptions, CheckOptions, EarlyExit> parsePutOptions(int argc,
                                                                  const char* const* argv);

} // namespace quenmoor
