// One line of text that keeps its size until the text needs another: a text that changes every
// second then costs its own pixels, and not a new layout of the whole window.
#pragma once

#include <QEvent>
#include <QLabel>

namespace quenmoor {

class SteadyLabel : public QLabel {
    Q_OBJECT

public:
    using QLabel::QLabel;

    void setSteadyText(const QString& text)
    {
        setText(text);
        fit();
    }

protected:
    void changeEvent(QEvent* event) override
    {
        QLabel::changeEvent(event);
        if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
            fit();
    }

private:
    // A change of the text asks for a layout unless width and height are both fixed. The size hint
    // is no measure: it never falls below a size that is fixed.
    void fit()
    {
        constexpr QRect kRoom(0, 0, QWIDGETSIZE_MAX, QWIDGETSIZE_MAX);
        const QRect bounds = fontMetrics().boundingRect(kRoom, Qt::AlignLeft, text());
        if (const QSize needed = bounds.size().grownBy(contentsMargins()); needed != minimumSize())
            setFixedSize(needed);
    }
};

} // namespace quenmoor
