// Keeps input away from a page that was not meant for it.
//
// Swallows the mouse buttons and keys for Back and Forward. After a load has begun it also swallows
// what the user began on the previous page: the second press of a double click, and the repetitions
// of a key that is held down. Without this, one gesture on a button of the page could answer for
// two files.
#pragma once

#include <QInputEvent>
#include <QPointer>
#include <QWidget>

namespace quenmoor {

// Main thread only. Filters the events of the whole application, because the browser engine
// replaces the widget that receives a page's input.
class PageInputFilter : public QObject {
    Q_OBJECT

public:
    // Filters the events of the widgets below `area`.
    explicit PageInputFilter(QWidget* area);

    // Call it when a load begins.
    void beginLoad();

    bool eventFilter(QObject* receiver, QEvent* event) override;

private:
    bool isInArea(const QObject* receiver) const;
    bool swallows(QEvent* event);
    bool swallowsPress(const QInputEvent& event);

    const QPointer<QWidget> area_;

    // Timestamps of events, in milliseconds.
    std::optional<quint64> latestPress_;
    std::optional<quint64> pressBeforeLoad_; // the latest one on an earlier page
    bool isSwallowing_ = false;              // the rest of a mouse or touch gesture
    bool isKeyFresh_ = true;                 // a key was pressed since the load began
};

} // namespace quenmoor
