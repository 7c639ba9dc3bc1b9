#include "ui/appearance.h"

#include "base/text.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>
#include <QTextDocument>
#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

constexpr double kMinContrast = 3.0;
constexpr double kMixStep = 0.1;
constexpr int kMinLabelWidth = 12; // in average characters

// Relative luminance, as WCAG 2.1 defines it.
double luminance(const QColor& color)
{
    const auto linear = [](float channel) {
        return channel <= 0.04045F ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

// Contrast ratio, as WCAG 2.1 defines it.
double contrast(const QColor& a, const QColor& b)
{
    const auto [dark, light] = std::minmax({luminance(a), luminance(b)});
    return (light + 0.05) / (dark + 0.05);
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
    return Qt::mightBeRichText(text) ? QStringLiteral("<span>%1</span>").arg(text.toHtmlEscaped())
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

QColor accent(const QPalette& palette, QPalette::ColorRole background)
{
    const QColor highlight = palette.color(QPalette::Highlight);
    const QColor back = palette.color(background);
    QColor color = highlight;
    for (double share = kMixStep; contrast(color, back) < kMinContrast && share <= 1;
         share += kMixStep)
        color = mixture(highlight, palette.color(QPalette::Text), share);
    return color;
}

QColor mixed(const QPalette& palette, QPalette::ColorRole background, double share)
{
    return mixture(palette.color(background), palette.color(QPalette::WindowText), share);
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
