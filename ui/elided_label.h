// One line of text that loses its middle when it does not fit, and then has a tool tip with all
// of it.
#pragma once

#include <QLabel>

namespace quenmoor {

// text() is the whole text, as is the accessible name.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    using QLabel::QLabel;

    // Shows `text`; the tool tip is `toolTip`, or the text while that is cut.
    void setElidedText(const QString& text, const QString& toolTip = {});

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QString shown() const;
};

} // namespace quenmoor
