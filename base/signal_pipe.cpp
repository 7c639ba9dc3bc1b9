#include "base/signal_pipe.h"

#include "base/process_setup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>

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

} // namespace

SignalPipe::SignalPipe(std::span<const int> numbers)
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0) {
        error_ = errno;
        return;
    }
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
    fcntl(readEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFL, O_NONBLOCK);
    signalPipe = writeEnd_;
    // SA_RESTART is not set: ThreadSanitizer runs handlers when a blocking call returns, and a
    // restarted call does not return.
    struct sigaction handler {};
    handler.sa_handler = onSignal;
    handler.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : numbers) {
        struct sigaction previous {};
        if (isIgnored(number) || sigaction(number, &handler, &previous) != 0)
            continue;
        previous_.emplace_back(number, previous);
    }
}

SignalPipe::~SignalPipe()
{
    if (readEnd_ < 0)
        return;
    for (const auto& [number, action] : previous_)
        sigaction(number, &action, nullptr);
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
