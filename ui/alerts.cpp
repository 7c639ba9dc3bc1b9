#include "ui/alerts.h"

#include <QAccessible>
#include <QApplication>
#include <QDialog>
#include <QEventLoop>
#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace quenmoor {
namespace {

constexpr int kTextWidthInCharacters = 46;

QLabel* textLabel(const std::string& text)
{
    auto* const label = new QLabel(QString::fromStdString(text));
    label->setTextFormat(Qt::PlainText);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    label->setMinimumWidth(label->fontMetrics().averageCharWidth() * kTextWidthInCharacters);
    return label;
}

// Escape and the close button end it with QDialog::Rejected.
static_assert(kNoButton == QDialog::Rejected);

class AlertDialog : public QDialog {
public:
    AlertDialog(QWidget* window, const QString& title, const Alert& alert) : QDialog(window)
    {
        setAttribute(Qt::WA_DeleteOnClose);
        setWindowModality(Qt::ApplicationModal);
        setWindowTitle(title);
        setAccessibleName(QString::fromStdString(alert.messageText));
        setAccessibleDescription(QString::fromStdString(alert.informativeText));

        const int gap = fontMetrics().height();
        auto* const rows = new QVBoxLayout(this);
        rows->setContentsMargins(gap, gap, gap, gap);
        rows->setSpacing(gap);
        rows->addLayout(messageRow(alert, gap));
        rows->addLayout(buttonRow(alert));
        rows->setSizeConstraint(QLayout::SetFixedSize);
    }

    // Calls the user to a window that he does not look at.
    void present()
    {
        const bool inFront = QApplication::activeWindow() != nullptr;
        open();
        if (!inFront)
            QApplication::alert(parentWidget() != nullptr ? parentWidget() : this);
        QAccessibleEvent raised(this, QAccessible::Alert);
        QAccessible::updateAccessibility(&raised);
    }

private:
    QHBoxLayout* messageRow(const Alert& alert, int gap)
    {
        auto* const icon = new QLabel;
        const int size = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
        const QIcon critical = style()->standardIcon(QStyle::SP_MessageBoxCritical, nullptr, this);
        icon->setPixmap(critical.pixmap(QSize(size, size), devicePixelRatioF()));

        auto* const texts = new QVBoxLayout;
        texts->setSpacing(gap / 2);
        QLabel* const message = textLabel(alert.messageText);
        QFont bold = message->font();
        bold.setBold(true);
        message->setFont(bold);
        texts->addWidget(message);
        if (!alert.informativeText.empty())
            texts->addWidget(textLabel(alert.informativeText));
        texts->addStretch();

        auto* const row = new QHBoxLayout;
        row->setSpacing(gap);
        row->addWidget(icon, 0, Qt::AlignTop);
        row->addLayout(texts, 1);
        return row;
    }

    QHBoxLayout* buttonRow(const Alert& alert)
    {
        auto* const row = new QHBoxLayout;
        row->addStretch();
        const std::vector<std::string> titles =
            alert.buttons.empty() ? std::vector<std::string>{"OK"} : alert.buttons;
        std::int32_t answer = kFirstButton;
        for (const std::string& title : titles) {
            auto* const button = new QPushButton(QString::fromStdString(title));
            button->setAutoDefault(true);
            button->setDefault(answer == kFirstButton);
            connect(button, &QPushButton::clicked, this, [this, answer] { done(answer); });
            row->addWidget(button);
            if (answer == kFirstButton)
                button->setFocus();
            ++answer;
        }
        return row;
    }
};

} // namespace

void openAlert(QWidget* window, const QString& title, const Alert& alert,
               std::function<void(std::int32_t)> answered)
{
    auto* const dialog = new AlertDialog(window, title, alert);
    QObject::connect(dialog, &QDialog::finished, dialog, std::move(answered));
    dialog->present();
}

std::optional<std::int32_t> runAlert(QWidget* window, const QString& title, const Alert& alert)
{
    std::optional<std::int32_t> answer;
    QEventLoop loop;
    const QPointer<AlertDialog> dialog = new AlertDialog(window, title, alert);
    QObject::connect(dialog, &QDialog::finished, &loop, [&answer, &loop](std::int32_t given) {
        answer = given;
        loop.quit();
    });
    dialog->present();
    loop.exec();
    if (!answer)
        delete dialog;
    return answer;
}

} // namespace quenmoor
