// Files dropped on the window: the main view, which receives the drag, and the panel that invites
// the user to drop files.
#pragma once

#include "queue/file_url.h"

#include <QFrame>
#include <QWidget>
#include <vector>

class QLabel;
class QMimeData;

namespace quenmoor {

// The window's central widget. It accepts drags only while it is registered for them. Main thread
// only.
class DragView : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    void registerForDraggedTypes() { setAcceptDrops(true); }
    void unregisterDraggedTypes();

    // Returns the local files in the URI list of `mimeData`, in its order. Skips all other entries.
    static std::vector<FileUrl> draggedFiles(const QMimeData& mimeData);

Q_SIGNALS:
    // Emitted once for each drop. The list may be empty.
    void filesDropped(const std::vector<quenmoor::FileUrl>& files);

    // An acceptable drag entered the view (true), or left it or was dropped (false).
    void dragActiveChanged(bool active);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;
};

// A dashed frame with an arrow icon, in the colours of the palette. Main thread only.
class DropPanel : public QFrame {
    Q_OBJECT

public:
    explicit DropPanel(QWidget* parent = nullptr);

    // Highlights the frame during a drag.
    void setHighlighted(bool highlighted);

Q_SIGNALS:
    void clicked();

protected:
    void changeEvent(QEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

private:
    QLabel* heading_;
    bool highlighted_ = false;
};

} // namespace quenmoor
