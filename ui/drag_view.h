// Files dropped on the window: the main view, which receives the drag, and the panel that invites
// the user to drop files.
#pragma once

#include "queue/file_url.h"

#include <QFrame>
#include <QWidget>
#include <vector>

class QMimeData;
class QVBoxLayout;

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

// A dashed frame with an arrow icon, in the colours of the palette.
class DropPanel : public QFrame {
    Q_OBJECT

public:
    explicit DropPanel(QWidget* parent = nullptr);

    // The layout that holds the Browse button while the panel is visible.
    QVBoxLayout* buttonLayout() const { return buttonLayout_; }

    // Highlights the frame during a drag.
    void setHighlighted(bool highlighted);

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QVBoxLayout* buttonLayout_;
    bool highlighted_ = false;
};

} // namespace quenmoor
