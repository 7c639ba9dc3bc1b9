#include "ui/drop_panel.h"

#include "ui/look.h"

#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

constexpr double kLineWidth = 1.5;
constexpr double kCornerInLines = 0.6; // of the line height, as are all sizes here
constexpr int kIconInLines = 4;

// An arrow that rises out of a tray, in a unit square.
QPainterPath trayWithArrow()
{
    QPainterPath path;
    path.moveTo(0.50, 0.68);
    path.lineTo(0.50, 0.12);
    path.moveTo(0.27, 0.34);
    path.lineTo(0.50, 0.11);
    path.lineTo(0.73, 0.34);
    path.moveTo(0.08, 0.62);
    path.lineTo(0.08, 0.82);
    path.quadTo(0.08, 0.92, 0.18, 0.92);
    path.lineTo(0.82, 0.92);
    path.quadTo(0.92, 0.92, 0.92, 0.82);
    path.lineTo(0.92, 0.62);
    return path;
}

class TrayIcon : public QWidget {
public:
    TrayIcon()
    {
        const int size = fontMetrics().height() * kIconInLines;
        setFixedSize(size, size);
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(width(), height());
        QPen pen(accent(palette(), QPalette::Base), 0.055);
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        painter.strokePath(trayWithArrow(), pen);
    }
};

} // namespace

DropPanel::DropPanel(QWidget* parent) : QFrame(parent), buttonPlace_(new QVBoxLayout)
{
    auto* const heading = new QLabel(QStringLiteral("Drop files here"));
    heading->setFont(scaledFont(font(), kHeadingScale));
    auto* const hint = new QLabel(QStringLiteral("or choose them on this computer"));
    hint->setForegroundRole(QPalette::PlaceholderText);

    const int line = fontMetrics().height();
    auto* const rows = new QVBoxLayout(this);
    rows->setContentsMargins(line, line, line, line);
    rows->setSpacing(line / 2);
    rows->addStretch();
    rows->addWidget(new TrayIcon, 0, Qt::AlignHCenter);
    rows->addSpacing(line / 2);
    rows->addWidget(heading, 0, Qt::AlignHCenter);
    rows->addWidget(hint, 0, Qt::AlignHCenter);
    rows->addSpacing(line / 2);
    rows->addLayout(buttonPlace_);
    rows->addStretch();
    buttonPlace_->setAlignment(Qt::AlignHCenter);
}

void DropPanel::setHighlighted(bool highlighted)
{
    highlighted_ = highlighted;
    update();
}

void DropPanel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor highlight = accent(palette(), QPalette::Base);
    QColor fill = highlighted_ ? highlight : palette().color(QPalette::Base);
    if (highlighted_)
        fill.setAlphaF(0.12F);
    const QColor edge = highlighted_ ? highlight : mixed(palette(), QPalette::Window, 0.35);

    QPen pen(edge, kLineWidth, Qt::CustomDashLine, Qt::RoundCap);
    pen.setDashPattern({4, 4});
    painter.setPen(pen);
    painter.setBrush(fill);
    const double corner = fontMetrics().height() * kCornerInLines;
    const QRectF area = QRectF(rect()).adjusted(kLineWidth, kLineWidth, -kLineWidth, -kLineWidth);
    painter.drawRoundedRect(area, corner, corner);
}

} // namespace quenmoor
