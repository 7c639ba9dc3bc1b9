// Log sinks that record or drop every line instead of printing it.
#pragma once

#include "base/log.h"

#include <mutex>
#include <vector>

namespace quenmoor {

// Receives every line while it exists.
class RecordingLog : public LogSink {
public:
    RecordingLog() : previous_(setLogSink(this)) {}
    ~RecordingLog() override { setLogSink(previous_); }

    void systemLine(std::string_view line) override { keep(system_, line); }
    void outputLine(std::string_view line) override { keep(output_, line); }

    std::vector<std::string> system() const { return copy(system_); }
    std::vector<std::string> output() const { return copy(output_); }

private:
    void keep(std::vector<std::string>& lines, std::string_view line)
    {
        const std::lock_guard lock(mutex_);
        lines.emplace_back(line);
    }
    std::vector<std::string> copy(const std::vector<std::string>& lines) const
    {
        const std::lock_guard lock(mutex_);
        return lines;
    }

    LogSink* const previous_;
    mutable std::mutex mutex_;
    std::vector<std::string> system_; // guarded by mutex_
    std::vector<std::string> output_; // guarded by mutex_
};

// Drops every line, for tests that log millions of them.
struct SilentLog : RecordingLog {
    void systemLine(std::string_view /*line*/) override {}
    void outputLine(std::string_view /*line*/) override {}
};

} // namespace quenmoor
