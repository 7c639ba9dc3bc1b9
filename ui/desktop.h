// The desktop services that the window uses: alerts, the file chooser and the default browser.
// An interface, so that tests run the window without dialogs, and its implementation with Qt.
#pragma once

#include "engine/upload_view.h"
#include "queue/file_url.h"

#include <functional>
#include <optional>
#include <vector>

class QString;
class QUrl;
class QWidget;

namespace quenmoor {

// The answer to an alert that was closed without one of its buttons, for example with Escape.
inline constexpr std::int32_t kNoButton = 0;

// Main thread only.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Shows `alert`, modal to `window`, and blocks in an event loop of its own until it is closed.
    // Returns kFirstButton, kSecondButton, kThirdButton or kNoButton; nullopt if the program began
    // to end while the alert was open.
    virtual std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) = 0;

    // Shows `alert`, modal to `window`, under the window title `title`, and returns at once.
    // `onAnswer` is called once with one of the values above; never if the program ends first.
    virtual void openModal(QWidget* window, const QString& title, const Alert& alert,
                           std::function<void(std::int32_t)> onAnswer) = 0;

    // Opens a chooser for any number of files, but no folders, and returns at once. `onChosen` is
    // called with the files in the chooser's order; never if the user cancels.
    virtual void chooseFiles(QWidget* window,
                             std::function<void(const std::vector<FileUrl>&)> onChosen) = 0;

    // Opens `url` in the user's default browser. A failure is not reported.
    virtual void openUrl(const QUrl& url) = 0;
};

class QtDesktop : public Desktop {
public:
    // Redirects Qt's per-user settings to a path that cannot be created: the file chooser would
    // store its last folder there, and this program writes nothing to disk.
    QtDesktop();

    std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) override;
    void openModal(QWidget* window, const QString& title, const Alert& alert,
                   std::function<void(std::int32_t)> onAnswer) override;
    void chooseFiles(QWidget* window,
                     std::function<void(const std::vector<FileUrl>&)> onChosen) override;
    void openUrl(const QUrl& url) override;
};

} // namespace quenmoor
