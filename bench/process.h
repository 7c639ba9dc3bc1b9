// A child process with its output, exit status and resource usage. The benchmarks and the
// end-to-end tests run the programs with it.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace quenmoor {

struct ProcessOptions {
    // A pseudo-terminal of 100 columns is standard input, output and error. Otherwise standard
    // output is a pipe and standard input is empty.
    bool terminal = false;

    // "NAME=VALUE"; replaces inherited variables of the same name.
    std::vector<std::string> environment = {};

    // Receives standard error if there is no terminal; empty: the caller's standard error.
    std::string errorFile = {};
};

// Used by one thread. A limit is the longest time that a call blocks.
class Process {
public:
    static constexpr std::chrono::seconds kDefaultLimit{30};

    // Starts `arguments`, of which the first is the path of the program. Throws
    // std::runtime_error if the system cannot start it.
    explicit Process(std::vector<std::string> arguments, const ProcessOptions& options = {});

    // Kills the process if it still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Waits until the output contains `text`. Returns false if the limit passes or the output
    // ends first.
    [[nodiscard]] bool waitFor(const std::string& text,
                               std::chrono::milliseconds limit = kDefaultLimit);

    // Waits for a whole line that contains `prefix`. Returns what follows `prefix` in it, or
    // nothing in the cases of waitFor.
    [[nodiscard]] std::optional<std::string>
    textAfter(const std::string& prefix, std::chrono::milliseconds limit = kDefaultLimit);

    // Waits for the end of the process and of its output. Returns 128 plus the signal's number if
    // a signal killed it, and nothing if it still runs when the limit passes.
    [[nodiscard]] std::optional<int> exitStatus(std::chrono::milliseconds limit = kDefaultLimit);

    // Seconds from the start to the end of the process. Requires an exitStatus.
    double wallSeconds() const { return wallSeconds_; }

    // Seconds of user and system time, all threads and awaited children. Requires an exitStatus.
    double cpuSeconds() const { return cpuSeconds_; }

    // Has no effect on a process that has ended.
    void signal(int number) const;

    // Writes to the terminal. Throws std::runtime_error if that fails.
    void type(const std::string& text) const;

    std::string output() const;
    pid_t id() const { return process_; }

private:
    void start(std::vector<std::string>& arguments, const ProcessOptions& options, int childEnd);
    void readOutput();
    void awaitEnd();

    // Set once at construction.
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    pid_t process_ = -1;
    int ourEnd_ = -1; // of the pipe or the terminal
    std::thread reader_;
    std::thread waiter_;

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::string output_;        // Guarded by mutex_.
    bool outputEnded_ = false;  // Guarded by mutex_.
    std::optional<int> status_; // Guarded by mutex_.

    // Written before status_ is set, constant afterwards.
    double wallSeconds_ = 0;
    double cpuSeconds_ = 0;
};

} // namespace quenmoor
