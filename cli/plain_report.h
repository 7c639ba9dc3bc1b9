// Plain lines, for a log or a pipe: what a person reads afterwards, without the ticks in between.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

class PlainReport : public PutReport {
public:
    // `out` is not owned.
    explicit PlainReport(std::FILE* out) : out_(out) {}

    void report(const PutEvent& event) override;

private:
    // True for a text that says no more than the line before: another second of the same wait,
    // less than a tenth of the file further.
    bool isTick(const PutEvent& event);
    void line(const std::string& text);

    std::FILE* const out_;
    bool waiting_ = false;
    std::int32_t nextTenth_ = 0;
};

// Errors only, on standard error.
class QuietReport : public PutReport {
public:
    void report(const PutEvent& event) override;
};

} // namespace quenmoor
