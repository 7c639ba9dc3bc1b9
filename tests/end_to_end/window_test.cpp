// What a user does with the window, from the drop to the stored bytes.
#include "tests/end_to_end/whole_window.h"
#include "tests/ui/page/trusting_home.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileOpenEvent>
#include <QLabel>
#include <QTest>
#include <QTimer>
#include <cstdlib>

namespace quenmoor {

using namespace Qt::StringLiterals;

class WindowTest : public QObject {
    Q_OBJECT

public:
    explicit WindowTest(const TrustingHome& home) : home_(home) {}

private Q_SLOTS:
    void cleanup();
    void oneFileArrivesByteForByte();
    void aFileCancelledOnThePageIsLeftOut();
    void anExistingCopyIsTreatedAsAnswered();
    void anOutdatedClientLeadsToTheDownloadPageAndEnds();
    void quittingWithFilesQueuedAsks();
    void aServerThatWasKilledHalfWayGetsTheRest();
    void theSameFileTwiceIsUploadedTwice();
    void awkwardNamesArriveByEveryRoad();

private:
    const TrustingHome& home_;
};

// A client that ended leaves the application marked as ending, and no later event loop would run;
// a whole run of the main loop takes the mark away.
void WindowTest::cleanup()
{
    QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(); });
    QCoreApplication::exec();
}

void WindowTest::oneFileArrivesByteForByte()
{
    WholeWindow client(home_.certificate());
    client.start();
    const std::string content = sampleContent(3'000'000);
    client.drop({client.files.file("clip.mov", content)});
    QVERIFY(!client.controller->window().queueLabel->isVisible());
    client.answerPage("clip.mov", u"upload"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QCOMPARE(client.stored("clip.mov") == content, true);
    QVERIFY(client.controller->windowShouldClose());
}

void WindowTest::aFileCancelledOnThePageIsLeftOut()
{
    WholeWindow client(home_.certificate());
    client.start();
    client.drop({client.files.file("a.mov", "first"), client.files.file("b.mov", "second"),
                 client.files.file("c.mov", "third")});
    QCOMPARE(client.controller->window().queueLabel->text(), u"(2 more in Queue)"_s);
    client.answerPage("a.mov", u"upload"_s);
    client.answerPage("b.mov", u"cancel"_s);
    client.answerPage("c.mov", u"upload"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QVERIFY(client.waitForStatus(1, u"Finished"_s));
    QCOMPARE(client.stored("a.mov"), "first");
    QCOMPARE(client.stored("c.mov"), "third");
    QVERIFY(!std::filesystem::exists(client.root.path() / "b.mov"));
}

void WindowTest::anExistingCopyIsTreatedAsAnswered()
{
    WholeWindow client(home_.certificate());
    client.start();
    const std::string content = sampleContent(2'000'000);
    const auto path = client.files.file("half.mov", content);
    {
        std::string error;
        const auto half = client.store->upload("half.mov", 2'000'000, error);
        QVERIFY(half != nullptr && half->startOver());
        QVERIFY(half->append(std::span(content).first(500'000)));
    }
    client.drop({path});
    client.answerPage("half.mov", u"upload"_s);
    client.answerAlert(u"Resume"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QVERIFY(client.stored("half.mov") == content);

    // the same again, with other bytes of the same size
    const std::string other = sampleContent(2'000'000, 7);
    client.drop({client.files.file("half.mov", other)});
    client.answerPage("half.mov", u"upload"_s);
    client.answerAlert(u"Cancel"_s);
    QVERIFY(client.waitForStatus(1, u"Canceled"_s));
    QVERIFY(client.stored("half.mov") == content);

    client.drop({path});
    client.answerPage("half.mov", u"upload"_s);
    client.answerAlert(u"Overwrite"_s);
    QVERIFY(client.waitForStatus(2, u"Finished"_s));
    QVERIFY(client.stored("half.mov") == other);
}

void WindowTest::anOutdatedClientLeadsToTheDownloadPageAndEnds()
{
    PageSettings settings;
    settings.newestVersion = {"1", "0", "1"};
    settings.updateUrl = "https://downloads.example/newest";
    WholeWindow client(home_.certificate(), settings);
    bool ended = false;
    QObject::connect(&client.delegate, &AppDelegate::willTerminate, [&ended] { ended = true; });
    client.controller->viewDidLoad();
    client.controller->window().show();
    client.answerAlert(u"OK"_s);
    QVERIFY(QTest::qWaitFor([&ended] { return ended; }, 10'000));
    QCOMPARE(client.desktop.opened, std::vector{QUrl(u"https://downloads.example/newest"_s)});
    QVERIFY(!client.controller->window().isVisible());
}

void WindowTest::quittingWithFilesQueuedAsks()
{
    WholeWindow client(home_.certificate());
    client.start();
    client.drop({client.files.file("a.mov", "first")});
    QTimer::singleShot(0, &client.delegate, &AppDelegate::terminate);
    client.answerAlert(u"No"_s);
    QVERIFY(client.controller->window().isVisible());
    QCOMPARE(client.queues.fileQueue().size(), std::size_t{1});

    QTimer::singleShot(0, &client.delegate, &AppDelegate::terminate);
    client.answerAlert(u"Yes"_s);
    QVERIFY(QTest::qWaitFor([&] { return !client.controller->window().isVisible(); }, 10'000));
}

void WindowTest::aServerThatWasKilledHalfWayGetsTheRest()
{
    WholeWindow client(home_.certificate());
    client.start();
    client.transferServer->setFaults({{FaultKind::SlowReading, 10'000'000}});
    const std::string content = sampleContent(30'000'000);
    client.drop({client.files.file("clip.mov", content)});
    client.answerPage("clip.mov", u"upload"_s);
    const auto part = client.root.path() / ".quenmoor/parts/clip.mov";
    QVERIFY(QTest::qWaitFor(
        [&] {
            std::error_code missing;
            const auto size = std::filesystem::file_size(part, missing);
            return !missing && size > 10'000'000;
        },
        30'000));
    client.restartTransferServer();
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QVERIFY(client.stored("clip.mov") == content);
    QVERIFY(QApplication::activeModalWidget() == nullptr);
}

void WindowTest::theSameFileTwiceIsUploadedTwice()
{
    WholeWindow client(home_.certificate());
    client.start();
    const auto path = client.files.file("clip.mov", "the bytes");
    client.drop({path, path});
    client.answerPage("clip.mov", u"upload"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    client.answerPage("clip.mov", u"upload"_s);
    client.answerAlert(u"Overwrite"_s);
    QVERIFY(client.waitForStatus(1, u"Finished"_s));
    QCOMPARE(client.stored("clip.mov"), "the bytes");
}

void WindowTest::awkwardNamesArriveByEveryRoad()
{
    const std::string dropped = "caf\xE9 ?&#=+.mov";
    const std::string named = "two\nlines%41\xFF";
    const std::string opened = "question? #1 é.mov";
    const std::string chosen = "100%25 [chosen] &.mov";
    WholeWindow client(home_.certificate());
    for (const std::string& name : {dropped, named, opened, chosen})
        std::ignore = client.files.file(name, "bytes of " + name);

    // the command line
    std::string program = "quenmoor-upload";
    std::string argument = client.files.path() / named;
    std::array<char*, 2> argv{program.data(), argument.data()};
    client.delegate.applicationOpenFiles(filesToOpen(2, argv.data()));
    client.controller->viewDidLoad();
    client.controller->window().show();
    client.answerPage(named, u"upload"_s);
    // the page's session brings the opened files once more
    if (!client.queues.fileQueue().empty())
        client.answerPage(named, u"cancel"_s);
    client.delegate.applicationOpenFiles({});

    client.drop({client.files.path() / dropped});
    client.answerPage(dropped, u"upload"_s);

    client.controller->browseButtonClick();
    QVERIFY(client.waitForAlert());
    auto* const chooser = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
    QVERIFY(chooser != nullptr);
    chooser->selectFile(QString::fromStdString((client.files.path() / chosen).string()));
    static_cast<QDialog*>(chooser)->accept();
    client.answerPage(chosen, u"upload"_s);

    // the platform's own open request, taken at the page's next session
    QFileOpenEvent open(
        QUrl::fromLocalFile(QString::fromStdString((client.files.path() / opened).string())));
    QApplication::sendEvent(qApp, &open);
    QVERIFY(QTest::qWaitFor([&] { return !client.delegate.droppedFiles().empty(); }, 10'000));
    PageSignal session;
    session.title = u"session"_s;
    client.controller->webViewDidReceiveTitle(session);
    client.answerPage(opened, u"upload"_s);

    QVERIFY(QTest::qWaitFor([&] { return client.queues.uploadCount() == 0; }, 60'000));
    for (const std::string& name : {dropped, named, opened, chosen})
        QCOMPARE(client.stored(name), "bytes of " + name);
}

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    quenmoor::WindowTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "window_test.moc"
