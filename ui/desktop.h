// The desktop services that the window uses: alerts, the file chooser and the default browser.
// An interface, so that tests run the window without dialogs, and its implementation with Qt.
#pragma once

#include "engine/upload_view.h"
#include "queue/file_url.h"
#include "ui/alert_box.h"

#include <functional>
#include <optional>
#include <vector>

class QString;
class QUrl;
class QWidget;

namespace quenmoor {

// Main thread only.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Shows `alert`, modal to `window`, and blocks in an event loop of its own until it is closed.
    // Returns kFirstButton, kSecondButton, kThirdButton or kNoButton; nullopt if the program began
    // to end while the alert was open.
    virtual std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) = 0;

    // Shows `alert`, modal to `window`, and returns at once. `subject` is what the alert is about,
    // for example a file name. `onAnswer` is called once with one of the values above; never if the
    // program ends first.
    virtual void openModal(QWidget* window, const QString& subject, const Alert& alert,
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
    // store its last folder there, and this program writes nothing to disk. `now` is the time by
    // which alerts ignore input that was not meant for them.
    explicit QtDesktop(AlertBox::Now now = std::chrono::steady_clock::now);

    std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) override;
    void openModal(QWidget* window, const QString& subject, const Alert& alert,
                   std::function<void(std::int32_t)> onAnswer) override;
    void chooseFiles(QWidget* window,
                     std::function<void(const std::vector<FileUrl>&)> onChosen) override;
    void openUrl(const QUrl& url) override;

private:
    const AlertBox::Now now_;
};

} // namespace quenmoor
