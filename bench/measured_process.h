// A program run for what it costs: time and processor seconds.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

struct ProcessCost {
    int status = 0;     // 128 plus the number for a program that a signal ended
    double wall = 0;    // seconds from before it was started until it had ended
    double cpu = 0;     // seconds of user and system time, of all its threads
    std::string output; // all that came on standard output and was not taken before
};

// Used by one thread. Standard error goes to `errorFile`, standard input is empty.
class MeasuredProcess {
public:
    // Starts `arguments`, the program's path first, with `environment` ("NAME=VALUE") added to
    // our own. Throws std::runtime_error when it cannot be started.
    explicit MeasuredProcess(std::vector<std::string> arguments,
                             const std::vector<std::string>& environment = {},
                             const std::string& errorFile = "/dev/null");

    // Kills what still runs.
    ~MeasuredProcess();
    MeasuredProcess(const MeasuredProcess&) = delete;
    MeasuredProcess& operator=(const MeasuredProcess&) = delete;

    // The next line on standard output, without its end; nothing when none came in time.
    [[nodiscard]] std::optional<std::string> readLine(std::chrono::milliseconds limit);

    void signal(int number) const;
    pid_t id() const { return process_; }

    // Waits for the end; after `limit` the program is killed, and its status tells.
    [[nodiscard]] ProcessCost finish(std::chrono::milliseconds limit);

private:
    bool readMore(std::chrono::milliseconds limit);

    pid_t process_ = -1; // -1 once it has ended
    int pipe_ = -1;
    std::string pending_;
    std::chrono::steady_clock::time_point started_;
};

} // namespace quenmoor
