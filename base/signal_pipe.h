// Writes the number of a received signal into a pipe, so that a thread can wait for it.
//
// A signal that was ignored when the program started stays ignored. The default action of the
// others returns after their first occurrence: the second one kills the process.
#pragma once

#include <csignal>
#include <span>
#include <utility>
#include <vector>

namespace quenmoor {

// At most one exists in a process at a time, because signal handlers belong to the process.
class SignalPipe {
public:
    // Handles the signals of `numbers` that are not ignored. If no pipe can be created, the signals
    // keep their action.
    explicit SignalPipe(std::span<const int> numbers);

    // Restores the actions that the signals had before.
    ~SignalPipe();
    SignalPipe(const SignalPipe&) = delete;
    SignalPipe& operator=(const SignalPipe&) = delete;

    // The descriptor to poll; -1 without a pipe.
    int readEnd() const { return readEnd_; }

    // The errno that prevented the pipe; 0 with a pipe.
    int error() const { return error_; }

    // Blocks until a signal or wake(). Returns the signal's number, or 0 after wake() and without a
    // pipe. Used by one thread.
    [[nodiscard]] int read() const;

    // Makes one read() return 0. Any thread.
    void wake() const;

private:
    std::vector<std::pair<int, struct sigaction>> previous_; // the actions of the handled signals
    int error_ = 0;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

} // namespace quenmoor
