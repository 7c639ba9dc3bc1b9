#include "ui/desktop.h"

#include <QDesktopServices>
#include <QEventLoop>
#include <QFileDialog>
#include <QPointer>
#include <QSettings>
#include <QUrl>

namespace quenmoor {
namespace {

AlertBox* openAlert(QWidget* window, const QString& subject, const Alert& alert, AlertBox::Now now,
                    std::function<void(std::int32_t)> onAnswer)
{
    auto* const box = new AlertBox(window, subject, alert, std::move(now));
    QObject::connect(box, &QDialog::finished, box,
                     [box, onAnswer = std::move(onAnswer)] { onAnswer(box->answer()); });
    box->present();
    return box;
}

} // namespace

QtDesktop::QtDesktop(AlertBox::Now now) : now_(std::move(now))
{
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("/dev/null"));
}

std::optional<std::int32_t> QtDesktop::runModal(QWidget* window, const Alert& alert)
{
    std::optional<std::int32_t> answer;
    QEventLoop loop;
    const QPointer<AlertBox> box =
        openAlert(window, {}, alert, now_, [&answer, &loop](std::int32_t given) {
            answer = given;
            loop.quit();
        });
    QObject::connect(box, &QObject::destroyed, &loop, &QEventLoop::quit);
    loop.exec();
    if (!answer)
        delete box; // the program is ending; a closed box would count as an answer
    return answer;
}

void QtDesktop::openModal(QWidget* window, const QString& subject, const Alert& alert,
                          std::function<void(std::int32_t)> onAnswer)
{
    openAlert(window, subject, alert, now_, std::move(onAnswer));
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
