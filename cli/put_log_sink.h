// Where the diagnostics of quenmoor-put go: never to standard output, which belongs to the
// reports.
#pragma once

#include "base/log.h"

namespace quenmoor {

// Any thread.
class PutLogSink : public LogSink {
public:
    // With `onStandardError`, both channels appear there too, not only in the system log.
    explicit PutLogSink(bool onStandardError);

    void systemLine(std::string_view line) override;
    void outputLine(std::string_view line) override { systemLine(line); }

private:
    const bool onStandardError_;
};

} // namespace quenmoor
