#include "ui/indicators.h"

#include "ui/appearance.h"

#include <QPainter>
#include <QPainterPath>
#include <cmath>

namespace quenmoor {
namespace {

// For light palettes; a dark one mixes them with its text colour.
constexpr QColor kGreen(0x1a, 0x7f, 0x37);
constexpr QColor kAmber(0xb3, 0x6b, 0x00);
constexpr QColor kRed(0xc6, 0x28, 0x28);

constexpr double kBarHeightInLines = 0.5;
constexpr double kGlyphLine = 0.11; // width of a line in a glyph, relative to the glyph

QPainterPath lines(std::initializer_list<std::initializer_list<QPointF>> polylines)
{
    QPainterPath path;
    for (const auto& points : polylines)
        path.addPolygon(QPolygonF(QList<QPointF>(points)));
    return path;
}

// The shapes are in a unit square: a filled body, or an outlined one, and strokes inside it.
struct Glyph {
    QPainterPath body;
    bool isFilled;
    QPainterPath strokes;
};

Glyph glyphOf(UploadState state)
{
    QPainterPath circle;
    circle.addEllipse(QRectF(0.06, 0.06, 0.88, 0.88));
    QPainterPath square;
    square.addRoundedRect(QRectF(0.1, 0.1, 0.8, 0.8), 0.16, 0.16);
    const QPainterPath triangle = lines({{{0.5, 0.1}, {0.95, 0.9}, {0.05, 0.9}, {0.5, 0.1}}});
    switch (state) {
    case UploadState::Waiting:
        return {circle, false, lines({{{0.5, 0.27}, {0.5, 0.53}, {0.67, 0.63}}})};
    case UploadState::UnderWay:
        return {circle, true,
                lines({{{0.5, 0.76}, {0.5, 0.26}}, {{0.29, 0.46}, {0.5, 0.25}, {0.71, 0.46}}})};
    case UploadState::Done:
        return {circle, true, lines({{{0.28, 0.52}, {0.44, 0.68}, {0.73, 0.35}}})};
    case UploadState::Retrying:
        return {triangle, true, lines({{{0.5, 0.39}, {0.5, 0.6}}, {{0.5, 0.77}, {0.5, 0.78}}})};
    case UploadState::Failed:
        return {square, true, lines({{{0.33, 0.33}, {0.67, 0.67}}, {{0.67, 0.33}, {0.33, 0.67}}})};
    case UploadState::Canceled: return {circle, false, lines({{{0.22, 0.78}, {0.78, 0.22}}})};
    }
    return {};
}

} // namespace

UploadState stateAfter(AttemptEventKind kind)
{
    switch (kind) {
    case AttemptEventKind::Started:
    case AttemptEventKind::StepChanged:
    case AttemptEventKind::Progress: return UploadState::UnderWay;
    case AttemptEventKind::Failed:
    case AttemptEventKind::Waiting: return UploadState::Retrying;
    case AttemptEventKind::Finished: return UploadState::Done;
    case AttemptEventKind::Cancelled: return UploadState::Canceled;
    case AttemptEventKind::GaveUp: return UploadState::Failed;
    }
    return UploadState::Waiting;
}

QString stateText(UploadState state)
{
    switch (state) {
    case UploadState::Waiting: return QStringLiteral("waiting");
    case UploadState::UnderWay: return QStringLiteral("under way");
    case UploadState::Done: return QStringLiteral("finished");
    case UploadState::Retrying: return QStringLiteral("failed, waiting for the next attempt");
    case UploadState::Failed: return QStringLiteral("failed");
    case UploadState::Canceled: return QStringLiteral("canceled");
    }
    return {};
}

QColor stateColor(UploadState state, const QPalette& palette)
{
    const auto visible = [&palette](const QColor& color) {
        return withContrast(palette, color,
                            {palette.color(QPalette::Base), palette.color(QPalette::AlternateBase),
                             palette.color(QPalette::Window)});
    };
    switch (state) {
    case UploadState::UnderWay: return visible(palette.color(QPalette::Highlight));
    case UploadState::Done: return visible(kGreen);
    case UploadState::Retrying: return visible(kAmber);
    case UploadState::Failed: return visible(kRed);
    case UploadState::Waiting:
    case UploadState::Canceled: break;
    }
    return palette.color(QPalette::PlaceholderText);
}

void paintState(QPainter& painter, const QRectF& square, UploadState state, const QColor& color,
                const QColor& background)
{
    const Glyph glyph = glyphOf(state);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.translate(square.topLeft());
    painter.scale(square.width(), square.height());
    const auto penOf = [](const QColor& line) {
        return QPen(line, kGlyphLine, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    };
    if (glyph.isFilled)
        painter.fillPath(glyph.body, color);
    painter.strokePath(glyph.body, penOf(color));
    painter.strokePath(glyph.strokes, penOf(glyph.isFilled ? background : color));
    painter.restore();
}

void paintBar(QPainter& painter, const QRectF& bar, int percent, const BarColors& colors,
              Qt::LayoutDirection direction)
{
    QRectF filled = bar;
    filled.setWidth(bar.width() * percent / 100);
    if (direction == Qt::RightToLeft)
        filled.moveRight(bar.right());
    const QRectF line = bar.adjusted(0.5, 0.5, -0.5, -0.5); // the middle of the outline
    const double corner = line.height() / 2;
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(colors.outline);
    painter.setBrush(colors.background);
    painter.drawRoundedRect(line, corner, corner);
    painter.setClipRect(filled);
    painter.setPen(colors.fill);
    painter.setBrush(colors.fill);
    painter.drawRoundedRect(line, corner, corner);
    painter.restore();
}

int barHeight(const QFontMetrics& metrics)
{
    return static_cast<int>(metrics.height() * kBarHeightInLines);
}

void StateGlyph::setState(UploadState state)
{
    if (std::exchange(state_, state) != state)
        update();
}

QSize StateGlyph::sizeHint() const
{
    const int side = fontMetrics().ascent();
    return {side, side};
}

void StateGlyph::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const int side = fontMetrics().ascent();
    QRectF square(0, 0, side, side);
    square.moveCenter(QRectF(rect()).center());
    paintState(painter, square, state_, stateColor(state_, palette()),
               palette().color(QPalette::Window));
}

void FlatProgressBar::setActive(bool active)
{
    if (std::exchange(active_, active) != active)
        update();
}

void FlatProgressBar::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    QRectF bar = rect();
    bar.setHeight(barHeight(fontMetrics()));
    bar.moveTop(std::floor((height() - bar.height()) / 2));
    const QColor line = outline(palette());
    paintBar(painter, bar, value(),
             {active_ ? accent(palette(), QPalette::Window) : line, line,
              palette().color(QPalette::Base)},
             layoutDirection());
}

} // namespace quenmoor
