#include "app/end_process.h"

#include "engine/system_clock.h"
#include "engine/upload_engine.h"
#include "ui/main_thread_bridge.h"

#include <fcntl.h>
#include <unistd.h>

#include <QSocketNotifier>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace quenmoor {
namespace {

constexpr std::chrono::milliseconds kPatience{500};
constexpr int kSignalStatus = 128; // what shells add to a signal's number
constexpr std::array kSignals{SIGTERM, SIGINT};

std::atomic<int> signalPipe{-1};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void onSignal(int number)
{
    const int before = errno;
    const auto byte = static_cast<unsigned char>(number);
    [[maybe_unused]] const ssize_t written = write(signalPipe, &byte, 1);
    errno = before;
}

void setHandler(int number, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    if (handler != SIG_DFL)
        action.sa_flags |= static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

} // namespace

int endProcess(MainThreadBridge& bridge, SystemClock& clock, UploadEngine& engine, int status)
{
    bridge.close();
    clock.end();
    if (engine.waitForEnd(kPatience))
        return status;
    std::fflush(nullptr);
    std::_Exit(status);
}

EndSignals::EndSignals()
{
    std::array<int, 2> ends{-1, -1};
    if (pipe(ends.data()) != 0)
        return; // without a pipe, signals keep their default: they kill
    readEnd_ = ends[0];
    writeEnd_ = ends[1];
    fcntl(readEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFD, FD_CLOEXEC);
    fcntl(writeEnd_, F_SETFL, O_NONBLOCK);
    signalPipe = writeEnd_;
    notifier_ = new QSocketNotifier(readEnd_, QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, &EndSignals::readNumber);
    for (const int number : kSignals)
        setHandler(number, onSignal);
}

EndSignals::~EndSignals()
{
    if (readEnd_ < 0)
        return;
    for (const int number : kSignals)
        setHandler(number, SIG_DFL);
    signalPipe = -1;
    delete notifier_;
    close(readEnd_);
    close(writeEnd_);
}

void EndSignals::readNumber()
{
    unsigned char number = 0;
    if (read(readEnd_, &number, 1) == 1)
        Q_EMIT endRequested(kSignalStatus + number);
}

} // namespace quenmoor
