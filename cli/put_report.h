// The interface of the reports of quenmoor-put, and the sentences that they share. A report turns
// what happens into JSON, plain lines or a display on the terminal.
#pragma once

#include "cli/sources.h"
#include "engine/attempt_event.h"

#include <string>

namespace quenmoor {

// How far the run is, over all files that were queued and can still finish.
struct RunProgress {
    std::size_t file = 0; // the current one, counted from 1
    std::size_t files = 0;
    std::int64_t bytes = 0;                       // on the server, or accepted by the link
    std::int64_t total = 0;                       // bytes
    std::optional<std::chrono::seconds> timeLeft; // at the average rate of the current file
};

// Called from the main thread, the upload thread and the monitor thread, one call at a time.
// File names are bytes: a report makes them displayable.
class PutReport {
public:
    virtual ~PutReport() = default;

    virtual void queued(const Source& source) = 0;

    // `why` as whyUnreadable() returns it.
    virtual void unreadable(const Source& source, const std::string& why) = 0;

    // `source` is in the state after `event`.
    virtual void attemptChanged(const Source& source, const AttemptEvent& event,
                                const RunProgress& run) = 0;

    // The question about an existing copy was answered; `text` has both.
    virtual void answered(const Source& source, const std::string& text) = 0;

    // The last call.
    virtual void summary(const RunOutcome& outcome) = 0;

    // A question is about to be written to the same terminal: the cursor has to be at the start of
    // an empty line.
    virtual void prepareQuestion() {}
};

// Of the whole file, all attempts and the waits between them included. MiB/s.
double averageRate(const AttemptEvent& finished);

// "finished, 1.2 GB in 10.1 s, 121.7 MB/s", with "(0.8 GB sent)" after a size that differs from
// what was sent, and with a warning if the file changed; "attempt 2 failed (rendezvous): ...";
// "gave up after 10 attempts (rendezvous): ..."; "cancelled: ...". For other events statusText().
std::string eventText(const AttemptEvent& event);

// As above, for the event that ends `source` too: "skipped: ...".
std::string eventText(const Source& source, const AttemptEvent& event);

std::string unreadableText(const std::string& why);

// "2 finished, 1 cancelled; 1.2 GB sent, 0.4 GB already on the server"
std::string summaryText(const RunOutcome& outcome);

// "3 of 12, 40.1 of 96.0 GB, 12 min left"; of a single file only the time left. May be empty.
std::string progressText(const RunProgress& run);

// "1.2 GB"; 1 MB is 1048576 bytes here, as in the status texts.
std::string formatSize(std::int64_t bytes);

} // namespace quenmoor
