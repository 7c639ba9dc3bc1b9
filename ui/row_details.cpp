#include "ui/row_details.h"

#include "ui/appearance.h"
#include "ui/desktop_bus.h"
#include "ui/status_table_model.h"

#include <QAction>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QLocale>
#include <QShortcut>
#include <QTableView>
#include <QUrl>
#include <algorithm>

namespace quenmoor {
namespace {

using namespace Qt::StringLiterals;

// 1 MB is 1048576 bytes here, as in the status texts.
QString sizeText(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeTraditionalFormat);
}

QString durationText(std::chrono::seconds time)
{
    const auto seconds = time.count();
    if (seconds < 60)
        return u"%1 s"_s.arg(seconds);
    if (seconds < 3600)
        return u"%1 min %2 s"_s.arg(seconds / 60).arg(seconds % 60);
    return u"%1 h %2 min"_s.arg(seconds / 3600).arg(seconds / 60 % 60);
}

QString stepText(AttemptStep step)
{
    const std::string_view name = stepName(step);
    return QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size()));
}

QString attemptText(const AttemptEvent& event)
{
    const std::string_view phase = phaseName(event.step);
    const QString attempt = u"Attempt %1 of %2"_s.arg(event.attemptInRow).arg(event.attemptLimit);
    switch (event.kind) {
    case AttemptEventKind::Started:
    case AttemptEventKind::StepChanged:
    case AttemptEventKind::Progress:
        return attempt + u": %1 (step: %2)"_s.arg(
                             QString::fromUtf8(phase.data(), static_cast<qsizetype>(phase.size())),
                             stepText(event.step));
    case AttemptEventKind::Failed: return attempt + u" failed"_s;
    case AttemptEventKind::Waiting:
        return attempt +
               u" failed, the next one begins in %1"_s.arg(durationText(event.secondsLeft));
    case AttemptEventKind::Finished: return u"The server has confirmed the upload."_s;
    case AttemptEventKind::Cancelled: return u"The copy on the server was left unchanged."_s;
    case AttemptEventKind::GaveUp: return attempt + u" failed; no further attempt follows"_s;
    }
    return {};
}

QString progressText(const AttemptEvent& event)
{
    const qint64 bytes = event.kind == AttemptEventKind::Finished ? event.total : event.bytes;
    QString text = u"%1 of %2, %3 elapsed"_s.arg(
        sizeText(bytes), sizeText(event.total),
        durationText(std::chrono::duration_cast<std::chrono::seconds>(event.elapsed)));
    if (const auto left = timeLeft(event))
        text += u", about %1 left"_s.arg(durationText(*left));
    return text;
}

QModelIndexList selectedRows(const QTableView& table)
{
    QModelIndexList rows = table.selectionModel()->selectedRows();
    if (rows.empty() && table.currentIndex().isValid())
        rows << table.currentIndex();
    std::sort(rows.begin(), rows.end());
    return rows;
}

void copyDetails(const QTableView& table)
{
    QStringList texts;
    for (const QModelIndex& row : selectedRows(table))
        texts << row.data(StatusTableModel::DetailsRole).toString();
    QGuiApplication::clipboard()->setText(texts.join(u"\n\n"_s));
}

void copyRow(const QTableView& table)
{
    QStringList lines;
    for (const QModelIndex& row : selectedRows(table)) {
        QStringList cells;
        for (int column = 0; column < StatusTableModel::ColumnCount; ++column)
            cells << row.siblingAtColumn(column).data().toString();
        lines << cells.join(u'\t');
    }
    QGuiApplication::clipboard()->setText(lines.join(u'\n'));
}

void openFolders(const QStringList& fileUrls)
{
    QStringList folders;
    for (const QString& url : fileUrls)
        folders << url.section(u'/', 0, -2) + u'/';
    folders.removeDuplicates();
    for (const QString& folder : folders)
        QDesktopServices::openUrl(QUrl::fromEncoded(folder.toLatin1()));
}

// A file manager that implements the interface selects the files; otherwise their folders open.
void showInFolder(QTableView& table)
{
    QStringList urls;
    for (const QModelIndex& row : selectedRows(table))
        urls << row.data(StatusTableModel::UrlRole).toString();
    if (urls.empty())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        u"org.freedesktop.FileManager1"_s, u"/org/freedesktop/FileManager1"_s,
        u"org.freedesktop.FileManager1"_s, u"ShowItems"_s);
    const QString noStartupId;
    call << urls << noStartupId;
    callAsync(QDBusConnection::sessionBus(), call, &table, [urls](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage)
            openFolders(urls);
    });
}

// Qt opens the menu for the menu key only.
void openMenu(QTableView& table)
{
    QWidget* const viewport = table.viewport();
    const QPoint place = table.visualRect(table.currentIndex()).center();
    QContextMenuEvent event(QContextMenuEvent::Keyboard, place, viewport->mapToGlobal(place));
    QCoreApplication::sendEvent(viewport, &event);
}

} // namespace

void RowHistory::add(const AttemptEvent& event)
{
    latest_ = event;
    if (event.kind == AttemptEventKind::Failed || event.kind == AttemptEventKind::GaveUp)
        failure_ =
            u"Attempt %1 failed at the step %2: "_s.arg(event.attempt).arg(stepText(event.step)) +
            printableQString(event.reason);
}

QString RowHistory::details(const FileUrl& file) const
{
    QStringList lines{printableQString(file.filename()), printableQString(file.path().native())};
    if (!latest_)
        return (lines << u"Waits for the uploads before it."_s).join(u'\n');
    lines << attemptText(*latest_) << progressText(*latest_);
    if (!failure_.isEmpty())
        lines << failure_;
    if (latest_->sourceChanged)
        lines << u"The file has changed since it was queued."_s;
    return lines.join(u'\n');
}

void addRowActions(QTableView& table)
{
    const auto add = [&table](const QString& text, const QKeySequence& key, auto act) {
        auto* const action = new QAction(text, &table);
        action->setShortcut(key);
        action->setShortcutContext(Qt::WidgetShortcut);
        QObject::connect(action, &QAction::triggered, &table, [&table, act] { act(table); });
        table.addAction(action);
    };
    add(u"Copy &Details"_s, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C), copyDetails);
    add(u"&Copy Row"_s, QKeySequence(QKeySequence::Copy), copyRow);
    add(u"Show in &Folder"_s, {}, showInFolder);
    new QShortcut(
        QKeySequence(Qt::SHIFT | Qt::Key_F10), &table, [&table] { openMenu(table); },
        Qt::WidgetShortcut);
    table.setContextMenuPolicy(Qt::ActionsContextMenu);
}

} // namespace quenmoor
