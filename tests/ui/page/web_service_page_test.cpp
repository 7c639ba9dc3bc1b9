// What the embedded page may do, what is sent to the service, and the panel that replaces a page
// that cannot be loaded.
#include "base/text.h"
#include "tests/fakes/quiet_log.h"
#include "tests/ui/page/web_fixture.h"

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
    explicit WebServicePageTest(const TrustingHome& home)
        : home_(home), files_(home.files()), web_(home.certificate())
    {
    }

private Q_SLOTS:
    void init() { web_.reset(); }
    void theQueryIsSentByteForByteAndKeepsAHostileSession();
    void aFailedLoadShowsThePanelAndReloadSendsTheSameRequest();
    void aLoadTimesOutUnlessTheWindowDeletedThePage();
    void aReplacedLoadIsNoFailure();
    void aCrashedRendererShowsThePanelAndReloadShowsThePageAgain();
    void anUntrustedCertificateIsNeverAccepted();
    void linksToOtherWindowsAndSitesOpenInTheBrowser();
    void scriptsCannotOpenWindowsDialogsOrDevices();
    void aPageCannotPreventTheNextLoad();
    void nothingIsStoredInTheHomeFolder();

private:
    static bool waitForPanel(WebFixture& web)
    {
        return QTest::qWaitFor([&web] { return web.isPanelShown(); }, 20'000);
    }
    static QString panelReason(WebFixture& web)
    {
        return web.page.widget()->findChild<QLabel*>(u"failureReason"_s)->text();
    }
    void pressReload()
    {
        auto* const button = web_.page.widget()->findChild<QPushButton*>(u"reloadButton"_s);
        QTest::keyClick(button, Qt::Key_Space);
        QTRY_VERIFY(!web_.received.empty() && web_.received.back().title == u"end");
        QVERIFY(!web_.isPanelShown());
    }
    // Shows `html`, clicks on it and waits for the title "clicked".
    void showAndClick(const std::string& html)
    {
        // A page accepts clicks after it has been painted.
        web_.show("<style>a { position: fixed; inset: 0; }</style>" + html +
                  "<script>onclick = () => setTimeout(() => document.title = 'clicked', 50);"
                  "requestAnimationFrame(() => requestAnimationFrame(() => {"
                  "  document.title = 'end'; }));</script>");
        QTest::mouseClick(web_.view()->focusProxy(), Qt::LeftButton, {}, QPoint(50, 50));
        QTRY_COMPARE(web_.received.back().title, u"clicked"_s);
    }

    const SilentLog log_;
    const TrustingHome& home_;
    const std::map<std::string, std::string> files_; // of the home folder at the start
    WebFixture web_;
};

void WebServicePageTest::theQueryIsSentByteForByteAndKeepsAHostileSession()
{
    web_.service.setPage(kIndex, {"<title>end</title>", 200});
    const QString base = web_.service.url(kIndex).toString();
    std::string name;
    for (int byte = 1; byte < 256; ++byte)
        if (byte != '\'') // the engine sends it as %27
            name += static_cast<char>(byte);
    web_.load(pageUrl(base, std::nullopt, name, 9'223'372'036'854'775'807));
    QCOMPARE(web_.service.targets().back(),
             std::string(kIndex) + "?session=(null)&filename=" + percentEncodeQuery(name) +
                 "&size=9223372036854775807");
    for (const QString& session : {u"@evil.example/"_s, u" \n\t<\">"_s, u"\\\\evil%zz%"_s,
                                   u"http://evil.example"_s, u"a#b"_s, u"\u00e9\U0001F600"_s}) {
        web_.load(pageUrl(base, session, "a", 1));
        QCOMPARE(web_.view()->url().adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment), QUrl(base));
        QVERIFY(web_.service.targets().back().starts_with(std::string(kIndex) + "?session="));
    }
}

void WebServicePageTest::aFailedLoadShowsThePanelAndReloadSendsTheSameRequest()
{
    for (const ScriptedService::Page& failing :
         {ScriptedService::Page{"<title>token</title>The service's own text.", 404},
          ScriptedService::Page{{}, 204},
          ScriptedService::Page{"bytes", 200, "attachment; filename=unwanted.bin"}}) {
        web_.reset();
        web_.service.setPage(kIndex, failing);
        web_.page.load(pageUrl(web_.service.url(kIndex).toString(), u"s"_s, "it's.mov", 1));
        QVERIFY(waitForPanel(web_));
        QCOMPARE(panelReason(web_), u"The service responded, but not with its upload page."_s);

        web_.service.setPage(kIndex, {"<title>end</title>", 200});
        pressReload();
        const std::vector<std::string> targets = web_.service.targets();
        QCOMPARE(targets.size(), 2U);
        QCOMPARE(targets[0], targets[1]);
    }
}

void WebServicePageTest::aLoadTimesOutUnlessTheWindowDeletedThePage()
{
    WebFixture deleted(home_.certificate(), std::chrono::milliseconds(100));
    WebFixture later(home_.certificate(), std::chrono::milliseconds(300));
    for (WebFixture* const web : {&deleted, &later})
        web->service.setPage("/silent", {{}, ScriptedService::kSilent});
    deleted.page.load(deleted.service.url("/silent"));
    delete deleted.page.widget();
    QVERIFY(deleted.page.widget() == nullptr);
    deleted.page.load(deleted.service.url(kIndex));

    later.page.load(later.service.url("/silent"));
    QVERIFY(waitForPanel(later));
    QCOMPARE(panelReason(later), u"The service does not respond."_s);
}

void WebServicePageTest::aReplacedLoadIsNoFailure()
{
    web_.service.setPage("/silent", {{}, ScriptedService::kSilent});
    web_.page.load(web_.service.url("/silent"));
    QTRY_VERIFY(!web_.service.targets().empty());
    web_.show("<title>end</title>");
    QTRY_VERIFY(!web_.view()->page()->isLoading());
    QVERIFY(!web_.isPanelShown());
}

void WebServicePageTest::aCrashedRendererShowsThePanelAndReloadShowsThePageAgain()
{
    web_.show("<title>end</title>");
    web_.received.clear();
    ::kill(static_cast<pid_t>(web_.view()->page()->renderProcessPid()), SIGKILL);
    QVERIFY(waitForPanel(web_));
    pressReload();
}

void WebServicePageTest::anUntrustedCertificateIsNeverAccepted()
{
    WebFixture web(home_.untrustedCertificate());
    web.page.load(web.service.url(kIndex));
    QVERIFY(waitForPanel(web));
    QVERIFY(panelReason(web).contains(u"certificate"_s));
    QVERIFY(web.service.targets().empty());
}

void WebServicePageTest::linksToOtherWindowsAndSitesOpenInTheBrowser()
{
    for (const char* link :
         {"<a target=_blank href='https://one.example/?x=1'>", "<a href='http://two.example/'>",
          "<a target=_blank href='/own'>", "<a target=_blank href='mailto:someone@three.example'>",
          "<a href='file:///etc/passwd'>"})
        showAndClick(std::string(link) + "link</a>");
    QCOMPARE(web_.opened, (std::vector{QUrl(u"https://one.example/?x=1"_s),
                                       QUrl(u"http://two.example/"_s), web_.service.url("/own")}));
    QVERIFY(!web_.isPanelShown());
}

void WebServicePageTest::scriptsCannotOpenWindowsDialogsOrDevices()
{
    web_.show("<script>onload = async () => {"
              "  const results = [open('https://popup.example/'), alert('a'), confirm('b'),"
              "    prompt('c')];"
              "  results.push(await Notification.requestPermission());"
              "  results.push(await new Promise(done =>"
              "    navigator.geolocation.getCurrentPosition("
              "      () => done('found'), error => done(error.code))));"
              "  results.push(await navigator.mediaDevices.getUserMedia({ audio: true })"
              "    .then(() => 'open', () => 'rejected'));"
              "  document.title = JSON.stringify(results); document.title = 'end'; };</script>");
    QCOMPARE(web_.received[0].title, u"[null,null,false,null,\"denied\",1,\"rejected\"]"_s);
    QVERIFY(web_.opened.empty());
}

void WebServicePageTest::aPageCannotPreventTheNextLoad()
{
    // Only a page that the user has clicked may ask.
    showAndClick("<p>Text</p><script>onbeforeunload = event => { event.preventDefault();"
                 "  return event.returnValue = 'stay'; };</script>");
    web_.show("<title>end</title>");
    QCOMPARE(web_.titles(), u"end|clicked|end"_s);
}

void WebServicePageTest::nothingIsStoredInTheHomeFolder()
{
    web_.show("<script>onload = async () => { document.cookie = 'a=b; max-age=99999';"
              "  localStorage.a = 'b'; await (await caches.open('c')).put('/d', new Response('e'));"
              "  indexedDB.open('f').onsuccess = () => document.title = 'end'; };</script>");
    QVERIFY(web_.view()->page()->profile()->isOffTheRecord());
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
