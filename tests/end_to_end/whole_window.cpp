#include "tests/end_to_end/whole_window.h"

#include "base/text.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"
#include "ui/service_page.h"
#include "ui/startup_and_exit.h"

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

constexpr int kPatience = 60'000;

PageSettings onFreePort(PageSettings settings)
{
    settings.port = 0;
    return settings;
}

void must(bool fine, const std::string& error)
{
    if (!fine)
        qFatal("%s", error.c_str());
}

} // namespace

WholeWindow::WholeWindow(const Certificate& certificate, PageSettings settings)
    : pageServer(onFreePort(std::move(settings)), certificate, sessions)
{
    std::string error;
    must(pageServer.start(error), error);
    store = UploadStore::open(root.path(), error);
    must(store != nullptr, error);
    startTransferServer(0);

    link = std::make_unique<UdtTransferLink>("127.0.0.1", transferServer->port());
    engine = std::make_unique<UploadEngine>(queues, *link, view, clock);
    const QString base = baseUrl(u"localhost"_s, pageServer.port());
    page =
        std::make_unique<WebServicePage>(base, [this](const QUrl& url) { desktop.openUrl(url); });
    controller = std::make_unique<ViewController>(
        ViewController::Dependencies{queues, *engine, view, *page, delegate, desktop},
        ViewController::Client{u"1.0.0"_s, {1, 0, 0}, base});
    static const EndSignals endSignals;
    connectEnd(*controller, delegate, view, bridge, endSignals);
}

WholeWindow::~WholeWindow()
{
    bridge.close();
    clock.end();
    must(engine->waitForEnd(std::chrono::minutes(1)), "the upload thread does not end");
}

void WholeWindow::startTransferServer(std::uint16_t port)
{
    TransferServerSettings settings;
    settings.port = port;
    std::string error;
    // The library gives a port back some time after its listener was closed.
    const bool started = QTest::qWaitFor(
        [&] {
            transferServer = std::make_unique<TransferServer>(settings, *store, tokens);
            return transferServer->start(error);
        },
        kPatience);
    must(started, error);
}

void WholeWindow::restartTransferServer()
{
    const std::uint16_t port = transferServer->port();
    transferServer.reset();
    startTransferServer(port);
}

void WholeWindow::start()
{
    controller->viewDidLoad();
    controller->window().show();
    QVERIFY(QTest::qWaitFor([this] { return controller->window().mainView->acceptDrops(); },
                            kPatience));
}

void WholeWindow::drop(const std::vector<std::filesystem::path>& paths)
{
    QByteArray list;
    for (const auto& path : paths)
        list += QByteArray::fromStdString(FileUrl::fromPath(path).text()) + "\r\n";
    QMimeData data;
    data.setData(u"text/uri-list"_s, list);
    DragView* const view_ = controller->window().mainView;
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view_, &enter);
    QVERIFY(enter.isAccepted());
    QDropEvent dropped(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(view_, &dropped);
}

QString WholeWindow::inPage(const QString& script)
{
    const auto answer = std::make_shared<std::optional<QString>>(); // kept by the callback
    page->widget()->findChild<QWebEngineView*>()->page()->runJavaScript(
        script, [answer](const QVariant& value) { *answer = value.toString(); });
    if (!QTest::qWaitFor([&answer] { return answer->has_value(); }, kPatience))
        return {};
    return **answer;
}

void WholeWindow::answerPage(const std::string& name, const QString& button)
{
    const QString shown = printableQString(name);
    QVERIFY2(QTest::qWaitFor([&] { return controller->window().filenameLabel->text() == shown; },
                             kPatience),
             qPrintable(shown));
    // The page of this very file, and not the one before; a button is pressed once.
    const QString query =
        QString::fromStdString("&filename=" + percentEncodeQuery(name) + "&size=");
    const QString press = uR"((() => {
        const button = document.getElementById('%1');
        if (!location.search.includes('%2') || !button || button.closest('[hidden]') ||
            button.disabled || button.pressed)
            return '';
        button.pressed = true;
        button.click();
        return 'pressed'; })())"_s.arg(button, query);
    const std::size_t before = queues.fileQueue().size();
    QVERIFY(QTest::qWaitFor([&] { return inPage(press) == u"pressed"; }, kPatience));
    QVERIFY(QTest::qWaitFor([&] { return queues.fileQueue().size() < before; }, kPatience));
}

bool WholeWindow::waitForAlert()
{
    return QTest::qWaitFor([] { return QApplication::activeModalWidget() != nullptr; }, kPatience);
}

void WholeWindow::answerAlert(const QString& button)
{
    // By a timer: an alert that the window waits for has an event loop of its own, inside of this
    // function's wait.
    bool pressed = false;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, [&] {
        const QWidget* const alert = QApplication::activeModalWidget();
        if (alert == nullptr || pressed)
            return;
        for (QPushButton* const one : alert->findChildren<QPushButton*>()) {
            if (one->text() != button)
                continue;
            pressed = true;
            one->click();
            return;
        }
    });
    poll.start(10);
    QVERIFY2(QTest::qWaitFor([&pressed] { return pressed; }, kPatience), qPrintable(button));
}

QString WholeWindow::statusOf(std::size_t row) const
{
    const QAbstractItemModel* const model = controller->window().progressGrid->model();
    return model->index(static_cast<int>(row), 1).data().toString();
}

bool WholeWindow::waitForStatus(std::size_t row, const QString& status)
{
    return QTest::qWaitFor([&] { return statusOf(row) == status; }, kPatience);
}

} // namespace quenmoor
