// The desktop that the program really runs on.
#pragma once

#include "ui/desktop.h"

namespace quenmoor {

class QtDesktop : public Desktop {
public:
    // The toolkit's file chooser would note the folder that it was left in under the user's
    // configuration; this program leaves nothing behind.
    QtDesktop();

    std::optional<std::int32_t> runModal(QWidget* window, const Alert& alert) override;
    void openModal(QWidget* window, const QString& title, const Alert& alert,
                   std::function<void(std::int32_t)> answered) override;
    void chooseFiles(QWidget* window,
                     std::function<void(const std::vector<FileUrl>&)> chosen) override;
    void openUrl(const QUrl& url) override;
};

} // namespace quenmoor
