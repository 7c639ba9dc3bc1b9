#include "ui/appearance.h"

#include "base/text.h"

#include <QApplication>
#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QTextDocument>
#include <algorithm>
#include <cmath>
#include <utility>

namespace quenmoor {
namespace {

constexpr double kTextContrast = 4.5;
constexpr double kMixStep = 0.05;
constexpr double kSecondaryTextShare = 0.6; // of the text colour
constexpr int kFrameWidth = 2;              // in pixels, of the outline of a focused content
constexpr int kMinLabelWidth = 12;          // in average characters

// Relative luminance, as WCAG 2.1 defines it.
double luminance(const QColor& color)
{
    const auto linear = [](float channel) {
        return channel <= 0.04045F ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

QColor mixture(const QColor& from, const QColor& to, double share)
{
    const auto mix = [share](int a, int b) { return static_cast<int>(a + (b - a) * share); };
    return {mix(from.red(), to.red()), mix(from.green(), to.green()), mix(from.blue(), to.blue())};
}

} // namespace

QString printableQString(std::string_view bytes)
{
    return QString::fromStdString(printableLine(bytes));
}

QString plainToolTip(const QString& text)
{
    return Qt::mightBeRichText(text)
               ? QStringLiteral("<span style='white-space:pre-wrap'>%1</span>")
                     .arg(text.toHtmlEscaped())
               : text;
}

QFont scaledFont(QFont font, double scale)
{
    // A font has its size in points or in pixels; the other one is negative.
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() * scale);
    else
        font.setPixelSize(static_cast<int>(font.pixelSize() * scale));
    return font;
}

int cellMargin(const QFontMetrics& metrics)
{
    return metrics.height() / 2;
}

double contrast(const QColor& a, const QColor& b)
{
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
}

QColor withContrast(const QPalette& palette, const QColor& color,
                    std::initializer_list<QColor> backgrounds, double ratio)
{
    const auto isEnough = [&](const QColor& mixed) {
        return std::all_of(backgrounds.begin(), backgrounds.end(), [&](const QColor& background) {
            return contrast(mixed, background) >= ratio;
        });
    };
    QColor mixed = color;
    for (double share = kMixStep; !isEnough(mixed) && share <= 1; share += kMixStep)
        mixed = mixture(color, palette.color(QPalette::WindowText), share);
    return mixed;
}

QColor accent(const QPalette& palette, QPalette::ColorRole background)
{
    return withContrast(palette, palette.color(QPalette::Highlight), {palette.color(background)});
}

QColor outline(const QPalette& palette)
{
    const QColor window = palette.color(QPalette::Window);
    return withContrast(palette, window, {window, palette.color(QPalette::Base)});
}

QPalette windowPalette(const QPalette& application)
{
    const QColor window = application.color(QPalette::Window);
    const QColor base = application.color(QPalette::Base);
    const QColor quiet =
        mixture(window, application.color(QPalette::WindowText), kSecondaryTextShare);
    // The same share of text changes the luminance of a light background more.
    const double zebraShare = luminance(base) > 0.5 ? 0.02 : 0.04;
    QPalette palette;
    palette.setColor(QPalette::PlaceholderText,
                     withContrast(application, quiet, {window, base}, kTextContrast));
    palette.setColor(QPalette::AlternateBase,
                     mixture(base, application.color(QPalette::Text), zebraShare));
    return palette;
}

OutlinedFrame::OutlinedFrame(QWidget* focusWidget)
{
    setContentsMargins(kFrameWidth, kFrameWidth, kFrameWidth, kFrameWidth);
    if (focusWidget == nullptr)
        return;
    connect(qApp, &QApplication::focusChanged, this, [this, focusWidget](QWidget*, QWidget* now) {
        if (std::exchange(focused_, now == focusWidget) != focused_)
            update();
    });
}

void OutlinedFrame::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), focused_ ? accent(palette(), QPalette::Window) : outline(palette()));
    const int width = focused_ ? kFrameWidth : 1;
    painter.fillRect(rect().adjusted(width, width, -width, -width), palette().base());
}

void ElidedLabel::setElidedText(const QString& text, const QString& toolTip)
{
    setTextFormat(Qt::PlainText);
    setText(text);
    setToolTip(plainToolTip(toolTip));
}

QSize ElidedLabel::minimumSizeHint() const
{
    QSize size = QLabel::minimumSizeHint();
    size.setWidth(std::min(size.width(), fontMetrics().averageCharWidth() * kMinLabelWidth));
    return size;
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const Qt::Alignment side = QStyle::visualAlignment(layoutDirection(), alignment());
    style()->drawItemText(&painter, contentsRect(), static_cast<int>(side.toInt()), palette(),
                          isEnabled(), elidedText(), foregroundRole());
}

bool ElidedLabel::event(QEvent* event)
{
    if (event->type() == QEvent::ToolTip && toolTip().isEmpty() && elidedText() != text()) {
        setToolTip(plainToolTip(text()));
        const bool handled = QLabel::event(event);
        setToolTip({});
        return handled;
    }
    return QLabel::event(event);
}

QString ElidedLabel::elidedText() const
{
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
}

} // namespace quenmoor
