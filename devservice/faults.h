// What the service does wrong on command, so that a client can be tried against it.
//
// A fault changes what one attempt of a client meets. What is stored stays right under every fault.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quenmoor {

enum class FaultKind {
    RefuseRendezvous,  // takes the request and never meets the client
    NeverAnswer,       // meets the client and says nothing
    AnswerLate,        // value: milliseconds before the response
    GarbageResponse,   // words that are no document; nothing of the client is stored afterwards
    CutOffResponse,    // the first half of the response; nothing is stored afterwards
    DropAfter,         // value: bytes of this attempt before the link is closed
    StopReading,       // value: bytes of this attempt before the link is left open and unread
    SlowReading,       // value: bytes a second, at least 1
    GarbageClosing,    // words that are no document, in place of the closing one
    NoClosingDocument, // stores the file and says nothing
    SmallerFinalSize,  // one byte less than is held
    LargerFinalSize,   // one byte more than is held
};

struct Fault {
    FaultKind kind{};
    std::int64_t value = 0; // 0 for kinds that take none

    bool operator==(const Fault&) const = default;
};

using Faults = std::vector<Fault>;

// Reads "drop-after=1000000" or "never-answer". Nothing for an unknown name, for a value that is
// missing, superfluous, negative or no number, and for a rate of 0.
[[nodiscard]] std::optional<Fault> parseFault(std::string_view text);

// The names that parseFault() knows, each with what its value counts, for a usage message.
std::string faultNames();

// The fault of that kind, or nullptr.
const Fault* findFault(const Faults& faults, FaultKind kind);

} // namespace quenmoor
