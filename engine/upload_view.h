// The engine's only interface to the user. Implemented by the window, the command line and the
// tests.
#pragma once

#include "engine/attempt_event.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quenmoor {

// What the server reports about the copy that it holds of a file.
struct ExistingCopy {
    bool equal = false;    // the server takes it for the same file
    bool complete = false; // its upload was finished
    std::int64_t size = 0; // bytes; any value is possible
    bool unknown = false;  // the response contains none of these facts

    bool operator==(const ExistingCopy&) const = default;
};

// A question or a message to the user. The style is always critical. The first button is the
// default. Without buttons the front end offers its own single "OK".
struct Alert {
    std::string messageText;
    std::string informativeText;
    std::vector<std::string> buttons;
    std::optional<ExistingCopy> copy = {}; // that the question is about

    bool operator==(const Alert&) const = default;
};

// Answers to an alert, by the position of the button. An alert that was closed in another way has
// any other value, which counts as the first button where it matters.
inline constexpr std::int32_t kFirstButton = 1000;
inline constexpr std::int32_t kSecondButton = 1001;
inline constexpr std::int32_t kThirdButton = 1002;

// Called from the upload and monitor threads, one at a time, never from the UI thread. Each call
// returns once its effect is visible; the engine holds no lock meanwhile. After the program has
// begun to end, calls return at once and have no effect.
class UploadView {
public:
    virtual ~UploadView() = default;

    // Refreshes the table and, if set, shows `percent` in the status bar.
    virtual void reloadProgressGrid(std::optional<std::int32_t> percent) = 0;

    // `filename` is for display, "[none]" if no file is being sent; `rate` is a whole sentence.
    virtual void setStatusBar(const std::string& filename, const std::string& rate) = 0;

    // Blocks without a time limit until the user has answered. Returns nullopt if the program
    // ended while the alert was open: the user has not answered, and the caller must not assume
    // an answer.
    virtual std::optional<std::int32_t> runModal(const Alert& alert) = 0;

    // Requests the end of the program. The engine does nothing more afterwards.
    virtual void terminate() = 0;

    // Reports what happened to an upload, after the table has changed accordingly.
    virtual void attemptChanged(const AttemptEvent& event) = 0;
};

} // namespace quenmoor
