// The two views that replace the page in the window: one while it loads, one when it has failed.
#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace quenmoor {

// Covers the page from the start of a load until its document exists. Takes the keyboard focus, so
// that no key reaches a page.
class LoadingPanel : public QWidget {
    Q_OBJECT

public:
    explicit LoadingPanel(QWidget* parent);
};

// Shows why the page is not available, with buttons that load it again and that skip the file. The
// focus is on the first one. Main thread only.
class FailurePanel : public QWidget {
    Q_OBJECT

public:
    explicit FailurePanel(QWidget* parent);

    // `reason` is a sentence for the user, `detail` is for a support person and may be empty.
    void setFailure(const QString& reason, const QString& detail);

    void setSkipShown(bool shown);

Q_SIGNALS:
    void reloadRequested();
    void skipRequested();

private:
    QLabel* reason_;
    QLabel* detail_;
    QPushButton* reload_;
    QPushButton* skip_;
};

} // namespace quenmoor
