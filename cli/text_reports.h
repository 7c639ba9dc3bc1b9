// The reports for a log, a pipe or a terminal without cursor control: plain lines, and errors only.
#pragma once

#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

// A line for each change, but only one for each wait. While a file is sent, a line for each tenth
// of it, or with Samples::All a line about all files for every 30 samples.
class PlainReport : public PutReport {
public:
    enum class Samples : std::uint8_t { Tenths, All };

    // `out` is not owned.
    explicit PlainReport(std::FILE* out, Samples samples = Samples::Tenths)
        : out_(out), samples_(samples)
    {
    }

    void queued(const Source& source) override;
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event,
                        const RunProgress& run) override;
    void answered(const Source& source, const std::string& text) override;
    void summary(const RunOutcome& outcome) override;

private:
    // Returns true if a line about `event` would repeat the previous one. Remembers the event.
    bool skipAndRemember(const AttemptEvent& event, std::int32_t percent);
    bool skipSample(std::int32_t percent);
    void writeLine(const std::string& text);

    std::FILE* const out_;
    const Samples samples_;
    AttemptEventKind previous_{};
    std::int32_t nextPercent_ = 0; // the next progress that gets a line
    int samplesWithoutLine_ = 0;
};

// Writes nothing but failed, changed and cancelled files.
class QuietReport : public PutReport {
public:
    // `out` is not owned.
    explicit QuietReport(std::FILE* out) : out_(out) {}

    void queued(const Source& /*source*/) override {}
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event,
                        const RunProgress& run) override;
    void answered(const Source& /*source*/, const std::string& /*text*/) override {}
    void summary(const RunOutcome& /*outcome*/) override {}

private:
    void writeLine(const Source& source, const std::string& text);

    std::FILE* const out_;
};

} // namespace quenmoor
