// Writes the number of a received signal into a pipe, so that a thread can wait for it.
//
// A signal's default action returns after its first occurrence: the second one kills the process.
#pragma once

#include <span>

namespace quenmoor {

// At most one exists in a process at a time, because signal handlers belong to the process.
class SignalPipe {
public:
    // Handles the signals in `numbers`, which must outlive this object. If no pipe can be created,
    // the signals keep their default action.
    explicit SignalPipe(std::span<const int> numbers);

    // Restores the default action of the signals.
    ~SignalPipe();
    SignalPipe(const SignalPipe&) = delete;
    SignalPipe& operator=(const SignalPipe&) = delete;

    // The descriptor to poll; -1 without a pipe.
    int readEnd() const { return readEnd_; }

    // Blocks until a signal or wake(). Returns the signal's number, or 0 after wake() and without a
    // pipe. Used by one thread.
    [[nodiscard]] int read() const;

    // Makes one read() return 0. Any thread.
    void wake() const;

private:
    const std::span<const int> numbers_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

} // namespace quenmoor
