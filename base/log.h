// The two diagnostic channels: the system log for plain sentences, and an output channel for the
// low-level lines of the link and the sender.
//
// Neither has levels. Lines may hold bytes that came from the network or from file names, so a
// sink decides what of them reaches a screen.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace quenmoor {

// Where the lines go. Called from any thread, also from several at once.
class LogSink {
public:
    virtual ~LogSink() = default;

    // One sentence, without its line feed. It may hold line feeds of its own.
    virtual void systemLine(std::string_view line) = 0;

    // One line of raw bytes, without its line feed.
    virtual void outputLine(std::string_view line) = 0;
};

// Sends all further lines to `sink`, or, with nullptr, to the sink that stands at the start: the
// system log with a copy on standard error, and standard output, flushed after every line. Not
// owned; it must outlive every thread that logs. Returns the sink that stood before.
LogSink* setLogSink(LogSink* sink);

void writeSystemLine(std::string_view line);

// Writes to the system log: logSystem("Page title: {}", title).
template <typename... Args>
void logSystem(fmt::format_string<Args...> format, Args&&... args)
{
    writeSystemLine(fmt::format(format, std::forward<Args>(args)...));
}

// Writes one line to the output channel.
void logOutput(std::string_view line);

// `line` with its control characters visible, but for the tab and the line feed, which documents
// hold: what the network sends must not steer a terminal. See escapeControls().
std::string printableText(std::string_view line);

} // namespace quenmoor
