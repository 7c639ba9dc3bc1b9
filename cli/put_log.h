// The diagnostics of quenmoor-put. They never go to standard output, which belongs to the report.
#pragma once

#include <cstdio>

namespace quenmoor {

// Main thread, before other threads start; later calls have no effect. Sends all later log lines to
// the system log, if requested to standard error, and to `logFile`, which may be null and stays
// open as long as the process.
void startLog(bool onStandardError, std::FILE* logFile);

} // namespace quenmoor
