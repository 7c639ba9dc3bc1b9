#include "tests/end_to_end/whole_window.h"

#include "base/text.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"

#include <QApplication>
#include <QDropEvent>
#include <QMimeData>
#include <QPushButton>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace quenmoor {

using namespace Qt::StringLiterals;

namespace {

constexpr int kTimeLimit = 60'000; // milliseconds

QString pageOf(const LocalService& service, const QString& other)
{
    return !other.isEmpty() ? other : baseUrl(u"localhost"_s, service.pageServer->port());
}

} // namespace

WholeWindow::WholeWindow(LocalService& service, const QString& pageUrl)
    : link("127.0.0.1", service.server->port()),
      engine(queues, link, view, clock),
      page(pageOf(service, pageUrl), [this](const QUrl& url) { desktop.openUrl(url); }),
      controller({queues, engine, view, page, delegate, desktop},
                 {u"1.0.0"_s, {1, 0, 0}, pageOf(service, pageUrl)})
{
    static const EndSignals endSignals;
    connectEnd(controller, delegate, view, bridge, endSignals);
}

WholeWindow::~WholeWindow()
{
    bridge.close();
    clock.end();
    if (!engine.waitForEnd(std::chrono::minutes(1)))
        qFatal("the upload thread does not end");
}

void WholeWindow::start()
{
    controller.viewDidLoad();
    window.show();
    QVERIFY(QTest::qWaitFor([this] { return window.mainView->acceptDrops(); }, kTimeLimit));
}

void WholeWindow::drop(const std::vector<std::filesystem::path>& paths)
{
    QByteArray list;
    for (const auto& path : paths)
        list += QByteArray::fromStdString(FileUrl::fromPath(path).text()) + "\r\n";
    QMimeData data;
    data.setData(u"text/uri-list"_s, list);
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.mainView, &enter); // Qt ignores a drop without it
    QDropEvent dropped(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(window.mainView, &dropped);
}

QString WholeWindow::inPage(const QString& script)
{
    using Result = std::optional<QString>;
    auto result = std::make_shared<Result>(QString()); // shared with a callback that may come late
    const bool found = QTest::qWaitFor(
        [&] {
            if (!*result || !(*result)->isEmpty())
                return result->has_value();
            result = std::make_shared<Result>();
            page.widget()->findChild<QWebEngineView*>()->page()->runJavaScript(
                script, [result](const QVariant& value) { *result = value.toString(); });
            return false;
        },
        kTimeLimit);
    return found ? **result : u"(nothing)"_s;
}

void WholeWindow::answerPage(const std::string& name, const QString& button)
{
    const QString shown = printableQString(name);
    QVERIFY2(QTest::qWaitFor([&] { return window.filenameLabel->text() == shown; }, kTimeLimit),
             qPrintable(shown));
    const std::size_t before = queues.fileQueue().size();
    // The query excludes the page of the previous file.
    const QString click = uR"((() => {
        const button = document.getElementById('%1');
        if (!location.search.includes('%2') || !button || button.closest('[hidden]') ||
            button.disabled || button.clicked)
            return '';
        button.clicked = true;
        setTimeout(() => button.click()); // an answer ends the page and would lose this result
        return 'clicked'; })())"_s;
    const std::string query = "&filename=" + percentEncodeQuery(name) + "&size=";
    QCOMPARE(inPage(click.arg(button, QString::fromStdString(query))), u"clicked"_s);
    QVERIFY(QTest::qWaitFor([&] { return queues.fileQueue().size() < before; }, kTimeLimit));
}

QString WholeWindow::answerAlert(const QString& button)
{
    // With a timer, because runModal() runs an event loop inside the wait of this function.
    QString title;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        const auto* const alert = window.findChild<AlertBox*>();
        if (alert == nullptr || !title.isEmpty())
            return;
        for (QPushButton* const candidate : alert->findChildren<QPushButton*>()) {
            if (candidate->text() != button)
                continue;
            title = alert->windowTitle();
            candidate->click();
            return;
        }
    });
    poll.start(10);
    return QTest::qWaitFor([&title] { return !title.isEmpty(); }, kTimeLimit) ? title : QString();
}

bool WholeWindow::waitForStatus(std::size_t row, const QString& status)
{
    const QModelIndex cell = window.progressGrid->model()->index(static_cast<int>(row), 1);
    return QTest::qWaitFor([&cell, &status] { return cell.data().toString() == status; },
                           kTimeLimit);
}

} // namespace quenmoor
