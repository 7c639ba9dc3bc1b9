// Stands in the place of the service's page when there is none: says why, and offers to load it
// again.
#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace quenmoor {

// Main thread only. Follows the user's font and palette.
class FailurePanel : public QWidget {
    Q_OBJECT

public:
    explicit FailurePanel(QWidget* parent);

    // `reason` is a sentence for everyone, `detail` what a support person asks for; it may be
    // empty.
    void setFailure(const QString& reason, const QString& detail);

    void focusReload();

Q_SIGNALS:
    void reloadRequested();

private:
    QLabel* reason_;
    QLabel* detail_;
    QPushButton* reload_;
};

} // namespace quenmoor
