// One run of quenmoor-put, from the parsed command line to the exit status.
#pragma once

#include "cli/put_options.h"
#include "engine/clock.h"
#include "protocol/transfer_link.h"

#include <functional>

namespace quenmoor {

// Called with the exit status of the process when a signal has arrived, before anything else. It
// may limit the time that the rest of the run takes, which a blocked standard output can delay.
using OnInterrupt = std::function<void(int status)>;

// Main thread, one call at a time in a process. Blocks until every file has ended, one was given
// up, or a signal arrived; then ends `clock` and returns the exit status. If the upload thread is
// still blocked in `link` half a second after a signal, or five seconds after the last file, exits
// the process instead of returning.
int runPut(const PutOptions& options, Clock& clock, TransferLink& link,
           const OnInterrupt& onInterrupt);

} // namespace quenmoor
