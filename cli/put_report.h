// What quenmoor-put tells the world, as data. The reports turn it into JSON, lines or a display.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace quenmoor {

enum class PutEventKind : std::uint8_t {
    Queued,
    Status,    // the row's own text changed
    Rate,      // one sample of a transfer
    Question,  // the server holds a copy; `message` has the question and its answer
    Finished,  // the server confirmed the file
    Failed,    // the file was given up, or cannot be read
    Cancelled, // the server's copy was left alone
    Summary,   // the last event
};

// A field without a value does not apply.
struct PutEvent {
    PutEventKind kind = PutEventKind::Summary;
    std::string file; // as given, byte for byte; empty in the summary
    std::optional<std::size_t> row;
    std::optional<std::string> status;   // the row's text
    std::optional<std::int32_t> percent; // 0 to 100
    std::optional<std::int64_t> bytes;   // position in the file; in the summary, bytes sent
    std::optional<std::int64_t> total;   // size of the file
    std::optional<double> mbps;          // MB/s (1048576 bytes); of the whole file when finished
    std::optional<std::int32_t> attempt; // counts from 1
    std::optional<std::string> step;     // see stepName(); "open" for a file that cannot be read
    std::optional<std::string> message;  // a sentence for people
};

// The upload thread, the monitor thread and the main thread, one call at a time.
class PutReport {
public:
    virtual ~PutReport() = default;

    virtual void report(const PutEvent& event) = 0;

    // The user is about to be asked on the same terminal: leave the cursor on a fresh line.
    virtual void makeRoom() {}
};

} // namespace quenmoor
