#include "bench/process.h"

#include <fcntl.h>
#include <pty.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace quenmoor {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

// A helper process that outlives the program may keep the output open.
constexpr std::chrono::seconds kOutputLimit{1};

double seconds(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

// Our end first, the child's second. No other child inherits them.
std::array<int, 2> openEnds(bool terminal)
{
    std::array<int, 2> ends{-1, -1};
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    const int failed = terminal ? openpty(&ends[0], &ends[1], nullptr, nullptr, &size)
                                : pipe2(ends.data(), O_CLOEXEC);
    if (failed != 0)
        throw std::runtime_error("the system has no pipe or terminal left");
    for (const int end : ends)
        fcntl(end, F_SETFD, FD_CLOEXEC);
    return ends;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts)
{
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

Process::Process(std::vector<std::string> arguments, const ProcessOptions& options)
{
    const std::array<int, 2> ends = openEnds(options.terminal);
    ourEnd_ = ends[0];
    start(arguments, options, ends[1]);
    close(ends[1]);
    if (process_ < 0) {
        close(ourEnd_);
        throw std::runtime_error("cannot start " + arguments[0]);
    }
    reader_ = std::thread(&Process::readOutput, this);
    waiter_ = std::thread(&Process::awaitEnd, this);
}

void Process::start(std::vector<std::string>& arguments, const ProcessOptions& options,
                    int childEnd)
{
    // The first of two variables of one name holds.
    std::vector<std::string> variables = options.environment;
    for (char** variable = environ; *variable != nullptr; ++variable)
        variables.emplace_back(*variable);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childEnd, STDOUT_FILENO);
    if (options.terminal) {
        posix_spawn_file_actions_adddup2(&actions, childEnd, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, childEnd, STDERR_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        if (!options.errorFile.empty())
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, options.errorFile.c_str(),
                                             O_WRONLY | O_CREAT | O_TRUNC, 0600);
    }
    std::vector<char*> argv = pointersTo(arguments);
    std::vector<char*> envp = pointersTo(variables);
    if (posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), envp.data()) != 0)
        process_ = -1;
    posix_spawn_file_actions_destroy(&actions);
}

Process::~Process()
{
    signal(SIGKILL);
    waiter_.join();
    reader_.join();
    close(ourEnd_);
}

void Process::readOutput()
{
    std::array<char, 4096> block{};
    for (ssize_t size = 1; size > 0;) {
        size = read(ourEnd_, block.data(), block.size());
        const std::lock_guard lock(mutex_);
        if (size > 0)
            output_.append(block.data(), static_cast<std::size_t>(size));
        outputEnded_ = size <= 0;
        changed_.notify_all();
    }
}

void Process::awaitEnd()
{
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT);
    // Under the lock, so that signal() never reaches another process with the same number.
    const std::lock_guard lock(mutex_);
    int status = 0;
    rusage used{};
    wait4(process_, &status, 0, &used);
    wallSeconds_ = std::chrono::duration<double>(steady_clock::now() - started_).count();
    cpuSeconds_ = seconds(used.ru_utime) + seconds(used.ru_stime);
    status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    changed_.notify_all();
}

bool Process::waitFor(const std::string& text, milliseconds limit)
{
    std::unique_lock lock(mutex_);
    const auto found = [&] { return output_.find(text) != std::string::npos; };
    changed_.wait_for(lock, limit, [&] { return found() || outputEnded_; });
    return found();
}

std::optional<std::string> Process::textAfter(const std::string& prefix, milliseconds limit)
{
    std::unique_lock lock(mutex_);
    std::size_t begin = 0;
    std::size_t end = std::string::npos;
    const auto found = [&] {
        begin = output_.find(prefix);
        end = begin == std::string::npos ? begin : output_.find_first_of("\r\n", begin);
        return end != std::string::npos;
    };
    changed_.wait_for(lock, limit, [&] { return found() || outputEnded_; });
    if (!found())
        return std::nullopt;
    begin += prefix.size();
    return output_.substr(begin, end - begin);
}

std::optional<int> Process::exitStatus(milliseconds limit)
{
    std::unique_lock lock(mutex_);
    if (changed_.wait_for(lock, limit, [this] { return status_.has_value(); }))
        changed_.wait_for(lock, kOutputLimit, [this] { return outputEnded_; });
    return status_;
}

void Process::signal(int number) const
{
    const std::lock_guard lock(mutex_);
    if (!status_)
        kill(process_, number);
}

void Process::type(const std::string& text) const
{
    if (write(ourEnd_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        throw std::runtime_error("the terminal accepts no input");
}

std::string Process::output() const
{
    const std::lock_guard lock(mutex_);
    return output_;
}

} // namespace quenmoor
