#include "ui/desktop.h"

#include "ui/appearance.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QEventLoop>
#include <QFileDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QSettings>
#include <QUrl>

namespace quenmoor {
namespace {

// A message box whose answer is the position of the button, in the order of the alert.
class AlertBox : public QMessageBox {
public:
    AlertBox(QWidget* window, const QString& title, const Alert& alert)
        : QMessageBox(Critical, title, QString::fromStdString(alert.messageText), NoButton, window)
    {
        setAttribute(Qt::WA_DeleteOnClose);
        setInformativeText(QString::fromStdString(alert.informativeText));
        setTextInteractionFlags(Qt::TextSelectableByMouse);
        // setTextFormat() does not reach the informative text, which holds file names too.
        for (QLabel* const label : findChildren<QLabel*>())
            label->setTextFormat(Qt::PlainText);
        setAccessibleName(text());
        setAccessibleDescription(informativeText());
        // Every desktop's button layout shows action buttons in the order of their insertion; it
        // reorders all other roles.
        for (const std::string& button : alert.buttons)
            addButton(QString::fromStdString(button), ActionRole);
        if (alert.buttons.empty())
            addButton(QStringLiteral("OK"), ActionRole);
        setDefaultButton(qobject_cast<QPushButton*>(buttons().constFirst()));
    }

    // Opens the box, and requests the user's attention if none of the program's windows is active.
    void present()
    {
        const bool wasActive = QApplication::activeWindow() != nullptr;
        open();
        if (!wasActive)
            QApplication::alert(parentWidget() != nullptr ? parentWidget() : this);
    }

    std::int32_t answer() const
    {
        const auto position = buttons().indexOf(clickedButton());
        return position < 0 ? kNoButton : kFirstButton + static_cast<std::int32_t>(position);
    }

protected:
    // QMessageBox refuses to close without a button in the role of Cancel.
    void closeEvent(QCloseEvent* /*event*/) override { reject(); }
    void keyPressEvent(QKeyEvent* event) override
    {
        if (event->matches(QKeySequence::Cancel))
            reject();
        else
            QMessageBox::keyPressEvent(event);
    }
};

AlertBox* openAlert(QWidget* window, const QString& title, const Alert& alert,
                    std::function<void(std::int32_t)> onAnswer)
{
    auto* const box = new AlertBox(window, title, alert);
    QObject::connect(box, &QDialog::finished, box,
                     [box, onAnswer = std::move(onAnswer)] { onAnswer(box->answer()); });
    box->present();
    return box;
}

} // namespace

QtDesktop::QtDesktop()
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("/dev/null"));
}

std::optional<std::int32_t> QtDesktop::runModal(QWidget* window, const Alert& alert)
{
    std::optional<std::int32_t> answer;
    QEventLoop loop;
    const QPointer<AlertBox> box =
        openAlert(window, kProductName.toString(), alert, [&answer, &loop](std::int32_t given) {
            answer = given;
            loop.quit();
        });
    loop.exec();
    if (!answer)
        delete box; // the program is ending; a closed box would count as an answer
    return answer;
}

void QtDesktop::openModal(QWidget* window, const QString& title, const Alert& alert,
                          std::function<void(std::int32_t)> onAnswer)
{
    openAlert(window, title, alert, std::move(onAnswer));
}

void QtDesktop::chooseFiles(QWidget* window,
                            std::function<void(const std::vector<FileUrl>&)> onChosen)
{
    auto* const chooser = new QFileDialog(window, QStringLiteral("Choose Files to Upload"));
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    chooser->setAcceptMode(QFileDialog::AcceptOpen);
    chooser->setFileMode(QFileDialog::ExistingFiles);
    // Qt's own dialog does not emit urlsSelected for local files.
    QObject::connect(chooser, &QFileDialog::accepted, chooser,
                     [chooser, onChosen = std::move(onChosen)] {
                         std::vector<FileUrl> files;
                         for (const QUrl& url : chooser->selectedUrls()) {
                             const QByteArray encoded = url.toEncoded();
                             if (auto file = FileUrl::parse(encoded.toStdString()))
                                 files.push_back(*std::move(file));
                         }
                         onChosen(files);
                     });
    chooser->open();
}

void QtDesktop::openUrl(const QUrl& url)
{
    QDesktopServices::openUrl(url);
}

} // namespace quenmoor
