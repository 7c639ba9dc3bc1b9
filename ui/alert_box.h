// The message box of an alert.
//
// It opens while the user may be typing into the page below it, so it ignores input that was meant
// for the page. It blocks the main window as a modal dialog does, with one exception: the window
// can still be closed, which asks whether to quit. With Qt's own modality, the window's close
// button has no effect. Above another dialog the box is modal in the ordinary way.
#pragma once

#include "engine/upload_view.h"

#include <QMessageBox>
#include <chrono>
#include <functional>

class QKeyEvent;

namespace quenmoor {

// The answer to an alert that was closed without one of its buttons, for example with Escape.
inline constexpr std::int32_t kNoButton = 0;

// Decides which input may answer an alert.
//
// A key answers only after kDelay without typing, counted from the moment when the alert receives
// the keyboard, and never while it repeats: the user still holds it. A mouse button answers kDelay
// after the alert appears, so that the second click of a double click does not.
class AnswerGuard {
public:
    using Time = std::chrono::steady_clock::time_point;
    static constexpr std::chrono::milliseconds kDelay{700};

    explicit AnswerGuard(Time now) : shown_(now), quietSince_(now) {}

    // The alert receives the keyboard.
    void receiveKeyboard(Time now) { quietSince_ = now; }

    // Returns whether the alert handles the key press. A rejected press of a key that types text
    // starts the delay anew.
    [[nodiscard]] bool acceptKey(Time now, const QKeyEvent& press);

    [[nodiscard]] bool acceptClick(Time now) const { return now - shown_ >= kDelay; }

private:
    const Time shown_;
    Time quietSince_;
};

// Main thread only. Deletes itself when it is closed. The answer is the position of the button.
class AlertBox : public QMessageBox {
    Q_OBJECT

public:
    using Now = std::function<AnswerGuard::Time()>;

    // The box is a child of the dialog that currently blocks `window`, or of `window` itself.
    // `subject` is what the alert is about, for example a file name: it is the title of the box and
    // the first line of its body. It is empty if the alert concerns the program.
    AlertBox(QWidget* window, const QString& subject, const Alert& alert, Now now);

    // Shows the box. Requests the user's attention if none of the program's windows is active.
    void present();

    // kFirstButton and so on, or kNoButton.
    std::int32_t answer() const;

    bool eventFilter(QObject* watched, QEvent* event) override;

    // Returns the keyboard to the window below.
    void done(int result) override;

protected:
    bool event(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    static QWidget* parentFor(QWidget* window);
    void setTexts(const QString& subject, const Alert& alert);
    void addAnswers(const Alert& alert);
    bool blocksInputBelow(QEvent* event);

    const Now now_;
    AnswerGuard guard_;
};

} // namespace quenmoor
