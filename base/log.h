// The two diagnostic channels: the system log for sentences, and the output channel for the
// low-level lines of the transfer link and the sender. There are no severity levels.
//
// Lines contain bytes from the network and from file names. They are made printable here, for every
// sink: no line changes the state of a terminal, and none looks like two.
#pragma once

#include <fmt/format.h>

#include <chrono>
#include <string>
#include <string_view>

namespace quenmoor {

// The destination of all lines. Its functions are called by any thread, also concurrently.
class LogSink {
public:
    virtual ~LogSink() = default;

    // `line` is a printableLine().
    virtual void systemLine(std::string_view line) = 0;

    // `line` is a printableText(), or the bytes of logOutputBytes(), without the final line feed.
    virtual void outputLine(std::string_view line) = 0;
};

// Sends all later lines to `sink`, which is not owned and must outlive every thread that logs.
// nullptr restores the default sink: syslog with a copy on standard error, and standard output,
// both with writeDiagnostic(). Returns the previous sink, nullptr for the default. Any thread.
LogSink* setLogSink(LogSink* sink);

// Writes `text` to `descriptor`, which is 1 or 2. If the reader of a pipe or terminal has stopped,
// drops what has no room within `limit`, and later texts at once until there is room again. Errors
// are ignored. Any thread.
void writeDiagnostic(int descriptor, std::string_view text,
                     std::chrono::milliseconds limit = std::chrono::seconds(1));

// Any thread.
void writeSystemLine(std::string_view line);

// Formats a line and writes it to the system log: logSystem("Page title: {}", title). Any thread.
template <typename... Args>
void logSystem(fmt::format_string<Args...> format, Args&&... args)
{
    writeSystemLine(fmt::format(format, std::forward<Args>(args)...));
}

// Writes a text to the output channel; its line feeds and tabs remain. Any thread.
void logOutput(std::string_view text);

// Writes bytes of this program, e.g. a binary address, to the output channel unchanged. Any thread.
void logOutputBytes(std::string_view bytes);

} // namespace quenmoor
