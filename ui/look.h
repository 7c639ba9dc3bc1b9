// The name, sizes and colours that the window's parts share. Sizes and colours follow the user's
// font and palette.
#pragma once

#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QPalette>
#include <QString>

namespace quenmoor {

// As users know the program. Not set as the application's display name: the toolkit would append
// that to the title of every window.
inline constexpr QStringView kProductName = u"Quenmoor Upload";

inline constexpr double kHeadingScale = 1.35; // of the window's own font

QFont scaledFont(QFont font, double scale);

// The room beside the text of a table's cell.
int cellMargin(const QFontMetrics& metrics);

// The palette's highlight, made to stand out from `background` where it would not.
QColor accent(const QPalette& palette, QPalette::ColorRole background);

// `background` of the palette with the share `text` (0 to 1) of the text colour in it: a grey that
// is right on light and on dark.
QColor mixed(const QPalette& palette, QPalette::ColorRole background, double text);

} // namespace quenmoor
