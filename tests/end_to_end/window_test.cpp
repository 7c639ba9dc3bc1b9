// What a user does with the window, from the drop to the stored bytes.
#include "tests/end_to_end/whole_window.h"
#include "tests/ui/page/web_fixture.h"
#include "ui/appearance.h"
#include "ui/drag_view.h"

#include <QApplication>
#include <QFileDialog>
#include <QLabel>
#include <QProgressBar>
#include <QTest>
#include <QTimer>
#include <array>

namespace quenmoor {

using namespace Qt::StringLiterals;

class WindowTest : public QObject {
    Q_OBJECT

public:
    explicit WindowTest(const TrustingHome& home) : home_(home) {}

private Q_SLOTS:
    void init()
    {
        service_ = std::make_unique<LocalService>();
        service_->startServer();
        service_->startPage(home_.certificate());
    }
    // A client that has ended leaves a flag in the application that stops later event loops; a
    // complete run of the main loop clears it.
    void cleanup()
    {
        QTimer::singleShot(0, qApp, [] { QCoreApplication::exit(); });
        QCoreApplication::exec();
        service_.reset(); // before the next one, because each restores the log sink it replaced
    }
    void filesArriveOnceEachAndACancelledOneDoesNot();
    void anExistingCopyIsTreatedAsAnswered();
    void thePageShowsNameAndSizeAndRecoversFromARefusal();
    void anOutdatedClientOpensTheDownloadPageAndEnds();
    void aSecondAnswerReachesNoOtherFile();
    void unusualNamesArriveFromEveryIntake();

private:
    const TrustingHome& home_;
    std::unique_ptr<LocalService> service_;
};

void WindowTest::filesArriveOnceEachAndACancelledOneDoesNot()
{
    WholeWindow client(*service_);
    client.start();
    const std::string content = sampleContent(3'000'000);
    const auto first = client.files.file("a.mov", content);
    client.drop({first, client.files.file("b.mov", "second"), first});
    QTimer::singleShot(0, &client.delegate, &AppDelegate::terminate);
    QCOMPARE(client.answerAlert(u"No"_s), u"Quenmoor Upload"_s);
    QVERIFY(client.window.isVisible());

    client.answerPage("a.mov", u"upload"_s);
    client.answerPage("b.mov", u"cancel"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QVERIFY(service_->stored("a.mov") == content);
    client.answerPage("a.mov", u"upload"_s);
    QCOMPARE(client.answerAlert(u"Overwrite"_s), u"a.mov"_s);
    QVERIFY(client.waitForStatus(1, u"Finished"_s));
    QVERIFY(service_->stored("a.mov") == content);
    QVERIFY(!std::filesystem::exists(service_->root.path() / "b.mov"));
    QTRY_COMPARE(client.queues.uploadCount(), 0U); // the sockets are closed after the status is set
    QVERIFY(client.controller.windowShouldClose());
}

void WindowTest::anExistingCopyIsTreatedAsAnswered()
{
    const std::string content = "held" + sampleContent(2'000'000);
    const std::string other = "sent" + content.substr(4); // distinguishes Resume from Overwrite
    {
        std::string error;
        const auto half = service_->store->upload("half.mov", std::int64_t(content.size()), error);
        QVERIFY(half != nullptr && half->startOver());
        QVERIFY(half->append(std::span(content).first(500'000)));
    }
    WholeWindow client(*service_);
    client.start();
    client.drop({client.files.file("half.mov", other)});
    client.answerPage("half.mov", u"upload"_s);
    QCOMPARE(client.answerAlert(u"Resume"_s), u"half.mov"_s);
    QVERIFY(client.waitForStatus(0, u"Finished"_s));
    QVERIFY(service_->stored("half.mov") == content);
    QTRY_COMPARE(client.window.filenameStatusBarLabel->text(), u"[none]"_s);
    QCOMPARE(client.window.statusBarProgressBar->value(), 100);
    Q_EMIT client.view.statusBarChanged(u"a\nb.mov"_s, u"Upload rate: 1.000 MB/s"_s);
    QCOMPARE(client.window.filenameStatusBarLabel->text(), u"a␊b.mov"_s);
    QCOMPARE(client.window.uploadStatusBarLabel->text(), u"Upload rate: 1.000 MB/s"_s);
}

void WindowTest::thePageShowsNameAndSizeAndRecoversFromARefusal()
{
    WholeWindow client(*service_);
    client.start();
    const auto text = [&client](const QString& id) {
        return client.inPage(uR"((() => { const e = document.getElementById('%1');
            return !e || e.closest('[hidden]') ? '' : e.innerText; })())"_s.arg(id));
    };
    const auto path = client.files.file("<b>%41 caf\xE9&size=9.mov", "");
    std::filesystem::resize_file(path, 1'234'567'890);
    client.drop({path});
    QCOMPARE(text(u"filename"_s), u"<b>%41 caf\uFFFD&size=9.mov"_s);
    QCOMPARE(text(u"filesize"_s), u"1.2 GB (1,234,567,890 bytes)"_s);

    QCOMPARE(client.inPage(u"document.getElementById('session').setAttribute('value', 'unknown'),"
                           "document.getElementById('upload').click(), 'clicked'"_s),
             u"clicked"_s);
    QCOMPARE(text(u"failure_reason"_s), u"The session has ended."_s);
    client.inPage(u"document.getElementById('retry').click(), 'clicked'"_s);
    client.answerPage(path.filename(), u"cancel"_s);
}

void WindowTest::anOutdatedClientOpensTheDownloadPageAndEnds()
{
    PageSettings settings;
    settings.newestVersion = {"1", "0", "1"};
    settings.updateUrl = "https://downloads.example/newest?a=1&b=2";
    service_->startPage(home_.certificate(), settings);
    WholeWindow client(*service_);
    client.controller.viewDidLoad();
    client.window.show();
    QCOMPARE(client.answerAlert(u"OK"_s), u"Quenmoor Upload"_s);
    QVERIFY(QTest::qWaitFor([&client] { return !client.window.isVisible(); }, 10'000));
    QCOMPARE(client.desktop.opened, std::vector{QUrl(QString::fromStdString(settings.updateUrl))});
}

void WindowTest::aSecondAnswerReachesNoOtherFile()
{
    ScriptedService pages(home_.certificate());
    pages.pages[kIndex] = R"(<input id=session value=s><input id=token value=t><script>
        const signal = title => document.title = title;
        onload = () => location.search ? signal('ready') : (signal('index'), signal('session'));
        onclick = () => { signal('upload'); setTimeout(signal, 20, 'token'); };</script>)";
    WholeWindow client(*service_, pages.url(kIndex).toString());
    client.start();
    client.drop({client.files.file("a.mov", "first"), client.files.file("b.mov", "second")});
    const auto inPageOf = [&client](const QString& name, const QString& script) {
        return client.inPage(
            u"document.title == 'ready' && location.search.includes('%1') ? %2 : ''"_s.arg(name,
                                                                                           script));
    };
    const QString twice = u"(onclick(), setTimeout(onclick, 10), 'clicked')"_s;
    QCOMPARE(inPageOf(u"a.mov"_s, twice), u"clicked"_s);
    pages.delay = std::chrono::milliseconds(400); // longer than the page takes to answer twice
    QCOMPARE(inPageOf(u"b.mov"_s, u"'shown'"_s), u"shown"_s);
    QCOMPARE(client.queues.fileQueue().size(), 1U);
    QCOMPARE(client.queues.tableList().count(), 1U);
}

void WindowTest::unusualNamesArriveFromEveryIntake()
{
    const std::string dropped = "caf\xE9 ?&#=+.mov";
    const std::string named = "two\nlines%41\xFF";
    const std::string chosen = "100%25 [chosen] &.mov";
    WholeWindow client(*service_);
    for (const std::string& name : {dropped, named, chosen})
        client.files.file(name, "bytes of " + name);

    // the command line
    std::string program = "quenmoor-upload";
    std::string argument = client.files.path() / named;
    std::array<char*, 2> argv{program.data(), argument.data()};
    client.controller.viewDidLoad();
    client.window.show();
    client.delegate.applicationOpenFiles(filesToOpen(2, argv.data()));
    client.answerPage(named, u"upload"_s);

    client.drop({client.files.path() / dropped});
    client.answerPage(dropped, u"upload"_s);

    client.controller.browseButtonClick();
    auto* const chooser = client.window.findChild<QFileDialog*>();
    QVERIFY(chooser != nullptr);
    chooser->selectFile(QString::fromStdString(client.files.path() / chosen));
    static_cast<QDialog*>(chooser)->accept();
    client.answerPage(chosen, u"upload"_s);

    QVERIFY(QTest::qWaitFor([&] { return client.queues.uploadCount() == 0; }, 60'000));
    for (const std::string& name : {dropped, named, chosen})
        QCOMPARE(service_->stored(name), "bytes of " + name);
}

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    quenmoor::prepareBrowserEngine();
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    quenmoor::WindowTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "window_test.moc"
