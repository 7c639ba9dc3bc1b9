// The reports for people: a display on a terminal, plain lines for a log or a pipe, errors only.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

// One line per file, rewritten in place while the file is being sent.
class TerminalReport : public PutReport {
public:
    // `out` is a terminal; not owned.
    explicit TerminalReport(std::FILE* out) : out_(out) {}

    void queued(const Source& /*source*/) override {} // displayed when its first attempt starts
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event) override;
    void answered(const Source& source, const std::string& text) override;
    void summary(const RunOutcome& outcome) override;
    void prepareQuestion() override;

private:
    // Draws `text` over the line in place.
    void redraw(const std::string& text);
    // Replaces the line in place by `text` and moves to the next line.
    void writeLine(const std::string& text);

    std::FILE* const out_;
    bool lineInPlace_ = false; // a line is displayed that is going to be rewritten
};

// The line of a file that is being sent, at most `columns` wide: its name, then bar, percentage
// and rate, or what it waits for.
std::string progressLine(const Source& source, const AttemptEvent& event, std::size_t columns);

// UTF-8 `text` in at most `columns` columns, an ellipsis in place of its middle if it is longer.
// Counts one column for each code point.
std::string elideMiddle(const std::string& text, std::size_t columns);

// A line for each change, but only one for each tenth of a file and one for each wait.
class PlainReport : public PutReport {
public:
    // `out` is not owned.
    explicit PlainReport(std::FILE* out) : out_(out) {}

    void queued(const Source& source) override;
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event) override;
    void answered(const Source& source, const std::string& text) override;
    void summary(const RunOutcome& outcome) override;

private:
    // Returns true if a line about `event` would repeat the previous one. Remembers the event.
    bool skipAndRemember(const AttemptEvent& event, std::int32_t percent);
    void writeLine(const std::string& text);

    std::FILE* const out_;
    AttemptEventKind previous_{};
    std::int32_t nextPercent_ = 0; // the next progress that gets a line
};

// Writes nothing but failed, changed and cancelled files.
class QuietReport : public PutReport {
public:
    // `out` is not owned.
    explicit QuietReport(std::FILE* out) : out_(out) {}

    void queued(const Source& /*source*/) override {}
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event) override;
    void answered(const Source& /*source*/, const std::string& /*text*/) override {}
    void summary(const RunOutcome& /*outcome*/) override {}

private:
    void writeLine(const Source& source, const std::string& text);

    std::FILE* const out_;
};

} // namespace quenmoor
