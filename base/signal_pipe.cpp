#include "base/signal_pipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

namespace quenmoor {
namespace {

std::atomic<int> signalPipe{-1};
static_assert(std::atomic<int>::is_always_lock_free);

// Does not block. A write to a full pipe fails, which is harmless: its reader has bytes to read.
void writeByte(int pipe, int value)
{
    const auto byte = static_cast<unsigned char>(value);
    [[maybe_unused]] const ssize_t written = write(pipe, &byte, 1);
}

extern "C" void onSignal(int number)
{
    const int before = errno;
    writeByte(signalPipe, number);
    errno = before;
}

// SA_RESTART is not set: ThreadSanitizer runs handlers when a blocking call returns, and a
// restarted call does not return.
void setHandler(int number, void (*handler)(int), int flags)
{
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

} // namespace

SignalPipe::SignalPipe(std::span<const int> numbers) : numbers_(numbers)
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0)
        return;
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
    fcntl(readEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFL, O_NONBLOCK);
    signalPipe = writeEnd_;
    for (const int number : numbers_)
        setHandler(number, onSignal, static_cast<int>(SA_RESETHAND));
}

SignalPipe::~SignalPipe()
{
    if (readEnd_ < 0)
        return;
    for (const int number : numbers_)
        setHandler(number, SIG_DFL, 0);
    signalPipe = -1;
    close(readEnd_);
    close(writeEnd_);
}

int SignalPipe::read() const
{
    unsigned char number = 0;
    ssize_t got = 0;
    do {
        got = ::read(readEnd_, &number, 1);
    } while (got < 0 && errno == EINTR);
    return number;
}

void SignalPipe::wake() const
{
    writeByte(writeEnd_, 0);
}

} // namespace quenmoor
