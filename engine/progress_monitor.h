// Reports a transfer once a second, on a thread of its own beside the sender.
#pragma once

#include <atomic>
#include <cstdint>
#include <stop_token>

namespace quenmoor {

class Clock;
class UploadEngine;

// Owned by the sender, shared with the monitor for one transfer.
struct ProgressMonitorState {
    // Set once at construction.
    UploadEngine& controller;
    Clock& clock;
    const std::int64_t totalBytes; // size of the file

    // The sender writes, the monitor reads. They feed the display only, so any order does.
    std::atomic<bool> running{true};
    std::atomic<std::int64_t> bytesSent; // position in the file, resume offset included

    // Ends the monitor's rest, so that a small file does not pay a second for it.
    std::stop_source transferEnd{};

    // Sender only. No further sample is taken.
    void stop()
    {
        running = false;
        transferEnd.request_stop();
    }
};

// The monitor thread's body. Returns when `state` has stopped, after a last report that clears
// the status bar; what came after the last whole second is not reported.
void progressMonitor(ProgressMonitorState& state);

// `bytes` of `total` in per cent, rounded to the nearest, ties to even, within 0 to 100. All of
// nothing is 100.
std::int32_t percentSent(std::int64_t bytes, std::int64_t total);

} // namespace quenmoor
