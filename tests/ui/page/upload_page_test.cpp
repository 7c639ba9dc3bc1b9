// The service's own page in the embedded browser: what it signals, and what its tokens are for.
#include "devservice/page_server.h"
#include "tests/ui/page/scripted_service.h"
#include "ui/page/web_service_page.h"
#include "ui/service_page.h"

#include <QApplication>
#include <QStackedWidget>
#include <QTest>
#include <QWebEnginePage>
#include <QWebEngineView>

namespace quenmoor {

using namespace Qt::StringLiterals;

namespace {

// The service and a client that has been through the page's first signals.
struct Conversation {
    explicit Conversation(const Certificate& certificate, PageSettings settings = {})
        : server(onFreePort(std::move(settings)), certificate, sessions)
    {
        std::string error;
        if (!server.start(error))
            qFatal("%s", error.c_str());
        base = baseUrl(u"localhost"_s, server.port());
        page = std::make_unique<WebServicePage>(base, [](const QUrl&) {});
        QObject::connect(page.get(), &ServicePage::titleReceived,
                         [this](const PageSignal& signal) { heard.push_back(signal); });
        page->widget()->resize(800, 500);
        page->widget()->show();
        page->load(QUrl(base));
        waitFor(u"session"_s);
    }

    static PageSettings onFreePort(PageSettings settings)
    {
        settings.port = 0;
        return settings;
    }

    void waitFor(const QString& title)
    {
        QVERIFY(
            QTest::qWaitFor([&] { return !heard.empty() && heard.back().title == title; }, 20'000));
    }
    void askAbout(const std::string& name, std::int64_t size)
    {
        page->load(pageUrl(base, heard.back().session, name, size));
    }
    // What `script` gives in the page's own world; asks again until it gives something.
    QString inPage(const QString& script)
    {
        using Answer = std::optional<QString>;
        auto answer = std::make_shared<Answer>(QString()); // kept by the callback, however late
        const bool gave = QTest::qWaitFor(
            [&] {
                if (!*answer || !(*answer)->isEmpty())
                    return answer->has_value();
                answer = std::make_shared<Answer>();
                page->widget()->findChild<QWebEngineView*>()->page()->runJavaScript(
                    script, [answer](const QVariant& value) { *answer = value.toString(); });
                return false;
            },
            20'000);
        return gave ? **answer : u"(nothing)"_s;
    }
    // Presses a button once it is there to be pressed.
    void press(const QString& id)
    {
        QCOMPARE(inPage(uR"((() => { const b = document.getElementById('%1');
                              if (!b || b.closest('[hidden]') || b.pressed) return '';
                              b.pressed = true; b.click(); return 'pressed'; })())"_s.arg(id)),
                 u"pressed"_s);
    }
    QString shownText(const QString& id)
    {
        return inPage(uR"((() => { const e = document.getElementById('%1');
                            return !e || e.closest('[hidden]') ? '' : e.innerText; })())"_s.arg(
            id));
    }

    std::atomic<int> hours = 0; // of the service's clock, which its threads read
    const ServiceClock clock = [this] {
        return std::chrono::steady_clock::time_point(std::chrono::hours(hours));
    };
    TokenStore tokens{clock};
    SessionStore sessions{tokens, {}, clock};
    PageServer server;
    QString base;
    std::vector<PageSignal> heard;
    std::unique_ptr<WebServicePage> page;
};

} // namespace

class UploadPageTest : public QObject {
    Q_OBJECT

public:
    explicit UploadPageTest(const TrustingHome& home) : home_(home) {}

private Q_SLOTS:
    void saysIndexThenSessionAndPublishesTheVersion();
    void uploadGivesATokenForTheVeryBytesOfTheName_data();
    void uploadGivesATokenForTheVeryBytesOfTheName();
    void cancelKeepsTheSession();
    void automaticallyGivesATokenWithoutAClick();
    void aRefusalIsToldAndCanBeTriedAgain();

private:
    const TrustingHome& home_;
};

void UploadPageTest::saysIndexThenSessionAndPublishesTheVersion()
{
    PageSettings settings;
    settings.newestVersion = {"2", "10", "7"};
    settings.updateUrl = "https://downloads.example/?a=1&b=2";
    Conversation with(home_.certificate(), settings);

    QCOMPARE(with.heard.size(), std::size_t{3}); // the page's name comes first
    const PageSignal& index = with.heard[1];
    QCOMPARE(index.title, u"index"_s);
    QCOMPARE(index.session->size(), 64);
    QVERIFY(pageVersion(index) == (Version{2, 10, 7}));
    QCOMPARE(downloadUrl(index), QUrl(u"https://downloads.example/?a=1&b=2"_s));
    QCOMPARE(with.heard[2].session, index.session);
    QVERIFY(!index.token);
}

void UploadPageTest::uploadGivesATokenForTheVeryBytesOfTheName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<qint64>("size");
    QTest::addColumn<QString>("shownName");
    QTest::addColumn<QString>("shownSize");
    QTest::newRow("plain") << QByteArray("clip.mov") << qint64{1'234'567'890} << u"clip.mov"_s
                           << u"1.2 GB (1,234,567,890 bytes)"_s;
    QTest::newRow("query characters") << QByteArray("a&filename=b&size=9?c=d+e;'.mov") << qint64{1}
                                      << u"a&filename=b&size=9?c=d+e;'.mov"_s << u"1 byte"_s;
    QTest::newRow("no UTF-8") << QByteArray("caf\xE9 \xC3\xA9\xF0\x9F\x8E\xAC.mov") << qint64{999}
                              << u"caf\uFFFD é🎬.mov"_s << u"999 bytes"_s;
    QTest::newRow("markup") << QByteArray("<b>%41#\"\\.mov") << qint64{999'950}
                            << u"<b>%41#\"\\.mov"_s << u"1.0 MB (999,950 bytes)"_s;
    QTest::newRow("greatest") << QByteArray("%") << std::numeric_limits<qint64>::max() << u"%"_s
                              << u"9.2 EB (9,223,372,036,854,775,807 bytes)"_s;
}

void UploadPageTest::uploadGivesATokenForTheVeryBytesOfTheName()
{
    QFETCH(QByteArray, name);
    QFETCH(qint64, size);
    Conversation with(home_.certificate());
    const std::optional<QString> session = with.heard.back().session;
    with.askAbout(name.toStdString(), size);
    QTEST(with.shownText(u"filename"_s), "shownName");
    QTEST(with.shownText(u"filesize"_s), "shownSize");

    with.press(u"upload"_s);
    with.waitFor(u"token"_s);
    QCOMPARE(with.heard[with.heard.size() - 2].title, u"upload"_s);
    const PageSignal& signal = with.heard.back();
    QCOMPARE(signal.session, session);
    QVERIFY(with.tokens.accepts(signal.token->toStdString(), name.toStdString(), size));
}

void UploadPageTest::cancelKeepsTheSession()
{
    Conversation with(home_.certificate());
    const std::optional<QString> session = with.heard.back().session;
    with.askAbout("a", 0);
    with.press(u"cancel"_s);
    with.waitFor(u"cancel"_s);

    QCOMPARE(with.heard.back().session, session);
    QVERIFY(!with.heard.back().token);
}

void UploadPageTest::automaticallyGivesATokenWithoutAClick()
{
    PageSettings settings;
    settings.automatic = true;
    Conversation with(home_.certificate(), settings);
    with.askAbout("a?.mov", 7);
    with.waitFor(u"token"_s);

    QVERIFY(with.tokens.accepts(with.heard.back().token->toStdString(), "a?.mov", 7));
}

void UploadPageTest::aRefusalIsToldAndCanBeTriedAgain()
{
    Conversation with(home_.certificate());
    const std::optional<QString> session = with.heard.back().session;
    with.askAbout("a", 7);
    QCOMPARE(with.shownText(u"filename"_s), u"a"_s);
    with.hours = 25;
    with.press(u"upload"_s);
    QCOMPARE(with.shownText(u"failure_reason"_s), u"The session has ended."_s);

    with.press(u"retry"_s);
    QCOMPARE(with.shownText(u"filename"_s), u"a"_s);
    with.inPage(u"delete document.getElementById('upload').pressed, 'again'"_s);
    with.press(u"upload"_s);
    with.waitFor(u"token"_s);
    QVERIFY(with.heard.back().session != session);
    QVERIFY(with.tokens.accepts(with.heard.back().token->toStdString(), "a", 7));
}

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    quenmoor::UploadPageTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "upload_page_test.moc"
