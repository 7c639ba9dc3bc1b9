// One JSON object a line, for programs.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

// The event as one line of JSON, without the line feed. Bytes that are not UTF-8 become U+FFFD.
std::string jsonLine(const PutEvent& event);

class JsonReport : public PutReport {
public:
    // `out` is not owned.
    explicit JsonReport(std::FILE* out) : out_(out) {}

    // Writes the line and flushes it.
    void report(const PutEvent& event) override;

private:
    std::FILE* const out_;
};

} // namespace quenmoor
