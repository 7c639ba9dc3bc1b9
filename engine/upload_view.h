// All that the engine asks of whoever shows it: the window, the command line, a test.
#pragma once

#include "engine/attempt_event.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

// A question or a message to the user. The style is always critical. The first button is the
// default; with no button the platform shows its own, "OK".
struct Alert {
    std::string messageText;
    std::string informativeText;
    std::vector<std::string> buttons;

    bool operator==(const Alert&) const = default;
};

// Answers to an alert, by position. Any other number is "some other way out", which counts as the
// first button where it matters.
inline constexpr std::int32_t kFirstButton = 1000;
inline constexpr std::int32_t kSecondButton = 1001;
inline constexpr std::int32_t kThirdButton = 1002;

// Called from the upload and monitor threads, never from the thread that draws. Each call returns
// once its effect is on screen; the engine holds no lock meanwhile. After the program has begun
// to end, calls return at once and change nothing.
class UploadView {
public:
    virtual ~UploadView() = default;

    // Shows the table anew and, when given, `percent` in the status bar.
    virtual void reloadProgressGrid(std::optional<std::int32_t> percent) = 0;

    // `filename` is for showing, "[none]" when no file is under way; `rate` is a whole sentence.
    virtual void setStatusBar(const std::string& filename, const std::string& rate) = 0;

    // Blocks until the user has answered; no time limit. Nothing when the program ended while the
    // alert stood: the user has not answered, and the caller must not act as if he had.
    virtual std::optional<std::int32_t> runModal(const Alert& alert) = 0;

    // Asks the program to end. The engine does nothing more afterwards.
    virtual void terminate() = 0;

    // Reports what happened to an upload, as values.
    virtual void attemptChanged(const AttemptEvent& event) = 0;
};

} // namespace quenmoor
