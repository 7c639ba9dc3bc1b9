// Critical alerts, in the window's own dialog: a toolkit's message box would order the buttons by
// the desktop's custom, and the engine knows an answer by its position.
#pragma once

#include "engine/upload_view.h"

#include <functional>
#include <optional>

class QString;
class QWidget;

namespace quenmoor {

// The answer to an alert that was closed by another way than its buttons.
inline constexpr std::int32_t kNoButton = 0;

// Main thread only. Shows `alert` in front of `window`, which takes no input meanwhile, under a
// title bar that says `title`, and returns. `answered` is called once, with kFirstButton,
// kSecondButton, kThirdButton or kNoButton; never when the program ends first.
void openAlert(QWidget* window, const QString& title, const Alert& alert,
               std::function<void(std::int32_t)> answered);

// Main thread only. The same, but waits for the answer in an event loop of its own; background
// work goes on meanwhile. Nothing when the program began to end.
std::optional<std::int32_t> runAlert(QWidget* window, const QString& title, const Alert& alert);

} // namespace quenmoor
