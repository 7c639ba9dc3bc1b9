#include "ui/notice_line.h"

#include <QAccessible>
#include <QAccessibleWidget>

namespace quenmoor {
namespace {

constexpr std::chrono::seconds kShownFor{20};

// Screen readers read an object with this role aloud when it appears.
QAccessibleInterface* makeInterface(const QString& className, QObject* object)
{
    if (className != QLatin1StringView(NoticeLine::staticMetaObject.className()))
        return nullptr;
    return new QAccessibleWidget(static_cast<QWidget*>(object), QAccessible::Notification);
}

} // namespace

NoticeLine::NoticeLine(QWidget* parent) : QLabel(parent)
{
    QAccessible::installFactory(makeInterface);
    setTextFormat(Qt::PlainText);
    setWordWrap(true);
    hide();
    hideTimer_.setSingleShot(true);
    hideTimer_.setInterval(kShownFor);
    connect(&hideTimer_, &QTimer::timeout, this, [this] { showNotice({}); });
}

void NoticeLine::showNotice(const QString& text)
{
    hide(); // a second notice appears anew for screen readers
    hideTimer_.stop();
    setText(text);
    setAccessibleName(text);
    if (text.isEmpty())
        return;
    show();
    hideTimer_.start();
}

} // namespace quenmoor
