#include "ui/alert_box.h"

#include "ui/appearance.h"
#include "ui/indicators.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QWindow>

namespace quenmoor {
namespace {

constexpr int kTextWidth = 60; // in average characters

bool isInput(QEvent::Type type)
{
    switch (type) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseButtonDblClick:
    case QEvent::MouseMove:
    case QEvent::Wheel:
    case QEvent::KeyPress:
    case QEvent::KeyRelease:
    case QEvent::ShortcutOverride:
    case QEvent::InputMethod:
    case QEvent::TouchBegin:
    case QEvent::TouchUpdate:
    case QEvent::TouchEnd:
    case QEvent::TabletPress:
    case QEvent::TabletMove:
    case QEvent::TabletRelease:
    case QEvent::NativeGesture:
    case QEvent::DragEnter:
    case QEvent::DragMove:
    case QEvent::Drop: return true;
    default: return false;
    }
}

// The icons of most styles are bitmaps of 32 pixels.
QPixmap warningIcon(const QWidget& box)
{
    const int side = box.style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, &box);
    const double ratio = box.devicePixelRatioF();
    QPixmap icon(QSize(side, side) * ratio);
    icon.setDevicePixelRatio(ratio);
    icon.fill(Qt::transparent);
    QPainter painter(&icon);
    paintState(painter, QRectF(0, 0, side, side), UploadState::Retrying,
               stateColor(UploadState::Retrying, box.palette()),
               box.palette().color(QPalette::Window));
    return icon;
}

} // namespace

bool AnswerGuard::acceptKey(Time now, const QKeyEvent& press)
{
    if (!press.isAutoRepeat() && now - quietSince_ >= kDelay)
        return true;
    const QString text = press.text();
    if (!text.isEmpty() && text.front().isPrint())
        quietSince_ = now;
    return false;
}

AlertBox::AlertBox(QWidget* window, const QString& subject, const Alert& alert, Now now)
    : QMessageBox(NoIcon, subject.isEmpty() ? kProductName.toString() : subject,
                  QString::fromStdString(alert.messageText), NoButton, parentFor(window)),
      now_(std::move(now)),
      guard_(now_())
{
    setAttribute(Qt::WA_DeleteOnClose);
    setIconPixmap(warningIcon(*this));
    setTexts(subject, alert);
    addAnswers(alert);
    for (QWidget* const child : findChildren<QWidget*>())
        child->installEventFilter(this);
}

QWidget* AlertBox::parentFor(QWidget* window)
{
    if (QWidget* const modal = QApplication::activeModalWidget())
        return modal;
    if (window == nullptr)
        return nullptr;
    const auto alerts = window->findChildren<AlertBox*>();
    return alerts.isEmpty() ? window : alerts.constLast();
}

void AlertBox::setTexts(const QString& subject, const Alert& alert)
{
    const int width = fontMetrics().averageCharWidth() * kTextWidth;
    QString body = QString::fromStdString(alert.informativeText);
    if (!subject.isEmpty()) {
        const QString line = fontMetrics().elidedText(subject, Qt::ElideMiddle, width);
        body = body.isEmpty() ? line : line + QStringLiteral("\n\n") + body;
    }
    setInformativeText(body);
    setTextInteractionFlags(Qt::TextSelectableByMouse);
    // setTextFormat() does not reach the informative text, which holds file names too.
    for (QLabel* const label : findChildren<QLabel*>())
        label->setTextFormat(Qt::PlainText);
    if (auto* const label = findChild<QLabel*>(QStringLiteral("qt_msgbox_informativelabel")))
        label->setMinimumWidth(std::min(width, fontMetrics().size(0, body).width()));
    setAccessibleName(text());
    setAccessibleDescription(informativeText());
}

void AlertBox::addAnswers(const Alert& alert)
{
    // Every desktop's button layout shows action buttons in the order of their insertion; it
    // reorders all other roles.
    for (const std::string& button : alert.buttons)
        addButton(QString::fromStdString(button), ActionRole);
    if (alert.buttons.empty())
        addButton(QStringLiteral("OK"), ActionRole);
    setDefaultButton(qobject_cast<QPushButton*>(buttons().constFirst()));
}

void AlertBox::present()
{
    const bool wasActive = QApplication::activeWindow() != nullptr;
    while (QWidget* const popup = QApplication::activePopupWidget())
        popup->close();
    QWidget* const below = parentWidget();
    if (qobject_cast<QDialog*>(below) != nullptr) {
        open();
    } else {
        if (below != nullptr && below->window()->windowHandle() != nullptr)
            below->window()->windowHandle()->installEventFilter(this);
        setWindowModality(Qt::NonModal); // every QMessageBox is modal at first
        show();
    }
    if (wasActive)
        activateWindow();
    else
        QApplication::alert(below != nullptr ? below : this);
}

std::int32_t AlertBox::answer() const
{
    const auto position = buttons().indexOf(clickedButton());
    return position < 0 ? kNoButton : kFirstButton + static_cast<std::int32_t>(position);
}

bool AlertBox::eventFilter(QObject* watched, QEvent* event)
{
    if (!watched->isWidgetType())
        return blocksInputBelow(event);
    switch (event->type()) {
    case QEvent::KeyPress: return !guard_.acceptKey(now_(), *static_cast<QKeyEvent*>(event));
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonDblClick: return !guard_.acceptClick(now_());
    default: return QMessageBox::eventFilter(watched, event);
    }
}

bool AlertBox::blocksInputBelow(QEvent* event)
{
    const QEvent::Type type = event->type();
    if (!isInput(type))
        return false;
    if (type == QEvent::MouseButtonPress || type == QEvent::TouchBegin ||
        type == QEvent::KeyPress) {
        raise();
        activateWindow();
    }
    // An accepted override keeps the window's shortcuts from running; a rejected drag is refused.
    event->setAccepted(type == QEvent::ShortcutOverride);
    return true;
}

void AlertBox::done(int result)
{
    QWidget* const below = parentWidget();
    const bool hadKeyboard = isActiveWindow();
    if (below != nullptr && below->window()->windowHandle() != nullptr)
        below->window()->windowHandle()->removeEventFilter(this);
    QMessageBox::done(result);
    if (below != nullptr && hadKeyboard)
        below->activateWindow();
}

bool AlertBox::event(QEvent* event)
{
    if (event->type() == QEvent::WindowActivate)
        guard_.receiveKeyboard(now_());
    // The box itself receives the keys while none of its buttons has the focus.
    if (event->type() == QEvent::KeyPress &&
        !guard_.acceptKey(now_(), *static_cast<QKeyEvent*>(event)))
        return true;
    return QMessageBox::event(event);
}

// QMessageBox refuses to close without a button in the role of Cancel.
void AlertBox::closeEvent(QCloseEvent* /*event*/)
{
    reject();
}

void AlertBox::keyPressEvent(QKeyEvent* event)
{
    if (event->matches(QKeySequence::Cancel))
        reject();
    else
        QMessageBox::keyPressEvent(event);
}

} // namespace quenmoor
