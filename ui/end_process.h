// The program's last steps, and the signals that ask for them.
//
// The transfer link can be inside a call of up to 30 seconds that nothing interrupts, so the
// process may have to end with the upload thread still in it.
#pragma once

#include "base/signal_pipe.h"

#include <QObject>
#include <memory>

class QSocketNotifier;

namespace quenmoor {

class MainThreadBridge;
class SystemClock;
class UploadEngine;

// Main thread, after the event loop. Lets the upload thread go and waits for it, for half a second
// at most. Returns `status` when the objects may be destroyed; otherwise ends the process with it
// on the spot.
int endProcess(MainThreadBridge& bridge, SystemClock& clock, UploadEngine& engine, int status);

// Turns SIGTERM and SIGINT into a Qt signal, also while a question or a chooser is open. A second
// one of the same kind kills at once. Main thread only; one at a time in a process.
class EndSignals : public QObject {
    Q_OBJECT

public:
    EndSignals();
    ~EndSignals() override;

Q_SIGNALS:
    // `status` is what a shell would report: 128 and the signal's number.
    void endRequested(int status);

private:
    SignalPipe pipe_;
    std::unique_ptr<QSocketNotifier> notifier_; // gone before the pipe that it watches
};

} // namespace quenmoor
