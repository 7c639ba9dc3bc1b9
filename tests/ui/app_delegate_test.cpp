#include "tests/ui/window_fixture.h"
#include "ui/app_delegate.h"

#include <QApplication>
#include <QFileOpenEvent>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

namespace quenmoor {

using namespace Qt::StringLiterals;

class AppDelegateTest : public QObject {
    Q_OBJECT

private:
    // A window on screen with one file that waits.
    static void showBusy(WindowFixture& with)
    {
        QObject::connect(&with.window, &MainWindow::windowClosed, &with.delegate,
                         &AppDelegate::terminate, Qt::QueuedConnection);
        QObject::connect(&with.window, &MainWindow::quitRequested, &with.delegate,
                         &AppDelegate::terminate);
        with.start();
        with.controller.addFiles({with.file("a")});
        with.window.show();
        QVERIFY(QTest::qWaitForWindowExposed(&with.window));
    }

    // Runs the event loop with `act` as its first event. The loop's status, or -1 when nobody
    // ended it.
    static int runLoop(const std::function<void()>& act)
    {
        QTimer::singleShot(0, qApp, act);
        QTimer patience;
        connect(&patience, &QTimer::timeout, [] { QCoreApplication::exit(-1); });
        patience.start(500);
        return QApplication::exec();
    }

private Q_SLOTS:
    void anIdleWindowClosesWithoutAQuestion()
    {
        WindowFixture with;
        showBusy(with);
        with.page.say(u"cancel"_s);
        QCOMPARE(runLoop([&] { with.delegate.terminate(); }), 0);
        QVERIFY(with.desktop.alerts.empty());
        QVERIFY(!with.window.isVisible());
        QCOMPARE(with.logged("Window count: 1"), 1U);
    }

    void quittingAsksAndNoKeepsAllAsItWas()
    {
        WindowFixture with;
        showBusy(with);
        QSignalSpy ends(&with.delegate, &AppDelegate::willTerminate);
        with.desktop.answers = {kFirstButton};
        QCOMPARE(runLoop([&] { QTest::keyClick(&with.window, Qt::Key_Q, Qt::ControlModifier); }),
                 -1);
        QCOMPARE(with.desktop.alerts.size(), 1U);
        QVERIFY(with.window.isVisible());
        QCOMPARE(with.waiting(), 1U);
        QCOMPARE(ends.count(), 0);
    }

    void everyRoadOutAsksOnce_data()
    {
        QTest::addColumn<int>("road");
        QTest::newRow("close button") << 0;
        QTest::newRow("quit") << 1;
        QTest::newRow("the platform's quit") << 2;
    }
    void everyRoadOutAsksOnce()
    {
        QFETCH(int, road);
        WindowFixture with;
        showBusy(with);
        QSignalSpy ends(&with.delegate, &AppDelegate::willTerminate);
        with.desktop.answers = {kSecondButton, kFirstButton};
        const int status = runLoop([&] {
            if (road == 0)
                with.window.close();
            else if (road == 1)
                with.delegate.terminate();
            else
                QCoreApplication::quit();
        });
        QCOMPARE(status, 0);
        QCOMPARE(with.desktop.alerts.size(), 1U);
        QCOMPARE(with.logged("Window count: 1"), 1U);
        QCOMPARE(ends.count(), 1);
    }

    void aWindowOutOfSightIsNotAsked()
    {
        for (const bool minimised : {true, false}) {
            WindowFixture with;
            showBusy(with);
            if (minimised)
                with.window.showMinimized();
            else
                with.window.hide();
            QVERIFY(with.delegate.applicationShouldTerminate());
            QVERIFY(with.desktop.alerts.empty());
            QCOMPARE(with.logged("Window count: 1"), 1U);
        }
    }

    void withoutAWindowThereIsNothingToAsk()
    {
        const RecordingLog log;
        AppDelegate delegate;
        QVERIFY(delegate.applicationShouldTerminate());
        QCOMPARE(log.system(), std::vector<std::string>{"Window count: 0"});
    }

    void theEnginesEndAsksNobody()
    {
        WindowFixture with;
        showBusy(with);
        QCOMPARE(runLoop([&] { with.delegate.terminateAtOnce(143); }), 143);
        QVERIFY(with.desktop.alerts.empty());
    }

    void oneRequestToOpenIsOneListThatReplacesTheLast()
    {
        AppDelegate delegate;
        const auto open = [](const QByteArray& url) {
            QFileOpenEvent event(QUrl::fromEncoded(url));
            QApplication::sendEvent(qApp, &event);
        };
        // the platform names the files of a request one by one
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
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::AppDelegateTest)
#include "app_delegate_test.moc"
