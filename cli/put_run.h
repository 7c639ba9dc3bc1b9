// One run of quenmoor-put, from the checked command line to the exit status.
#pragma once

#include "cli/put_options.h"

namespace quenmoor {

// Main thread, once in a process. Blocks until every file ended, one was given up, or a signal
// came; after a signal it returns or leaves the process within a second.
int runPut(const PutOptions& options);

} // namespace quenmoor
