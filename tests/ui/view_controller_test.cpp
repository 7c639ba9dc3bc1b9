// The window's states, open requests, and every way to quit, over a fake page, a fake desktop and a
// fake link; all other parts are real.
#include "tests/ui/window_fixture.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"
#include "ui/notice_line.h"
#include "ui/startup_and_exit.h"

#include <pthread.h>

#include <QApplication>
#include <QFileOpenEvent>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <csignal>

namespace quenmoor {

using namespace Qt::StringLiterals;

class ViewControllerTest : public QObject {
    Q_OBJECT

private:
    const EndSignals endSignals_;

    // Runs the event loop with `act` as its first event. Returns the status of the loop, or -1 if
    // `act` did not end it.
    static int runLoop(AppDelegate& delegate, const std::function<void()>& act)
    {
        QSignalSpy ends(&delegate, &AppDelegate::willTerminate);
        const auto stop = [&ends] {
            if (ends.isEmpty())
                QCoreApplication::exit(-1);
        };
        QTimer::singleShot(0, &delegate, [&] {
            act();
            QMetaObject::invokeMethod(&delegate, stop, Qt::QueuedConnection);
        });
        const int status = QApplication::exec();
        return ends.count() > 1 ? -2 : status;
    }

    // The names of the visible widgets, and "drops" if the window accepts drops.
    static QString shown(const MainWindow& window)
    {
        QStringList parts;
        for (const QWidget* const part : std::initializer_list<const QWidget*>{
                 window.webView, window.dropPanel, window.progressPanel, window.infoLabel,
                 window.filenameLabel, window.queueLabel, window.skipButton,
                 window.statusBarProgressBar}) {
            if (!part->isHidden())
                parts << part->objectName();
        }
        if (window.mainView->acceptDrops())
            parts << u"drops"_s;
        return parts.join(u' ');
    }

private Q_SLOTS:
    void everySignalChangesTheStateOfTheWindow()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        QCOMPARE(with.window.windowTitle(), u"Quenmoor Upload - v2.3.4"_s);
        QCOMPARE(with.page.loads, std::vector<std::string>{"https://host/page"});
        QCOMPARE(with.log.system().back(), std::string("Byte length of long: 8"));
        QCOMPARE(shown(with.window), u"webView"_s); // Starting

        with.controller.addFiles({with.file("a b.mov"), with.file("c.mov")});
        with.page.signal(u"session"_s);
        QCOMPARE(shown(with.window), u"webView"_s);
        QCOMPARE(with.page.loads.size(), 1U);

        with.page.signal(u"index"_s); // Ready
        QCOMPARE(shown(with.window), u"webView statusBarProgressBar"_s);

        with.page.signal(u"session"_s); // Asking, one more in the queue
        QCOMPARE(shown(with.window),
                 u"webView infoLabel filenameLabel queueLabel skipButton statusBarProgressBar"_s);
        QCOMPARE(with.window.filenameLabel->text(), u"a b.mov"_s);
        QCOMPARE(with.window.queueLabel->text(), u"(1 more in Queue)"_s);
        QCOMPARE(with.page.loads.back(),
                 std::string("https://host/page?session=s1&filename=a%20b.mov&size=10"));

        with.page.signal(u"upload"_s);
        with.page.signal(u"cancel"_s, u"s2"_s); // Asking, for the last one
        QCOMPARE(shown(with.window),
                 u"webView infoLabel filenameLabel skipButton statusBarProgressBar"_s);
        QCOMPARE(with.page.loads.back(),
                 std::string("https://host/page?session=s2&filename=c.mov&size=10"));

        with.page.signal(u"cancel"_s); // Idle, no rows
        QCOMPARE(shown(with.window), u"dropPanel statusBarProgressBar drops"_s);

        with.controller.addFiles({with.file("d.mov")});
        QVERIFY(!with.window.mainView->acceptDrops());
        with.page.signal(u"token"_s, u"s3"_s, u"t1"_s); // Idle, with a row
        QCOMPARE(with.queues.uploadHead()->token, std::optional<std::string>("t1"));
        QCOMPARE(with.window.progressGrid->model()->rowCount(), 1);
        QCOMPARE(shown(with.window), u"progressPanel statusBarProgressBar drops"_s);

        with.page.signal(u"upload"_s); // in any state
        QCOMPARE(shown(with.window), u"webView statusBarProgressBar drops"_s);
        with.page.signal(u"index"_s);
        QCOMPARE(shown(with.window), u"webView statusBarProgressBar drops"_s);
    }

    void openedFilesAreQueuedOnceFromTheFirstSessionOn()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        with.delegate.applicationOpenFiles({with.file("replaced")});
        with.delegate.applicationOpenFiles({with.file("given")});
        QVERIFY(with.queues.fileQueue().empty());
        with.page.signal(u"index"_s);
        with.page.signal(u"session"_s);
        const auto open = [](const std::string& url) {
            QFileOpenEvent event(QUrl::fromEncoded(QByteArray::fromStdString(url)));
            QApplication::sendEvent(qApp, &event);
        };
        open(with.file("a").text());
        QCoreApplication::processEvents();
        open(with.file("b?\xE9").text()); // one request of three files
        open("https://host/c");
        open(with.file("d").text());
        QCoreApplication::processEvents();
        with.page.signal(u"session"_s);
        std::string names;
        for (const InfoContainer& info : with.queues.fileQueue())
            names += info.file.filename() + " ";
        QCOMPARE(names, std::string("given a b?\xE9 d "));
        with.controller.addFiles({with.file("a"), FileUrl::fromPath(with.folder.path()),
                                  FileUrl::fromPath(with.folder.path()),
                                  FileUrl::fromPath(with.folder.path() / "gone")});
        with.page.signal(u"session"_s);
        QCOMPARE(with.window.noticeLine->text(),
                 u"2 folders were skipped, 1 file was not found."_s);
        QVERIFY(!with.window.noticeLine->isHidden());
        with.controller.addFiles(std::vector(50'000, with.file("a")));
        QVERIFY(with.window.noticeLine->isHidden());
        QTRY_COMPARE(with.queues.fileQueue().size(), 50'005U);
        QVERIFY(AppDelegate().applicationShouldTerminate()); // there is no window to ask
    }

    void onlyTheFirstAnswerOfTheLatestLoadCounts()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        with.controller.addFiles({with.file("a"), with.file("b"), with.file("b")});
        const auto waiting = [&with] { return with.queues.fileQueue().size(); };
        for (const char* title : {"token", "cancel", "Token", " index ", "index", "session"})
            with.page.signal(QLatin1String(title)); // the start page answers for no file
        QVERIFY(with.logged("Page title: Token"));
        with.controller.addFiles({with.file("c")}); // the page stays
        QCOMPARE(with.page.loads.size(), 2U);
        with.page.failed = true;
        with.controller.updateView();
        with.page.failed = false;

        for (const char* title : {"token", "cancel", "session", "upload"})
            Q_EMIT with.page.titleReceived(
                {QLatin1String(title), u"old"_s, u"old"_s, {}, {}, {}, {}, 2});
        QCOMPARE(waiting(), 4U);
        with.page.signal(u"token"_s, {}, {}); // absent elements are absent values
        QCOMPARE(with.queues.uploadHead()->token, std::nullopt);
        with.window.skipButton->click();
        with.window.skipButton->click(); // the rest of a double click
        QCOMPARE(waiting(), 2U);
        QCOMPARE(with.page.loads,
                 (std::vector<std::string>{"https://host/page",
                                           "https://host/page?session=s1&filename=a&size=10",
                                           "https://host/page?session=s1&filename=a&size=10",
                                           "https://host/page?session=(null)&filename=b&size=10",
                                           "https://host/page?session=(null)&filename=b&size=10"}));
        for (const char* title :
             {"cancel", "token", "token", "cancel"}) // the third one is too many
            with.page.signal(QLatin1String(title));
        with.controller.addFiles({with.file("a")});
        with.page.signal(u"session"_s, {});
        QVERIFY(with.logged("Session value: (null)"));
        QVERIFY(waiting() == 1 && with.queues.tableList().count() == 2);
    }

    void aRefusedUploadThreadIsShownAndStartedLater()
    {
        WindowFixture with;
        with.start();
        with.controller.addFiles({with.file("a")});
        pthread_attr_t usual;
        QCOMPARE(pthread_getattr_default_np(&usual), 0);
        pthread_attr_t impossible = usual;
        QCOMPARE(pthread_attr_setstacksize(&impossible, std::size_t{1} << 46U), 0);
        QCOMPARE(pthread_setattr_default_np(&impossible), 0);
        with.page.signal(u"token"_s, u"s"_s, u"t"_s);
        QCOMPARE(pthread_setattr_default_np(&usual), 0);
        auto* const retry = with.controller.findChild<QTimer*>(u"startTimer"_s);
        QVERIFY(retry->isActive() && with.window.noticeLine->text().contains(u"cannot start"));
        QSignalSpy reports(&with.view, &QtUploadView::attemptReported);
        retry->start(0);
        QVERIFY(reports.wait());
    }

    void aTitleDuringAnAlertIsHandledAfterIt()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        with.desktop.answer = kFirstButton;
        with.desktop.whileModal = [&with] {
            with.page.signal(u"session"_s);
            QVERIFY(!with.logged("Page title: session"));
        };
        Q_EMIT with.page.titleReceived({u"index"_s, {}, {}, u"3"_s, {}, {}, {}, with.page.number});
        // "session" is handled last, so the window is Idle, not Ready
        QCOMPARE(shown(with.window), u"dropPanel statusBarProgressBar drops"_s);
    }

    void quittingAsksAtMostOnceAndOnlyAVisibleBusyWindow()
    {
        struct Row {
            const char* name;
            std::function<void(WindowFixture&)> act;
            std::int32_t answer;
            int status;
            std::size_t alerts;
        };
        const Alert question{"Not all uploads are finished.  Quit?", {}, {"No", "Yes"}};
        const auto terminateAfter = [](auto prepare) {
            return [prepare](WindowFixture& with) {
                prepare(with);
                with.delegate.terminate();
            };
        };
        const auto close = [](WindowFixture& with) { with.window.close(); };
        const auto quit = [](WindowFixture&) { QCoreApplication::quit(); };
        const auto shortcut = [](WindowFixture& with) {
            QTest::keyClick(&with.window, Qt::Key_Q, Qt::ControlModifier);
        };
        for (const Row& row : {
                 Row{"refused shortcut", shortcut, kFirstButton, -1, 1},
                 Row{"refused close", close, kNoButton, -1, 1},
                 Row{"uploading", terminateAfter([](WindowFixture& with) {
                         with.page.signal(u"token"_s, u"s"_s, u"t"_s);
                     }),
                     kFirstButton, -1, 1},
                 Row{"cancelled log-out",
                     [](WindowFixture& with) { QVERIFY(with.delegate.sessionMayEnd()); },
                     kSecondButton, -1, 1},
                 Row{"close", close, kSecondButton, 0, 1},
                 Row{"platform's quit", quit, kSecondButton, 0, 1},
                 Row{"idle",
                     terminateAfter([](WindowFixture& with) { with.page.signal(u"cancel"_s); }),
                     kFirstButton, 0, 0},
                 Row{"minimised",
                     terminateAfter([](WindowFixture& with) { with.window.showMinimized(); }),
                     kFirstButton, 0, 0},
                 Row{"hidden", terminateAfter([](WindowFixture& with) { with.window.hide(); }),
                     kFirstButton, 0, 0},
                 Row{"at once", [](WindowFixture& with) { with.delegate.terminateAtOnce(7); },
                     kFirstButton, 7, 0},
                 Row{"SIGTERM", [](WindowFixture&) { std::raise(SIGTERM); }, kFirstButton, 143, 0},
             }) {
            WindowFixture with;
            connectEnd(with.controller, with.delegate, with.view, with.bridge, endSignals_);
            with.start();
            with.controller.addFiles({with.file("a")});
            with.window.show();
            QVERIFY(QTest::qWaitForWindowExposed(&with.window));
            with.desktop.answer = row.answer;
            with.desktop.whileModal = [&with] { // a second request opens no second alert
                QVERIFY(!with.controller.windowShouldClose());
            };
            QVERIFY2(runLoop(with.delegate, [&] { row.act(with); }) == row.status, row.name);
            QVERIFY2(with.desktop.alerts == std::vector<Alert>(row.alerts, question), row.name);
            QVERIFY2(with.window.isVisible() == (row.status == -1), row.name);
        }
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::ViewControllerTest)
#include "view_controller_test.moc"
