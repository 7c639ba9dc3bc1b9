// A program of ours as a process of its own, with what it says at hand.
#pragma once

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace quenmoor {

// The test's thread only.
class Process {
public:
    enum class Screen { Pipe, Terminal };

    // Starts `arguments`, the program's path first. With a terminal, standard input and output are
    // one; standard error joins them. With a pipe, standard input is empty and standard error is
    // the test's own.
    explicit Process(std::vector<std::string> arguments, Screen screen = Screen::Pipe);

    // Kills what still runs.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // Waits until `text` stands in what the program has said. False after `limit`.
    [[nodiscard]] bool waitFor(const std::string& text,
                               std::chrono::milliseconds limit = std::chrono::seconds(30));

    // Waits for the end. 128 plus the number for a program that a signal killed; nothing after
    // `limit`.
    [[nodiscard]] std::optional<int>
    exitStatus(std::chrono::milliseconds limit = std::chrono::seconds(30));

    void signal(int number) const { kill(process_, number); }
    void type(const std::string& text) const;
    std::string output() const;

private:
    void readAll();

    pid_t process_ = -1;
    int screen_ = -1; // our end
    std::optional<int> status_;
    std::thread reader_;

    mutable std::mutex mutex_;
    std::condition_variable said_;
    std::string output_;  // guarded by mutex_
    bool closed_ = false; // guarded by mutex_
};

} // namespace quenmoor
