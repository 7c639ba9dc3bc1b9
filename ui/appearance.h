// Text, sizes, colours and labels that the parts of the window share. Sizes and colours follow the
// user's font and palette.
#pragma once

#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QFrame>
#include <QLabel>
#include <QPalette>
#include <QString>
#include <initializer_list>
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

// The least contrast of graphics to their background: WCAG 2.1, success criterion 1.4.11.
inline constexpr double kGraphicsContrast = 3.0;

// Contrast ratio, as WCAG 2.1 defines it: 1 to 21.
double contrast(const QColor& a, const QColor& b);

// `color`, mixed with the palette's text colour until its contrast to each of `backgrounds` is at
// least `ratio`, as far as the palette permits.
QColor withContrast(const QPalette& palette, const QColor& color,
                    std::initializer_list<QColor> backgrounds, double ratio = kGraphicsContrast);

// The palette's highlight colour as a graphic on `background`.
QColor accent(const QPalette& palette, QPalette::ColorRole background);

// A grey line on Window and Base.
QColor outline(const QPalette& palette);

// The roles that the window does not take from the application's palette: PlaceholderText, the
// colour of secondary text, with the contrast of text (WCAG 2.1, 1.4.3) on Window and Base, and
// AlternateBase, close to Base. All other roles of the result are unset.
QPalette windowPalette(const QPalette& application);

// Outlines its content. Main thread only.
class OutlinedFrame : public QFrame {
    Q_OBJECT

public:
    // Also shows with the outline whether `focusWidget`, if it is not null, has the keyboard focus.
    explicit OutlinedFrame(QWidget* focusWidget = nullptr);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool focused_ = false;
};

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
