#include "ui/end_process.h"

#include "engine/system_clock.h"
#include "engine/upload_engine.h"
#include "ui/main_thread_bridge.h"

#include <QSocketNotifier>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace quenmoor {
namespace {

constexpr std::chrono::milliseconds kPatience{500};
constexpr int kSignalStatus = 128; // what shells add to a signal's number
constexpr std::array kSignals{SIGTERM, SIGINT};

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

EndSignals::EndSignals() : pipe_(kSignals)
{
    if (pipe_.readEnd() < 0)
        return; // then signals kill, as they do by default
    notifier_ = std::make_unique<QSocketNotifier>(pipe_.readEnd(), QSocketNotifier::Read);
    connect(notifier_.get(), &QSocketNotifier::activated, this,
            [this] { Q_EMIT endRequested(kSignalStatus + pipe_.read()); });
}

EndSignals::~EndSignals() = default;

} // namespace quenmoor
