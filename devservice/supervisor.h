// Runs the parts of the service in child processes and restarts those that a signal ends.
//
// A peer can end the process that runs the transport library: some handshakes make the library
// throw an exception in its own thread. The supervising process runs no library and one thread.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace quenmoor {

// How one start of a part differs from another.
struct PartStart {
    bool first = true;
    std::uint16_t port = 0; // reported by the first start; 0 before
    int readyPipe = -1;

    // Called by the part once it serves clients. `port` is the one to use after a restart.
    void ready(std::uint16_t port) const;
};

// Runs in a child process; returns the exit status after awaitTermination() or if the part cannot
// start.
using PartBody = std::function<int(const PartStart& start)>;

// Used by one thread, the only one of its process.
class Supervisor {
public:
    // Blocks SIGINT, SIGTERM, SIGCHLD and SIGALRM for this process and its children. Of the first
    // two, those that the process inherited as ignored have no effect.
    Supervisor();

    // Starts a part and waits until it is ready. Returns false if it cannot start; run() returns
    // its exit status then. The parts end with this process, however that ends (Linux).
    [[nodiscard]] bool start(std::string name, PartBody body);

    // Blocks until SIGINT, SIGTERM or the end of a part that no signal ended, then ends all parts.
    // A part that a signal ended is restarted: at once, or after up to five seconds if it
    // ran for less than ten. The parts are killed if they do not end within ten seconds, and at
    // once by a second signal. Returns the exit status: 0, or that of the first part that failed,
    // which is 1 for one that crashed while it stopped or was killed.
    [[nodiscard]] int run();

private:
    using Time = std::chrono::steady_clock::time_point;

    struct Part {
        std::string name;
        PartBody body;
        PartStart start;
        pid_t process = -1;
        int readyPipe = -1; // the reading end
        Time started;
        std::chrono::milliseconds delay{0}; // before the part runs
    };

    [[nodiscard]] bool spawn(Part& part);
    [[noreturn]] void runChild(const Part& part, pid_t parent, int readyPipe) const;
    void collectEnded();
    void onEnd(Part& part, int status);
    void fail(int status); // the first one determines the exit status
    void stopParts();

    sigset_t awaited_{}; // by run()
    std::vector<Part> parts_;
    int exitStatus_ = 0;
    bool ended_ = false;
};

// Blocks a part until the supervisor requests it to end.
void awaitTermination();

} // namespace quenmoor
