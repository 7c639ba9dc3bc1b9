#include "ui/page/page_input_filter.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QStyleHints>
#include <algorithm>
#include <utility>

namespace quenmoor {
namespace {

bool isHistoryKey(const QKeyEvent& key)
{
    const bool isArrow = key.key() == Qt::Key_Left || key.key() == Qt::Key_Right;
    return key.key() == Qt::Key_Back || key.key() == Qt::Key_Forward ||
           (isArrow && key.modifiers().testFlag(Qt::AltModifier));
}

bool isHistoryButton(const QEvent& event)
{
    const Qt::MouseButton button = static_cast<const QMouseEvent&>(event).button();
    return button == Qt::BackButton || button == Qt::ForwardButton;
}

} // namespace

PageInputFilter::PageInputFilter(QWidget* area) : QObject(area), area_(area)
{
    qApp->installEventFilter(this);
}

void PageInputFilter::beginLoad()
{
    if (latestPress_)
        pressBeforeLoad_ = std::exchange(latestPress_, std::nullopt);
    isKeyFresh_ = false;
}

bool PageInputFilter::swallowsPress(const QInputEvent& event)
{
    const auto limit =
        static_cast<quint64>(QGuiApplication::styleHints()->mouseDoubleClickInterval());
    if (event.timestamp() != 0) { // 0: sent by a program
        if (pressBeforeLoad_ && event.timestamp() - *pressBeforeLoad_ < limit)
            return true;
        latestPress_ = event.timestamp();
    }
    return false;
}

bool PageInputFilter::eventFilter(QObject* receiver, QEvent* event)
{
    return event->isInputEvent() && isInArea(receiver) && swallows(event);
}

bool PageInputFilter::isInArea(const QObject* receiver) const
{
    // The receiver may be an object of the browser engine, which is built without type information:
    // it is only compared.
    const auto widgets = area_ ? area_->findChildren<QWidget*>() : QList<QWidget*>();
    return std::any_of(widgets.begin(), widgets.end(),
                       [&](const QObject* widget) { return widget == receiver; });
}

bool PageInputFilter::swallows(QEvent* event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick:
        isSwallowing_ = isHistoryButton(*event) || swallowsPress(static_cast<QInputEvent&>(*event));
        return isSwallowing_;
    case QEvent::TouchBegin:
        isSwallowing_ = swallowsPress(static_cast<QInputEvent&>(*event));
        return isSwallowing_;
    case QEvent::MouseButtonRelease:
    case QEvent::TouchEnd:
    case QEvent::TouchCancel: return std::exchange(isSwallowing_, false);
    case QEvent::MouseMove:
    case QEvent::TouchUpdate: return isSwallowing_;
    case QEvent::KeyPress: {
        const auto& key = static_cast<const QKeyEvent&>(*event);
        if (isHistoryKey(key))
            return true;
        if (!key.isAutoRepeat())
            isKeyFresh_ = !swallowsPress(key);
        return !isKeyFresh_;
    }
    default: return false;
    }
}

} // namespace quenmoor
