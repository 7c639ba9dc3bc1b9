// One run of quenmoor-put, from the checked command line to the exit status.
#pragma once

#include "cli/put_options.h"
#include "engine/clock.h"
#include "protocol/transfer_link.h"

#include <functional>

namespace quenmoor {

// Called with the status of the process when a signal came, before anything else is tried: a last
// resort for a run that is held up, by a reader that does not read for one.
using OnInterrupt = std::function<void(int status)>;

// Main thread, one at a time in a process. Blocks until every file ended, one was given up, or a
// signal came; then it ends `clock` and returns the status of the process. When the upload thread
// is still inside `link` half a second after a signal, the process is left from here.
int runPut(const PutOptions& options, Clock& clock, TransferLink& link,
           const OnInterrupt& onInterrupt);

} // namespace quenmoor
