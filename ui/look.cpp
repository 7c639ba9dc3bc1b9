#include "ui/look.h"

#include <algorithm>
#include <cmath>

namespace quenmoor {
namespace {

// WCAG 2.1, success criterion 1.4.11: what a graphic needs to be seen.
constexpr double kPlainContrast = 3.0;
constexpr double kMixStep = 0.1;

// The relative luminance and the contrast ratio that WCAG 2.1 defines.
double luminance(const QColor& color)
{
    const auto linear = [](float channel) {
        return channel <= 0.04045F ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

double contrast(const QColor& one, const QColor& other)
{
    const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
    return (light + 0.05) / (dark + 0.05);
}

QColor mixture(const QColor& from, const QColor& to, double share)
{
    const auto mix = [share](int a, int b) { return static_cast<int>(a + (b - a) * share); };
    return {mix(from.red(), to.red()), mix(from.green(), to.green()), mix(from.blue(), to.blue())};
}

} // namespace

QFont scaledFont(QFont font, double scale)
{
    // A font is measured in points or in pixels; the other measure is then negative.
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
    QColor color = palette.color(QPalette::Highlight);
    const QColor back = palette.color(background);
    for (double text = kMixStep; contrast(color, back) < kPlainContrast && text <= 1;
         text += kMixStep)
        color = mixture(palette.color(QPalette::Highlight), palette.color(QPalette::Text), text);
    return color;
}

QColor mixed(const QPalette& palette, QPalette::ColorRole background, double text)
{
    return mixture(palette.color(background), palette.color(QPalette::WindowText), text);
}

} // namespace quenmoor
