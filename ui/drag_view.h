// The main view: takes files that are dropped anywhere on the window, while it is registered for
// them.
#pragma once

#include "queue/file_url.h"

#include <QWidget>
#include <vector>

class QMimeData;

namespace quenmoor {

// Main thread only.
class DragView : public QWidget {
    Q_OBJECT

public:
    using QWidget::QWidget;

    void registerForDraggedTypes() { setAcceptDrops(true); }
    void unregisterDraggedTypes();

    // The files that `mimeData` names, in its order. Anything else in it is passed over.
    static std::vector<FileUrl> draggedFiles(const QMimeData& mimeData);

Q_SIGNALS:
    // One list for each drop; it may be empty.
    void filesDropped(const std::vector<quenmoor::FileUrl>& files);

    // A drag that would be taken has come over the view, or has gone.
    void dragHovers(bool hovers);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    void performDrag(const QMimeData& mimeData);
};

} // namespace quenmoor
