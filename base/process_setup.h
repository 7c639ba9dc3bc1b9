// What a program does first and last: descriptors and signals that it may have inherited from its
// caller, and an exit beside running threads.
#pragma once

namespace quenmoor {

// Main thread, before anything is opened. Opens /dev/null in place of each closed standard
// descriptor: a pipe or socket that got such a number would receive what the program prints. Also
// ignores SIGPIPE, so that a write to a closed pipe fails instead of ending the process.
void prepareProcess();

// True if the action of `signal` is to ignore it, as for a command that runs under nohup or in the
// background of a script. A program must not handle such a signal.
[[nodiscard]] bool isIgnored(int signal);

// Main thread, after its last object. Writes what standard output has buffered and ends the process
// without exit handlers and without destroying static objects. The threads of the transport library
// run until the process ends; exit() would free the tables of sockets that they use.
[[noreturn]] void exitBesideThreads(int status);

} // namespace quenmoor
