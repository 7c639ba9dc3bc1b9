// What happens to an upload, as values. Front ends derive from them whatever they show beyond the
// status table: JSON, tool tips, notifications.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace quenmoor {

// How far an attempt has come; a failed one stays at the step that failed.
enum class AttemptStep : std::uint8_t {
    Idle,
    Announce,
    Rendezvous,
    Response,
    Refused, // the server's response turned the upload down
    Question,
    Confirm,
    Send,
    Drain,
    Finish,
};

enum class AttemptEventKind : std::uint8_t {
    Started,   // an attempt begins
    Progress,  // one sample of the transfer
    Failed,    // the attempt failed at `step` for `reason`
    Waiting,   // `secondsLeft` until the next attempt
    Finished,  // the server confirmed the file
    Cancelled, // the server's copy was left alone
    GaveUp,    // the tenth failure in a row; `step` and `reason` are those of the last attempt
};

struct AttemptEvent {
    AttemptEventKind kind{};
    std::size_t row = 0;      // of the status table
    std::int32_t attempt = 0; // of this file, counted from 1
    AttemptStep step{};
    std::int64_t bytes = 0; // position in the file, resume offset included
    std::int64_t total = 0; // size of the file
    double rate = 0;        // MiB/s in the latest sample
    std::chrono::seconds secondsLeft{0};
    std::string reason; // in words, for a person
};

} // namespace quenmoor
