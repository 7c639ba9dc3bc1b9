// One line per file on a terminal, drawn anew in place while the file is under way.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

class TerminalReport : public PutReport {
public:
    // `out` is a terminal; not owned.
    explicit TerminalReport(std::FILE* out) : out_(out) {}

    void report(const PutEvent& event) override;
    void makeRoom() override;

private:
    void drawProgress(const PutEvent& event);
    void redraw(const std::string& text);
    // Replaces the line in place by `text` and goes on to the next one.
    void settle(const std::string& text);

    std::FILE* const out_;
    std::string status_; // the row's text, as last seen
    bool drawn_ = false; // a line stands that is to be drawn over
};

// The line for a file under way, at most `columns` wide: name, then what it waits for, or bar,
// per cent and rate.
std::string progressLine(const PutEvent& event, const std::string& status, std::size_t columns);

} // namespace quenmoor
