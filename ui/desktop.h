// All that the window asks of the desktop around it.
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

// Main thread only.
class Desktop {
public:
    virtual ~Desktop() = default;

    // Shows `alert` in front of `window` and waits for its answer, as UploadView::runModal gives
    // it; events of the application are handled meanwhile. Nothing when the program began to end.
    virtual std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) = 0;

    // Shows `alert`, with `title` to say what it is about, and returns; `answered` is called once,
    // later, unless the program ends first.
    virtual void openModal(QWidget* window, const QString& title, const Alert& alert,
                           std::function<void(std::int32_t)> answered) = 0;

    // Lets the user choose any number of files, no folders, and returns. `chosen` is called with
    // them, in the chooser's order; not at all when the user gave up.
    virtual void chooseFiles(QWidget* window,
                             std::function<void(const std::vector<FileUrl>&)> chosen) = 0;

    // Opens `url` in the user's default browser, if it can.
    virtual void openUrl(const QUrl& url) = 0;
};

} // namespace quenmoor
