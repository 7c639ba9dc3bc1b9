// The display on a terminal: one line per file, rewritten in place while the file is being sent.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

class TerminalReport : public PutReport {
public:
    // `out` is a terminal; not owned.
    explicit TerminalReport(std::FILE* out) : out_(out) {}

    void queued(const Source& /*source*/) override {} // displayed when its first attempt starts
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event,
                        const RunProgress& run) override;
    void answered(const Source& source, const std::string& text) override;
    void summary(const RunOutcome& outcome) override;
    void prepareQuestion() override;

private:
    // Draws `text`, which fits into `columns`, over the line in place.
    void redraw(const std::string& text, std::size_t columns);
    // Replaces the line in place by `text` and moves to the next line.
    void writeLine(const std::string& text);
    // Moves to the beginning of the line in place.
    std::string toLineBegin(std::size_t columns) const;
    void write(const std::string& text);

    std::FILE* const out_;
    std::string inPlace_; // the displayed line that is going to be rewritten; empty for none
};

// The line of a file that is being sent, narrower than `columns` by one: its name, then bar,
// percentage, rate and the progress of the run as far as they fit, or what it waits for.
std::string progressLine(const Source& source, const AttemptEvent& event, const RunProgress& run,
                         std::size_t columns);

} // namespace quenmoor
