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

// Shows why the page is not available, with a button that loads it again and has the focus. Main
// thread only.
class FailurePanel : public QWidget {
    Q_OBJECT

public:
    explicit FailurePanel(QWidget* parent);

    // `reason` is a sentence for the user, `detail` is for a support person and may be empty.
    void setFailure(const QString& reason, const QString& detail);

Q_SIGNALS:
    void reloadRequested();

private:
    QLabel* reason_;
    QLabel* detail_;
};

} // namespace quenmoor
