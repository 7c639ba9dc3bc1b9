#include "bench/measured_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace quenmoor {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kPoll{1};

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> list;
    list.reserve(texts.size() + 1);
    for (std::string& text : texts)
        list.push_back(text.data());
    list.push_back(nullptr);
    return list;
}

milliseconds leftUntil(steady_clock::time_point deadline)
{
    return std::max(milliseconds(0), duration_cast<milliseconds>(deadline - steady_clock::now()));
}

} // namespace

MeasuredProcess::MeasuredProcess(std::vector<std::string> arguments,
                                 const std::vector<std::string>& environment,
                                 const std::string& errorFile)
    : started_(steady_clock::now())
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    pipe_ = ends[0];
    // Ours come first, so that they win over what we were given.
    std::vector<std::string> variables = environment;
    for (char** variable = environ; *variable != nullptr; ++variable)
        variables.emplace_back(*variable);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
    std::vector<char*> argv = pointers(arguments);
    std::vector<char*> envp = pointers(variables);
    const int failed = posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (failed != 0) {
        close(pipe_);
        throw std::runtime_error("cannot start " + arguments[0]);
    }
}

MeasuredProcess::~MeasuredProcess()
{
    if (process_ >= 0)
        (void)finish(milliseconds(0));
    close(pipe_);
}

bool MeasuredProcess::readMore(milliseconds limit)
{
    pollfd wanted{pipe_, POLLIN, 0};
    if (poll(&wanted, 1, static_cast<int>(limit.count())) <= 0)
        return false;
    std::array<char, 4096> piece{};
    const ssize_t got = read(pipe_, piece.data(), piece.size());
    if (got <= 0)
        return false;
    pending_.append(piece.data(), static_cast<std::size_t>(got));
    return true;
}

std::optional<std::string> MeasuredProcess::readLine(milliseconds limit)
{
    const auto deadline = steady_clock::now() + limit;
    std::size_t end = 0;
    while ((end = pending_.find('\n')) == std::string::npos) {
        if (!readMore(leftUntil(deadline)))
            return std::nullopt;
    }
    std::string line = pending_.substr(0, end);
    pending_.erase(0, end + 1);
    return line;
}

void MeasuredProcess::signal(int number) const
{
    kill(process_, number);
}

ProcessCost MeasuredProcess::finish(milliseconds limit)
{
    const auto deadline = steady_clock::now() + limit;
    ProcessCost cost;
    bool open = true;
    // The program closes its output when it ends; reading on keeps it from waiting for us.
    while (open && steady_clock::now() < deadline) {
        pollfd wanted{pipe_, POLLIN, 0};
        if (poll(&wanted, 1, static_cast<int>(leftUntil(deadline).count())) > 0)
            open = readMore(milliseconds(0));
    }
    int status = 0;
    rusage used{};
    while (wait4(process_, &status, WNOHANG, &used) == 0) {
        if (steady_clock::now() >= deadline)
            kill(process_, SIGKILL);
        std::this_thread::sleep_for(kPoll);
    }
    cost.wall = std::chrono::duration<double>(steady_clock::now() - started_).count();
    process_ = -1;
    cost.cpu = seconds(used.ru_utime) + seconds(used.ru_stime);
    cost.status = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    cost.output = std::move(pending_);
    return cost;
}

} // namespace quenmoor
