#include "ui/elided_label.h"

#include <QEvent>
#include <QPainter>
#include <QStyle>

namespace quenmoor {
namespace {

constexpr int kFewestCharacters = 12;

} // namespace

void ElidedLabel::setElidedText(const QString& text, const QString& toolTip)
{
    setTextFormat(Qt::PlainText);
    setText(text);
    setToolTip(toolTip);
}

QSize ElidedLabel::minimumSizeHint() const
{
    QSize size = QLabel::minimumSizeHint();
    size.setWidth(std::min(size.width(), fontMetrics().averageCharWidth() * kFewestCharacters));
    return size;
}

void ElidedLabel::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const Qt::Alignment side = QStyle::visualAlignment(layoutDirection(), alignment());
    style()->drawItemText(&painter, contentsRect(), static_cast<int>(side.toInt()), palette(),
                          isEnabled(), shown(), foregroundRole());
}

bool ElidedLabel::event(QEvent* event)
{
    // Without a tip of its own, the label explains itself only while something is missing.
    if (event->type() == QEvent::ToolTip && toolTip().isEmpty() && shown() != text()) {
        setToolTip(text());
        const bool handled = QLabel::event(event);
        setToolTip({});
        return handled;
    }
    return QLabel::event(event);
}

QString ElidedLabel::shown() const
{
    return fontMetrics().elidedText(text(), Qt::ElideMiddle, contentsRect().width());
}

} // namespace quenmoor
