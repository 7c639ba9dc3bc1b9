// Lets the main thread wait for the end of the work and for a signal at the same time.
#pragma once

namespace quenmoor {

// One at a time in a process: signal handlers are the process's own.
class Interrupts {
public:
    // Takes SIGINT, SIGTERM and SIGHUP over. A second one of the same kind kills at once.
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    // Main thread. Blocks until wake() was called or a signal came. Returns the signal's number,
    // 0 for a wake().
    [[nodiscard]] int wait();

    // Any thread, any number of times.
    void wake();

private:
    int readEnd_ = -1;
    int writeEnd_ = -1;
};

} // namespace quenmoor
