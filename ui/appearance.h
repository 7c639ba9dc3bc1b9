// Text, sizes, colours and labels that the parts of the window share. Sizes and colours follow the
// user's font and palette.
#pragma once

#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QLabel>
#include <QPalette>
#include <QString>
#include <string_view>

namespace quenmoor {

// The name of the program for users. It is not set as the application's display name, because Qt
// would append that to every window title.
inline constexpr QStringView kProductName = u"Quenmoor Upload";

inline constexpr double kHeadingScale = 1.35; // relative to the window's font

// printableLine() of `bytes`, which are usually a file name.
QString printableQString(std::string_view bytes);

// A tool tip that displays `text` as it is, although Qt renders a tool tip with tags as HTML.
QString plainToolTip(const QString& text);

QFont scaledFont(QFont font, double scale);

// The horizontal margin of the text in a table cell, in pixels.
int cellMargin(const QFontMetrics& metrics);

// The palette's highlight colour, mixed with the text colour until its contrast to `background` is
// at least 3:1 (WCAG 2.1, success criterion 1.4.11, for graphics).
QColor accent(const QPalette& palette, QPalette::ColorRole background);

// The palette's `background` with `share` (0 to 1) of the text colour mixed in: a grey for light
// and dark palettes.
QColor mixed(const QPalette& palette, QPalette::ColorRole background, double share);

// One line of text whose middle is elided when it does not fit; the tool tip then shows all of it.
// text() and the accessible name are always the whole text. Main thread only.
class ElidedLabel : public QLabel {
    Q_OBJECT

public:
    using QLabel::QLabel;

    // The tool tip is `toolTip` or, if that is empty, `text` while it is elided.
    void setElidedText(const QString& text, const QString& toolTip = {});

    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    bool event(QEvent* event) override;

private:
    QString elidedText() const;
};

} // namespace quenmoor
