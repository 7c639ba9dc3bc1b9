// What happens to an upload, as values, and the text and percentage that its row shows then.
//
// The engine reports every change of an upload as one AttemptEvent. Front ends derive from it
// whatever they show beyond the status table; none of them compares display texts.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quenmoor {

inline constexpr double kBytesPerMebibyte = 1048576;

// The part of an attempt that is running, or that failed.
enum class AttemptStep : std::uint8_t {
    Announce,   // connect and send the request
    Rendezvous, // connect the rendezvous socket
    Response,   // receive the server's response
    Refused,    // the response refuses the upload
    Confirm,    // send the decision about an existing copy
    Send,       // send the file
    Drain,      // wait until the server has acknowledged every packet
    Finish,     // receive the size that the server holds
    Open,       // only failed: the file is gone, see RetryPolicy::giveUpLostSource
};

enum class AttemptEventKind : std::uint8_t {
    Started,     // an attempt begins
    StepChanged, // the attempt has reached `step`; the row keeps its text and percentage
    Progress,    // a sample, once a second while the file is sent
    Failed,      // the attempt failed at `step` because of `reason`
    Waiting,     // `secondsLeft` until the next attempt; once a second, after Failed
    Finished,    // the server holds the file
    Cancelled,   // the copy on the server was left unchanged
    GaveUp,      // after the Failed of the attempt that is final; the last event of the file
};

struct AttemptEvent {
    AttemptEventKind kind{};
    std::size_t row = 0;      // of the status table
    std::int32_t attempt = 0; // of this file, counted from 1
    // Counted from 1 and restarted by an attempt that sent bytes. If the attempt with the number
    // `attemptLimit` fails, the file is given up.
    std::size_t attemptInRow = 0;
    std::size_t attemptLimit = 0;
    AttemptStep step{};                  // the current one, or the one that failed
    std::int64_t bytes = 0;              // position in the file, resume offset included
    std::int64_t total = 0;              // size of the file in bytes
    std::int64_t sentBytes = 0;          // accepted by the link for this file, in all its attempts
    std::chrono::nanoseconds elapsed{0}; // since the first attempt of this file began
    double rate = 0;                     // of Progress: MiB/s since the previous sample
    bool firstSample = false;            // of Progress: `rate` is close to 0, whatever was sent
    double averageRate = 0;              // of Progress: see ProgressSample; 0 while it is unknown
    std::chrono::seconds secondsLeft{0}; // of Waiting
    // True if the size or the modification time of the file differs from when it was queued, or if
    // the file is gone.
    bool sourceChanged = false;
    bool sourceLost = false; // of Failed and GaveUp: see RetryPolicy::giveUpLostSource
    std::string reason = {}; // of Failed and GaveUp: why, in words, without a final full stop
};

// The time until the file is sent at the average rate, rounded up to seconds. Nothing for other
// events than Progress, and while the average is unknown or 0.
std::optional<std::chrono::seconds> timeLeft(const AttemptEvent& event);

// One lower-case word: "announce", "rendezvous", ...
std::string_view stepName(AttemptStep step);

// What an attempt does at `step`: "connecting", "sending" or "waiting for the server".
std::string_view phaseName(AttemptStep step);

// The text of the row after `event`: "Connecting", "Retrying in 5s", ... Empty: the row keeps the
// one it has.
std::string statusText(const AttemptEvent& event);

// The percentage of the row after `event`, 0 to 100. Negative: the row keeps the one it has.
std::int32_t statusPercent(const AttemptEvent& event);

// `bytes` of `total` in per cent, rounded to the nearest integer, ties to even, limited to 0 to
// 100. A `total` of 0 gives 100.
std::int32_t percentSent(std::int64_t bytes, std::int64_t total);

} // namespace quenmoor
