// What main() does before the event loop starts and after it has ended, and the signals that end
// the program.
//
// The transfer link can be inside a call of up to 30 seconds that cannot be interrupted, so the
// process may have to exit while the upload thread is still in it.
#pragma once

#include "base/signal_pipe.h"
#include "ui/view_controller.h"

#include <memory>
#include <optional>
#include <vector>

class QApplication;
class QSocketNotifier;

namespace quenmoor {

class SystemClock;

// The version of this program and the URL of the service's page. Returns nullopt, and logs the
// reason, if the version of the build has fewer than three numbers.
std::optional<ViewController::Client> thisClient();

// Handles "--help" and "--version", which need no display. Returns true if one of them was given.
bool handleInformationOptions(int argc, char** argv);

// Creates the application object, with the names and the icon by which desktops identify the
// program, and writes the messages of Qt, which contain those of the page's scripts, to the system
// log. Without a display, prints one line and exits the process with status 1. `argc` must outlive
// the object.
std::unique_ptr<QApplication> makeApplication(int& argc, char** argv);

// Returns the files on the command line, from their bytes. QApplication has already removed Qt's
// own options from `argv`.
std::vector<FileUrl> filesToOpen(int argc, char** argv);

// Emits a Qt signal on SIGTERM, SIGINT and SIGHUP, also while an alert or the file chooser is open.
// A second signal of the same kind kills the process. Main thread only; one object per process at a
// time.
class EndSignals : public QObject {
    Q_OBJECT

public:
    EndSignals();
    ~EndSignals() override;

Q_SIGNALS:
    // `status` is the one that a shell reports: 128 plus the number of the signal.
    void endRequested(int status);

private:
    SignalPipe pipe_;
    std::unique_ptr<QSocketNotifier> notifier_; // destroyed before the pipe that it watches
};

// Connects everything that ends the program to `delegate`: the window, the outdated client, the
// engine's final failure and the signals.
void connectEnd(ViewController& controller, AppDelegate& delegate, QtUploadView& view,
                MainThreadBridge& bridge, const EndSignals& endSignals);

// Call it on the main thread after the event loop has ended. Releases the upload thread and waits
// half a second at most until it ends. Returns `status` if it has ended and the objects may be
// destroyed; otherwise exits the process with `status`.
int endProcess(MainThreadBridge& bridge, SystemClock& clock, UploadEngine& engine, int status);

} // namespace quenmoor
