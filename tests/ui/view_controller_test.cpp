#include "tests/ui/window_fixture.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"

#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>

namespace quenmoor {

using namespace Qt::StringLiterals;

class ViewControllerTest : public QObject {
    Q_OBJECT

private:
    // The names of the visible widgets, and "drops" if the window accepts drops.
    static QString shown(const MainWindow& window)
    {
        QStringList parts;
        for (const QWidget* const part : std::initializer_list<const QWidget*>{
                 window.webView, window.dropPanel, window.progressPanel, window.infoLabel,
                 window.filenameLabel, window.queueLabel, window.statusBarProgressBar}) {
            if (!part->isHidden())
                parts << part->objectName();
        }
        if (window.mainView->acceptDrops())
            parts << u"drops"_s;
        return parts.join(u' ');
    }

private Q_SLOTS:
    void loadingQueuesTheOpenedFilesAndLoadsThePageWithoutAQuery()
    {
        WindowFixture with;
        with.delegate.applicationOpenFiles({with.file("a"), with.file("b")});
        with.controller.viewDidLoad();
        QCOMPARE(with.window.windowTitle(), u"Quenmoor Upload - v2.3.4"_s);
        QCOMPARE(with.waiting(), 2U);
        QCOMPARE(with.page.loads, std::vector<std::string>{"https://host/page"});
        QCOMPARE(with.log.system(),
                 (std::vector<std::string>{"Number of files in file queue: 2",
                                           "Update view called.", "Byte length of long: 8"}));
    }

    void everySignalChangesTheStateOfTheWindow()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        QCOMPARE(shown(with.window), u"webView"_s); // Starting

        with.controller.addFiles({with.file("a b.mov"), with.file("c.mov")});
        with.page.signal(u"session"_s);
        QCOMPARE(shown(with.window), u"webView"_s);
        QCOMPARE(with.page.loads.size(), 1U);

        with.page.signal(u"index"_s); // Ready
        QCOMPARE(shown(with.window), u"webView statusBarProgressBar"_s);

        with.page.signal(u"session"_s); // Asking, one more in the queue
        QCOMPARE(shown(with.window),
                 u"webView infoLabel filenameLabel queueLabel statusBarProgressBar"_s);
        QCOMPARE(with.window.filenameLabel->text(), u"a b.mov"_s);
        QCOMPARE(with.window.queueLabel->text(), u"(1 more in Queue)"_s);
        QCOMPARE(with.page.loads.back(),
                 std::string("https://host/page?session=s1&filename=a%20b.mov&size=10"));

        with.page.signal(u"upload"_s);
        with.page.signal(u"cancel"_s, u"s2"_s); // Asking, for the last one
        QCOMPARE(shown(with.window), u"webView infoLabel filenameLabel statusBarProgressBar"_s);
        QCOMPARE(with.page.loads.back(),
                 std::string("https://host/page?session=s2&filename=c.mov&size=10"));

        with.page.signal(u"cancel"_s); // Idle, no rows
        QCOMPARE(shown(with.window), u"dropPanel statusBarProgressBar drops"_s);

        with.controller.addFiles({with.file("d.mov")});
        with.page.signal(u"token"_s, u"s3"_s, u"t1"_s); // Idle, with a row
        QCOMPARE(with.queues.uploadHead()->token, std::optional<std::string>("t1"));
        QCOMPARE(with.window.progressGrid->model()->rowCount(), 1);
        QCOMPARE(shown(with.window), u"progressPanel statusBarProgressBar drops"_s);

        with.page.signal(u"upload"_s); // in any state
        QCOMPARE(shown(with.window), u"statusBarProgressBar drops"_s);
        with.page.signal(u"index"_s);
        QCOMPARE(shown(with.window), u"webView statusBarProgressBar drops"_s);
    }

    void everySessionAddsTheLatestOpenedFilesAgain()
    {
        WindowFixture with;
        with.start();
        with.delegate.applicationOpenFiles({with.file("a"), with.file("b")});
        with.delegate.applicationOpenFiles({with.file("c")});
        with.page.signal(u"session"_s);
        with.page.signal(u"session"_s);
        QCOMPARE(with.waiting(), 2U);
        QCOMPARE(with.queues.fileQueue().front().file.filename(), std::string("c"));
    }

    void anInvalidSignalLosesNothing()
    {
        WindowFixture with;
        with.start();
        with.page.signal(u"token"_s, u"s1"_s, u"t"_s); // no file is waiting
        with.page.signal(u"cancel"_s);
        with.page.signal(u"Token"_s);
        with.page.signal(u" index "_s);
        QCOMPARE(with.queues.uploadCount(), 0U);
        QCOMPARE(with.queues.tableList().count(), 0U);
        QVERIFY(with.logged("Page title: Token") == 1);

        // absent elements are absent values
        with.controller.addFiles({with.file("a"), with.file("b")});
        with.page.signal(u"token"_s, {}, {});
        QCOMPARE(with.queues.uploadHead()->token, std::nullopt);
        QCOMPARE(with.page.loads.back(),
                 std::string("https://host/page?session=(null)&filename=b&size=10"));
        with.page.signal(u"session"_s, {});
        QCOMPARE(with.logged("Session value: (null)"), 1U);
    }

    void anOutdatedClientIsStoppedAndOpensOnlyWebUrls()
    {
        struct Row {
            QString build;
            QString url;
            std::size_t stopped;
            std::vector<std::string> opened;
        };
        const QString download = u"https://host/download"_s;
        for (const Row& row :
             {Row{u"4"_s, download, 0, {}}, Row{u"5"_s, download, 1, {"https://host/download"}},
              Row{u"5"_s, u"file:///etc/passwd"_s, 1, {}}}) {
            WindowFixture with;
            with.controller.viewDidLoad();
            with.desktop.answers = {kFirstButton};
            QSignalSpy terminations(&with.controller, &ViewController::terminationRequested);
            Q_EMIT with.page.titleReceived(
                {u"index"_s, {}, {}, u"2"_s, u"3"_s, row.build, row.url});
            QCOMPARE(with.desktop.alerts.size(), row.stopped);
            QCOMPARE(with.desktop.opened, row.opened);
            QCOMPARE(static_cast<std::size_t>(terminations.count()), row.stopped);
            // the user may refuse to quit
            QCOMPARE(shown(with.window), u"webView statusBarProgressBar"_s);
        }
    }

    void aTitleDuringAnAlertIsHandledAfterIt()
    {
        WindowFixture with;
        with.controller.viewDidLoad();
        with.desktop.answers = {kFirstButton};
        with.desktop.whileModal = [&with] {
            with.page.signal(u"session"_s);
            QCOMPARE(with.logged("Page title: session"), 0U);
        };
        Q_EMIT with.page.titleReceived({u"index"_s, {}, {}, u"3"_s, {}, {}, {}});
        // "session" is handled last, so the window is Idle, not Ready
        QCOMPARE(shown(with.window), u"dropPanel statusBarProgressBar drops"_s);
    }

    void closingAsksWhileFilesAreQueuedOrUploading()
    {
        WindowFixture with;
        with.start();
        QVERIFY(with.controller.windowShouldClose());
        QVERIFY(with.desktop.alerts.empty());

        with.controller.addFiles({with.file("a")});
        with.desktop.answers = {kFirstButton, std::int32_t{0}, std::nullopt, kSecondButton};
        for (const bool closes : {false, false, false, true})
            QCOMPARE(with.controller.windowShouldClose(), closes);
        const Alert expected{"Not all uploads are finished.  Quit?", {}, {"No", "Yes"}};
        QVERIFY(with.desktop.alerts == std::vector<Alert>(4, expected));

        with.page.signal(u"token"_s, u"s"_s, u"t"_s);
        with.desktop.answers = {kFirstButton};
        with.desktop.whileModal = [&with] { // a second request opens no second alert
            QVERIFY(!with.controller.windowShouldClose());
        };
        QVERIFY(!with.controller.windowShouldClose());
        QCOMPARE(with.desktop.alerts.size(), 5U);
    }

    void theEngineReportsAndAsksInTheWindow()
    {
        WindowFixture with;
        with.start();
        with.fakeLink.copies["clip.mov"] = {std::string(4, 'x'), 10};
        with.controller.addFiles({with.file("clip.mov")});
        with.page.signal(u"token"_s, u"s"_s, u"t"_s);
        QTRY_VERIFY(with.desktop.answer != nullptr);
        QCOMPARE(with.desktop.alerts.back().buttons.size(), 3U);
        QCOMPARE(with.desktop.title, u"clip.mov"_s);
        Q_EMIT with.view.statusBarChanged(u"a\nb.mov"_s, u"Upload rate: 1.000 MB/s"_s);
        QCOMPARE(with.window.filenameStatusBarLabel->text(), u"a␊b.mov"_s);
        QCOMPARE(with.window.uploadStatusBarLabel->text(), u"Upload rate: 1.000 MB/s"_s);
        with.desktop.answer(kThirdButton);
        QTRY_COMPARE(with.queues.uploadCount(), 0U);
        QCOMPARE(with.fakeLink.confirmations, std::vector<std::string>{"resume"});
        QCOMPARE(with.fakeLink.copies["clip.mov"].bytes.size(), 10U);
        QCOMPARE(with.queues.tableList().cell("Status", 0), std::string("Finished"));
        QCOMPARE(with.window.statusBarProgressBar->value(), 100);
        QCOMPARE(with.window.filenameStatusBarLabel->text(), u"[none]"_s);
        QVERIFY(with.controller.windowShouldClose());
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::ViewControllerTest)
#include "view_controller_test.moc"
