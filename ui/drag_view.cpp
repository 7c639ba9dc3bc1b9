#include "ui/drag_view.h"

#include "base/log.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>

namespace quenmoor {
namespace {

constexpr auto kUriList = QLatin1StringView("text/uri-list");

// "file:///a" and, from some desktops, "file:/a".
std::optional<FileUrl> fileUrlOf(const QByteArray& line)
{
    // The bytes first: taking them through a toolkit's URL would lose those that are not UTF-8.
    if (auto file = FileUrl::parse(std::string_view(line.constData(), std::size_t(line.size()))))
        return file;
    return FileUrl::parse(QUrl::fromEncoded(line).toEncoded().toStdString());
}

} // namespace

void DragView::unregisterDraggedTypes()
{
    setAcceptDrops(false);
    Q_EMIT dragHovers(false);
}

// RFC 2483, section 5: one URI to a line, lines that begin with "#" are remarks.
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
    if (!event->mimeData()->hasFormat(kUriList))
        return;
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT dragHovers(true);
}

void DragView::dragMoveEvent(QDragMoveEvent* event)
{
    event->setDropAction(Qt::CopyAction);
    event->accept();
}

void DragView::dragLeaveEvent(QDragLeaveEvent* event)
{
    event->accept();
    Q_EMIT dragHovers(false);
}

void DragView::dropEvent(QDropEvent* event)
{
    event->setDropAction(Qt::CopyAction);
    event->accept();
    Q_EMIT dragHovers(false);
    performDrag(*event->mimeData());
}

void DragView::performDrag(const QMimeData& mimeData)
{
    const std::vector<FileUrl> files = draggedFiles(mimeData);
    for (const FileUrl& file : files)
        logSystem("File dropped in DragView: {}", file.path().native());
    Q_EMIT filesDropped(files);
}

} // namespace quenmoor
