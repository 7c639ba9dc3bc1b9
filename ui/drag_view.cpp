#include "ui/drag_view.h"

#include "base/log.h"
#include "ui/appearance.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QUrl>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

constexpr auto kUriList = QLatin1StringView("text/uri-list");
constexpr std::size_t kMaxLoggedFiles = 100; // more are logged as a number
constexpr double kLineWidth = 1.5;           // in pixels
constexpr double kCornerInLines = 0.6;       // in line heights, as the icon
constexpr int kIconInLines = 4;

// Accepts "file:///a" and "file:/a", which some desktops send.
std::optional<FileUrl> fileUrlOf(const QByteArray& line)
{
    // QUrl loses bytes that are not UTF-8, so it is used only for what FileUrl does not parse.
    if (auto file = FileUrl::parse(std::string_view(line.constData(), std::size_t(line.size()))))
        return file;
    return FileUrl::parse(QUrl::fromEncoded(line).toEncoded().toStdString());
}

// An arrow that points up out of a tray, in a unit square.
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
    QSize sizeHint() const override
    {
        const int size = fontMetrics().height() * kIconInLines;
        return {size, size};
    }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.scale(width(), height());
        QPen pen(accent(palette(), QPalette::Window), 0.055);
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        painter.strokePath(trayWithArrow(), pen);
    }
};

} // namespace

void DragView::unregisterDraggedTypes()
{
    setAcceptDrops(false);
    Q_EMIT dragActiveChanged(false);
}

// RFC 2483, section 5: one URI per line; lines that begin with "#" are comments.
std::vector<FileUrl> DragView::draggedFiles(const QMimeData& mimeData)
{
    std::vector<FileUrl> files;
    for (const QByteArray& rawLine : mimeData.data(kUriList).split('\n')) {
        const QByteArray line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        if (auto file = fileUrlOf(line))
            files.push_back(*std::move(file));
    }
    return files;
}

void DragView::dragEnterEvent(QDragEnterEvent* event)
{
    // A drag that began in this window has content that the page has chosen.
    if (event->source() != nullptr || !event->mimeData()->hasFormat(kUriList))
        return;
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT dragActiveChanged(true);
}

void DragView::dragMoveEvent(QDragMoveEvent* event)
{
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DragView::dragLeaveEvent(QDragLeaveEvent* event)
{
    event->accept();
    Q_EMIT dragActiveChanged(false);
}

void DragView::dropEvent(QDropEvent* event)
{
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT dragActiveChanged(false);
    const std::vector<FileUrl> files = draggedFiles(*event->mimeData());
    if (files.size() > kMaxLoggedFiles)
        logSystem("Files dropped in DragView: {}", files.size());
    else
        for (const FileUrl& file : files)
            logSystem("File dropped in DragView: {}", file.path().native());
    Q_EMIT filesDropped(files);
}

DropPanel::DropPanel(QWidget* parent)
    : QFrame(parent), heading_(new QLabel(QStringLiteral("Drop files here")))
{
    heading_->setFont(scaledFont(font(), kHeadingScale));
    auto* const hint = new QLabel(QStringLiteral("or click to choose them on this computer"));
    hint->setForegroundRole(QPalette::PlaceholderText);

    const int line = fontMetrics().height();
    auto* const rows = new QVBoxLayout(this);
    rows->setContentsMargins(line, line, line, line);
    rows->setSpacing(line / 2);
    rows->addStretch();
    rows->addWidget(new TrayIcon, 0, Qt::AlignHCenter);
    rows->addSpacing(line / 2);
    rows->addWidget(heading_, 0, Qt::AlignHCenter);
    rows->addWidget(hint, 0, Qt::AlignHCenter);
    rows->addStretch();
    setCursor(Qt::PointingHandCursor);
}

void DropPanel::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange)
        heading_->setFont(scaledFont(font(), kHeadingScale));
    QFrame::changeEvent(event);
}

void DropPanel::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint()))
        Q_EMIT clicked();
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
    const QColor highlight = accent(palette(), QPalette::Window);
    QColor fill = highlight;
    fill.setAlphaF(highlighted_ ? 0.16F : 0.04F);

    QPen pen(highlighted_ ? highlight : outline(palette()), kLineWidth, Qt::CustomDashLine,
             Qt::RoundCap);
    pen.setDashPattern({4, 4});
    painter.setPen(pen);
    painter.setBrush(fill);
    const double corner = fontMetrics().height() * kCornerInLines;
    const QRectF area = QRectF(rect()).adjusted(kLineWidth, kLineWidth, -kLineWidth, -kLineWidth);
    painter.drawRoundedRect(area, corner, corner);
}

} // namespace quenmoor
