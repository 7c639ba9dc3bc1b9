// What the window's program settles before and around its objects.
#pragma once

#include "ui/view_controller.h"

#include <optional>
#include <vector>

namespace quenmoor {

class AppDelegate;
class EndSignals;

// This program's version and the page it speaks to. Nothing, and a line in the log that says why,
// when the build gave it a version of fewer than three numbers.
std::optional<ViewController::Client> thisClient();

// "--help" and "--version" need no display. True when one was given and answered.
bool answerWithoutWindow(int argc, char** argv);

// After the application object. The names that desktops show and sort windows by.
void nameApplication();

// The files that the command line names, byte for byte; what the toolkit understood of it is gone
// from it already.
std::vector<FileUrl> filesToOpen(int argc, char** argv);

// Ties every way out together: the window, the page's outdated client, the engine's final failure
// and the signals.
void connectEnd(ViewController& controller, AppDelegate& delegate, QtUploadView& view,
                MainThreadBridge& bridge, const EndSignals& endSignals);

} // namespace quenmoor
