// The window that lists the keyboard shortcuts.
#pragma once

class QWidget;

namespace quenmoor {

// Shows the shortcuts of all actions of `window` and of its widgets, with the actions' texts.
// Returns at once. Main thread only.
void showShortcuts(QWidget& window);

} // namespace quenmoor
