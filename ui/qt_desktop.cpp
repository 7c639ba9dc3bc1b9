#include "ui/qt_desktop.h"

#include "ui/alerts.h"
#include "ui/look.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QSettings>
#include <QUrl>

namespace quenmoor {

QtDesktop::QtDesktop()
{
    // A path below a device cannot be made, so the settings stay in memory.
    QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("/dev/null"));
}

std::optional<std::int32_t> QtDesktop::runModal(QWidget* window, const Alert& alert)
{
    return runAlert(window, kProductName.toString(), alert);
}

void QtDesktop::openModal(QWidget* window, const QString& title, const Alert& alert,
                          std::function<void(std::int32_t)> answered)
{
    openAlert(window, title, alert, std::move(answered));
}

void QtDesktop::chooseFiles(QWidget* window,
                            std::function<void(const std::vector<FileUrl>&)> chosen)
{
    auto* const chooser = new QFileDialog(window, QStringLiteral("Choose Files to Upload"));
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    chooser->setAcceptMode(QFileDialog::AcceptOpen);
    chooser->setFileMode(QFileDialog::ExistingFiles);
    // Not urlsSelected, which the toolkit's own dialog does not emit for local files.
    QObject::connect(chooser, &QFileDialog::accepted, chooser,
                     [chooser, chosen = std::move(chosen)] {
                         std::vector<FileUrl> files;
                         for (const QUrl& url : chooser->selectedUrls()) {
                             const QByteArray encoded = url.toEncoded();
                             if (auto file = FileUrl::parse(encoded.toStdString()))
                                 files.push_back(*std::move(file));
                         }
                         chosen(files);
                     });
    chooser->open();
}

void QtDesktop::openUrl(const QUrl& url)
{
    QDesktopServices::openUrl(url);
}

} // namespace quenmoor
