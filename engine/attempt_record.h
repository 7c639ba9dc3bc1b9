// Where the attempt under way stands, for whoever shows more of it than a row of the table can.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace quenmoor {

// The steps of an attempt, in their order. After a failure, the step that failed.
enum class AttemptStep : std::uint8_t {
    Idle,
    Announce,   // connect, send the request
    Rendezvous, // meet the server
    Response,   // wait for its answer
    Refused,    // the answer was a refusal
    Question,   // ask the user about the server's copy
    Confirm,    // tell the server the decision
    Send,       // stream the file
    Drain,      // wait until the server has taken all of it
    Finish,     // wait for the size that the server now holds
};

std::string_view stepName(AttemptStep step);

// Written by the upload thread, `bytesSent` and `rate` by the monitor. Any thread reads: each value
// is right by itself, two of them may be a sample apart.
struct AttemptRecord {
    std::atomic<AttemptStep> step{AttemptStep::Idle};
    std::atomic<std::int64_t> bytesSent{0};  // position in the file, as of the last sample
    std::atomic<std::int64_t> totalBytes{0}; // size of the file
    std::atomic<double> rate{0};             // MB/s (1048576 bytes) in the last sample
    std::atomic<std::int32_t> samples{0};    // in this attempt; the first one's rate is near 0
    std::atomic<std::int64_t> fileBytes{0};  // what the link took of this file, in all attempts
};

} // namespace quenmoor
