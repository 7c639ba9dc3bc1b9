// One JSON object per line, for programs. docs/json.md lists the members of each object.
#pragma once

#include "cli/check_command.h"
#include "cli/put_report.h"

#include <cstdio>

namespace quenmoor {

// Writes the result of "quenmoor-put check" as one object.
void writeCheck(std::FILE* out, const CheckOptions& options, const CheckResult& result);

// Writes and flushes each line. Bytes of a name that are not UTF-8 become U+FFFD.
class JsonReport : public PutReport {
public:
    // `out` is not owned.
    explicit JsonReport(std::FILE* out);

    void queued(const Source& source) override;
    void unreadable(const Source& source, const std::string& why) override;
    void attemptChanged(const Source& source, const AttemptEvent& event,
                        const RunProgress& run) override;
    void answered(const Source& source, const std::string& text) override;
    void summary(const RunOutcome& outcome) override;

private:
    std::FILE* const out_;
};

} // namespace quenmoor
