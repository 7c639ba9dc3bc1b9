#include "tests/end_to_end/process.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

extern char** environ;

namespace quenmoor {
namespace {

constexpr std::chrono::milliseconds kPoll{5};

// Our end first, the program's second.
std::array<int, 2> openScreen(Process::Screen screen)
{
    std::array<int, 2> ends{-1, -1};
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    const int failed = screen == Process::Screen::Terminal
                           ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size)
                           : pipe2(ends.data(), O_CLOEXEC);
    if (failed != 0)
        throw std::runtime_error("no pipe or terminal");
    fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    return ends;
}

} // namespace

Process::Process(std::vector<std::string> arguments, Screen screen)
{
    const std::array<int, 2> ends = openScreen(screen);
    screen_ = ends[0];
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (screen == Screen::Terminal) {
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    std::vector<char*> argv;
    for (std::string& argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    const int failed = posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failed != 0)
        throw std::runtime_error("cannot start " + arguments[0]);
    reader_ = std::thread(&Process::readAll, this);
}

Process::~Process()
{
    if (!exitStatus(std::chrono::milliseconds::zero())) {
        signal(SIGKILL);
        static_cast<void>(exitStatus());
    }
    reader_.join();
    close(screen_);
}

void Process::readAll()
{
    std::array<char, 4096> piece{};
    while (true) {
        const ssize_t got = read(screen_, piece.data(), piece.size());
        const std::lock_guard lock(mutex_);
        if (got <= 0)
            closed_ = true;
        else
            output_.append(piece.data(), static_cast<std::size_t>(got));
        said_.notify_all();
        if (closed_)
            return;
    }
}

bool Process::waitFor(const std::string& text, std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex_);
    const auto stands = [&] { return output_.find(text) != std::string::npos; };
    said_.wait_for(lock, limit, [&] { return stands() || closed_; });
    return stands();
}

std::optional<int> Process::exitStatus(std::chrono::milliseconds limit)
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!status_) {
        int status = 0;
        if (waitpid(process_, &status, WNOHANG) == process_)
            status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
        else if (std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
        else
            std::this_thread::sleep_for(kPoll);
    }
    return status_;
}

void Process::type(const std::string& text) const
{
    if (write(screen_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the terminal takes no input");
}

std::string Process::output() const
{
    const std::lock_guard lock(mutex_);
    return output_;
}

} // namespace quenmoor
