// Ends the process with a message when a library fails in a way that no caller can handle: an
// uncaught exception, or a signal such as SIGSEGV.
//
// No destructor runs and no core file is written. Programs that are built with a sanitizer leave
// the signals to it.
#pragma once

#include <string_view>

namespace quenmoor {

// EX_SOFTWARE of sysexits.h.
inline constexpr int kFatalErrorStatus = 70;

// Main thread, before any other starts. From then on a fatal error writes a message that begins
// with `program` to standard error, an exception also to the system log, and ends the process with
// kFatalErrorStatus. `program` is not copied.
void handleFatalErrors(const char* program);

// Sets the name of the file that the message reports as unfinished; an empty one reports none. Any
// thread.
void setUnfinishedUpload(std::string_view name);

} // namespace quenmoor
