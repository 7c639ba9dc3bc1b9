// What the embedded page may do, what goes over the wire, and what stands in its place when there
// is none.
#include "base/text.h"
#include "tests/fakes/quiet_log.h"
#include "tests/ui/page/web_fixture.h"
#include "ui/service_page.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QWebEngineProfile>
#include <csignal>

namespace quenmoor {

using namespace Qt::StringLiterals;

class WebServicePageTest : public QObject {
    Q_OBJECT

public:
    explicit WebServicePageTest(const TrustingHome& home) : home_(home), files_(home.files()) {}

private Q_SLOTS:
    void theQueryGoesOutByteForByte();
    void aHostileSessionStaysInTheQuery();
    void aFailedLoadShowsWhyAndReloadTriesTheSameAgain_data();
    void aFailedLoadShowsWhyAndReloadTriesTheSameAgain();
    void aSilentServiceIsGivenUp();
    void aLoadThatCutsOffAnotherOneIsNoFailure();
    void aDeadRendererShowsThePanelAndReloadBringsThePageBack();
    void anUntrustedCertificateIsNeverAccepted();
    void linksToOtherWindowsAndSitesOpenInTheBrowser();
    void scriptsOpenNoWindowAndAskNothing();
    void aPageThatWillNotBeLeftIsLeft();
    void theWindowMayDeleteThePageFirst();
    void nothingIsLeftInTheHomeFolder();

private:
    const TrustingHome& home_;
    const std::map<std::string, std::string> files_; // of the home folder, at the start
    const SilentLog log_;
};

namespace {

QString panelText(WebFixture& web, const QString& name)
{
    return web.page.widget()->findChild<QLabel*>(name)->text();
}

void pressReload(WebFixture& web)
{
    QTest::keyClick(web.page.widget()->findChild<QPushButton*>(u"reloadButton"_s), Qt::Key_Space);
}

bool panelComes(WebFixture& web)
{
    return QTest::qWaitFor([&] { return web.isPanelShown(); }, 20'000);
}

// Clicks where the page's only content, a link over all of it, lies.
void clickPage(WebFixture& web)
{
    QTest::mouseClick(web.view()->focusProxy(), Qt::LeftButton, Qt::NoModifier, QPoint(50, 50));
}

// A page that has been painted takes clicks.
const QByteArray kEndWhenPainted = "requestAnimationFrame(() => requestAnimationFrame(() => {"
                                   "  document.title = 'end'; }));";
const QByteArray kLinkStyle = "<style>a { position: fixed; inset: 0; }</style>";

} // namespace

void WebServicePageTest::theQueryGoesOutByteForByte()
{
    WebFixture web(home_.certificate());
    web.service.setPage(kIndex, "<title>end</title>");
    std::string name;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '\'') // the engine writes it as %27
            name += static_cast<char>(byte);

    web.load(pageUrl(web.service.baseUrl(), std::nullopt, name, 9'223'372'036'854'775'807));
    web.load(pageUrl(web.service.baseUrl(), u"5e55"_s, "it's %41 100%.mov", 0));

    const std::string path = "/files/upload/index.html";
    QCOMPARE(web.service.targets().at(0),
             path + "?session=(null)&filename=" + percentEncodeQuery(name) +
                 "&size=9223372036854775807");
    QCOMPARE(web.service.targets().at(1),
             path + "?session=5e55&filename=it%27s%20%2541%20100%25.mov&size=0");
}

void WebServicePageTest::aHostileSessionStaysInTheQuery()
{
    WebFixture web(home_.certificate());
    web.service.setPage(kIndex, "<title>end</title>");
    for (const QString& session : {u"@evil.example/"_s, u" \n\t<\">"_s, u"\\\\evil%zz%"_s,
                                   u"http://evil.example"_s, u"a#b"_s, u"\u00e9\U0001F600"_s}) {
        web.load(pageUrl(web.service.baseUrl(), session, "a", 1));
        QCOMPARE(web.view()->url().adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment),
                 QUrl(web.service.baseUrl()));
        QVERIFY(web.service.targets().back().starts_with(std::string(kIndex) + "?session="));
    }
}

void WebServicePageTest::aFailedLoadShowsWhyAndReloadTriesTheSameAgain_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("attachment");
    QTest::newRow("no page") << 404 << false;
    QTest::newRow("service in trouble") << 503 << false;
    QTest::newRow("no content") << 204 << false;
    QTest::newRow("a download") << 200 << true;
}

void WebServicePageTest::aFailedLoadShowsWhyAndReloadTriesTheSameAgain()
{
    QFETCH(int, status);
    QFETCH(bool, attachment);
    WebFixture web(home_.certificate());
    const QUrl url = pageUrl(web.service.baseUrl(), u"s"_s, "it's.mov", 1);
    if (attachment)
        web.service.setAttachment(kIndex);
    else
        web.service.setPage(kIndex, "<title>token</title>The service's own words.", status);

    web.page.load(url);
    QVERIFY(panelComes(web));
    QVERIFY(!panelText(web, u"failureReason"_s).isEmpty());

    web.service.setPage(kIndex, "<title>end</title>");
    pressReload(web);
    QTRY_VERIFY(!web.signals_.empty() && web.signals_.back().title == u"end");
    QVERIFY(!web.isPanelShown());
    const std::vector<std::string> targets = web.service.targets();
    QCOMPARE(targets.size(), std::size_t{2});
    QCOMPARE(targets[0], targets[1]);
}

void WebServicePageTest::aSilentServiceIsGivenUp()
{
    WebFixture web(home_.certificate(), std::chrono::milliseconds(300));
    web.service.setSilent("/silent");
    web.page.load(web.service.url("/silent"));

    QVERIFY(panelComes(web));
    QCOMPARE(panelText(web, u"failureReason"_s), u"The service does not respond."_s);
}

void WebServicePageTest::aLoadThatCutsOffAnotherOneIsNoFailure()
{
    WebFixture web(home_.certificate());
    web.service.setSilent("/silent");
    web.service.setPage(kIndex, "<title>end</title>");
    web.page.load(web.service.url("/silent"));
    QTRY_VERIFY(!web.service.targets().empty());
    web.load(web.service.url(kIndex));

    QTRY_VERIFY(!web.view()->page()->isLoading());
    QVERIFY(!web.isPanelShown());
}

void WebServicePageTest::aDeadRendererShowsThePanelAndReloadBringsThePageBack()
{
    WebFixture web(home_.certificate());
    web.show("<title>end</title>");
    ::kill(static_cast<pid_t>(web.view()->page()->renderProcessPid()), SIGKILL);

    QVERIFY(panelComes(web));
    pressReload(web);
    QTRY_COMPARE(web.titles(), u"end|end"_s);
    QVERIFY(!web.isPanelShown());
}

void WebServicePageTest::anUntrustedCertificateIsNeverAccepted()
{
    WebFixture web(home_.untrustedCertificate());
    web.service.setPage(kIndex, "<title>end</title>");
    web.page.load(web.service.url(kIndex));

    QVERIFY(panelComes(web));
    QVERIFY(panelText(web, u"failureReason"_s).contains(u"certificate"_s));
    QVERIFY(web.service.targets().empty());
}

void WebServicePageTest::linksToOtherWindowsAndSitesOpenInTheBrowser()
{
    WebFixture web(home_.certificate());
    for (const char* link : {"<a target=_blank href='https://one.example/?x=1'>",
                             "<a target=_blank rel=noopener href='https://two.example/'>",
                             "<a href='http://three.example/'>",
                             "<a target=_blank href='mailto:someone@four.example'>",
                             "<a href='file:///etc/passwd'>", "<a target=_blank href='/own'>"}) {
        web.show(kLinkStyle + link +
                 "link</a><script>onclick = () => setTimeout(() => {"
                 "document.title = 'clicked'; }, 100);" +
                 kEndWhenPainted + "</script>");
        clickPage(web);
        QTRY_COMPARE(web.signals_.back().title, u"clicked"_s);
    }

    QCOMPARE(web.opened.size(), std::size_t{4});
    QCOMPARE(web.opened[0], QUrl(u"https://one.example/?x=1"_s));
    QCOMPARE(web.opened[1], QUrl(u"https://two.example/"_s));
    QCOMPARE(web.opened[2], QUrl(u"http://three.example/"_s));
    QCOMPARE(web.opened[3], web.service.url("/own"));
    QVERIFY(!web.isPanelShown());
}

void WebServicePageTest::scriptsOpenNoWindowAndAskNothing()
{
    WebFixture web(home_.certificate());
    web.show("<script>onload = async () => {"
             "  const said = [open('https://popup.example/'), alert('a'), confirm('b'),"
             "    prompt('c')];"
             "  said.push(await Notification.requestPermission());"
             "  said.push(await new Promise(done => navigator.geolocation.getCurrentPosition("
             "    () => done('here'), error => done(error.code))));"
             "  said.push(await navigator.mediaDevices.getUserMedia({ audio: true })"
             "    .then(() => 'heard', () => 'deaf'));"
             "  document.title = JSON.stringify(said); document.title = 'end'; };</script>");

    QCOMPARE(web.signals_[0].title, u"[null,null,false,null,\"denied\",1,\"deaf\"]"_s);
    QVERIFY(web.opened.empty());
}

void WebServicePageTest::aPageThatWillNotBeLeftIsLeft()
{
    WebFixture web(home_.certificate());
    web.show("<p>Something to paint.</p><script>onbeforeunload = event => { event.preventDefault();"
             "  return event.returnValue = 'stay'; };"
             "onclick = () => { document.title = 'clicked' };" +
             kEndWhenPainted + "</script>");
    clickPage(web); // only a page that the user has touched may ask
    QTRY_COMPARE(web.signals_.back().title, u"clicked"_s);

    web.show("<title>end</title>");
    QCOMPARE(web.titles(), u"end|clicked|end"_s);
}

void WebServicePageTest::theWindowMayDeleteThePageFirst()
{
    constexpr auto kPatience = std::chrono::milliseconds(300);
    WebFixture web(home_.certificate(), kPatience);
    web.service.setSilent("/silent");
    web.page.load(web.service.url("/silent"));
    QTRY_VERIFY(!web.service.targets().empty());
    delete web.page.widget();
    QVERIFY(web.page.widget() == nullptr);
    web.page.load(web.service.url(kIndex));

    // the time of the load that was cut off passes
    WebFixture later(home_.certificate(), kPatience);
    later.service.setSilent("/silent");
    later.page.load(later.service.url("/silent"));
    QVERIFY(panelComes(later));
    QCOMPARE(web.service.targets().size(), std::size_t{1});
}

void WebServicePageTest::nothingIsLeftInTheHomeFolder()
{
    {
        WebFixture web(home_.certificate());
        web.show(
            "<script>onload = async () => { document.cookie = 'a=b; max-age=99999';"
            "  localStorage.a = 'b'; await (await caches.open('c')).put('/d', new Response('e'));"
            "  indexedDB.open('f').onsuccess = () => document.title = 'end'; };</script>");
        QVERIFY(web.view()->page()->profile()->isOffTheRecord());
    }
    QVERIFY(home_.files() == files_);
}

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    quenmoor::WebServicePageTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "web_service_page_test.moc"
