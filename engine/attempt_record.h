// Where the attempt under way stands, for whoever shows more of it than a row of the table can.
#pragma once

#include "engine/attempt_event.h"

#include <atomic>
#include <cstdint>
#include <string_view>

namespace quenmoor {

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
