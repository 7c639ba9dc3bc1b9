// Open requests and every way to quit.
#include "tests/ui/window_fixture.h"
#include "ui/startup_and_exit.h"

#include <QApplication>
#include <QFileOpenEvent>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <csignal>

namespace quenmoor {

using namespace Qt::StringLiterals;

class QuitTest : public QObject {
    Q_OBJECT

private:
    using Act = std::function<void(WindowFixture&)>;

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

private Q_SLOTS:
    void quittingAsksAtMostOnceAndOnlyAVisibleBusyWindow()
    {
        struct Row {
            const char* name;
            Act act;
            std::int32_t answer;
            int status;
            std::size_t alerts;
        };
        const Act terminate = [](WindowFixture& with) { with.delegate.terminate(); };
        const Act close = [](WindowFixture& with) { with.window.close(); };
        const Act quit = [](WindowFixture&) { QCoreApplication::quit(); };
        const Act shortcut = [](WindowFixture& with) {
            QTest::keyClick(&with.window, Qt::Key_Q, Qt::ControlModifier);
        };
        for (const Row& row : {
                 Row{"refused shortcut", shortcut, kFirstButton, -1, 1},
                 Row{"refused close", close, kNoButton, -1, 1},
                 Row{"close", close, kSecondButton, 0, 1},
                 Row{"terminate", terminate, kSecondButton, 0, 1},
                 Row{"platform's quit", quit, kSecondButton, 0, 1},
                 Row{"idle",
                     [&](WindowFixture& with) {
                         with.page.signal(u"cancel"_s);
                         terminate(with);
                     },
                     kFirstButton, 0, 0},
                 Row{"minimised",
                     [&](WindowFixture& with) {
                         with.window.showMinimized();
                         terminate(with);
                     },
                     kFirstButton, 0, 0},
                 Row{"hidden",
                     [&](WindowFixture& with) {
                         with.window.hide();
                         terminate(with);
                     },
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
            with.desktop.answers = {row.answer, kFirstButton};
            QVERIFY2(runLoop(with.delegate, [&] { row.act(with); }) == row.status, row.name);
            QVERIFY2(with.desktop.alerts.size() == row.alerts, row.name);
            QVERIFY2(with.window.isVisible() == (row.status == -1), row.name);
        }
    }

    void oneOpenRequestIsOneListThatReplacesTheLast()
    {
        AppDelegate delegate;
        const auto open = [](const QByteArray& url) {
            QFileOpenEvent event(QUrl::fromEncoded(url));
            QApplication::sendEvent(qApp, &event);
        };
        open("file:///a%3F");
        open("https://host/b");
        open("file:///c%E9");
        QCoreApplication::processEvents();
        QCOMPARE(delegate.droppedFiles().size(), 2U);
        QCOMPARE(delegate.droppedFiles()[0].path().string(), std::string("/a?"));
        QCOMPARE(delegate.droppedFiles()[1].path().string(), std::string("/c\xE9"));
        open("file:///d");
        QCoreApplication::processEvents();
        QCOMPARE(delegate.droppedFiles().size(), 1U);
        QVERIFY(delegate.applicationShouldTerminate()); // there is no window to ask
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::QuitTest)
#include "quit_test.moc"
