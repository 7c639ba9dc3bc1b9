// Turns the signals that end a program into bytes of a pipe, which a thread can wait for.
//
// A second signal of the same kind finds its default again: it kills at once.
#pragma once

#include <span>

namespace quenmoor {

// One at a time in a process: signal handlers are the process's own.
class SignalPipe {
public:
    // Takes the signals of these `numbers` over. Without a pipe to be had they keep their default:
    // they kill.
    explicit SignalPipe(std::span<const int> numbers);

    // Gives them back to their default.
    ~SignalPipe();
    SignalPipe(const SignalPipe&) = delete;
    SignalPipe& operator=(const SignalPipe&) = delete;

    // For polling; -1 without a pipe.
    int readEnd() const { return readEnd_; }

    // Blocks until a byte is there. The signal's number, or 0 for a wake() and without a pipe. One
    // thread.
    [[nodiscard]] int read() const;

    // Any thread, any number of times.
    void wake() const;

private:
    const std::span<const int> numbers_;
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

} // namespace quenmoor
