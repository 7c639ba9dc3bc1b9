// The two diagnostic channels: the system log for sentences, and the output channel for the
// low-level lines of the transfer link and the sender. There are no severity levels.
//
// A line may contain bytes from the network or from file names. The log sink makes them printable
// where a terminal shows them.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace quenmoor {

// The destination of all lines. Its functions are called by any thread, also concurrently.
class LogSink {
public:
    virtual ~LogSink() = default;

    // `line` is one entry without its final line feed. It may contain line feeds.
    virtual void systemLine(std::string_view line) = 0;

    // `line` is one line of raw bytes without its final line feed.
    virtual void outputLine(std::string_view line) = 0;
};

// Sends all later lines to `sink`, which is not owned and must outlive every thread that logs.
// nullptr restores the default sink: syslog with a copy on standard error, and standard output,
// flushed after every line. Returns the previous sink, nullptr for the default. Any thread.
LogSink* setLogSink(LogSink* sink);

// Any thread.
void writeSystemLine(std::string_view line);

// Formats a line and writes it to the system log: logSystem("Page title: {}", title). Any thread.
template <typename... Args>
void logSystem(fmt::format_string<Args...> format, Args&&... args)
{
    writeSystemLine(fmt::format(format, std::forward<Args>(args)...));
}

// Writes one line to the output channel. Any thread.
void logOutput(std::string_view line);

} // namespace quenmoor
