// One quiet line for what the user should know but need not answer, for example that folders were
// skipped.
#pragma once

#include <QLabel>
#include <QTimer>

namespace quenmoor {

// Main thread only. Hidden while it has no text. Screen readers read a new text aloud.
class NoticeLine : public QLabel {
    Q_OBJECT

public:
    explicit NoticeLine(QWidget* parent = nullptr);

    // Shows `text` for a limited time; an empty text hides the line at once.
    void showNotice(const QString& text);

private:
    QTimer hideTimer_;
};

} // namespace quenmoor
