// Faults that the service injects into an attempt, so that a client can be tested against them.
//
// No fault corrupts what is stored.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenmoor {

enum class FaultKind {
    RefuseRendezvous,  // accepts the request and does not connect to the rendezvous
    NeverAnswer,       // connects to the rendezvous and sends nothing
    AnswerLate,        // value: milliseconds before the response
    GarbageResponse,   // sends text that is not a document; nothing of the attempt is stored
    CutOffResponse,    // sends the first half of the response; nothing of the attempt is stored
    DropAfter,         // value: bytes of this attempt after which the link is closed
    StopReading,       // value: bytes of this attempt after which the link is no longer read
    SlowReading,       // value: bytes per second, at least 1
    GarbageClosing,    // sends text that is not a document in place of the closing document
    NoClosingDocument, // stores the file and sends no closing document
    SmallerFinalSize,  // confirms one byte less than is held
    LargerFinalSize,   // confirms one byte more than is held
};

struct Fault {
    FaultKind kind{};
    std::int64_t value = 0; // 0 for kinds without a value

    bool operator==(const Fault&) const = default;
};

using Faults = std::vector<Fault>;

// Parses "drop-after=1000000" or "never-answer". Returns nothing for an unknown name, for a value
// that is missing, superfluous, negative or not a number, and for a rate of 0.
[[nodiscard]] std::optional<Fault> parseFault(std::string_view text);

// Returns the names that parseFault() accepts, each with the unit of its value, for a help text.
std::string faultNames();

// Returns the fault of that kind, or nullptr.
const Fault* findFault(const Faults& faults, FaultKind kind);

} // namespace quenmoor
