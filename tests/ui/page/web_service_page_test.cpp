// The embedded page in the real browser engine: the signals that its titles become, what it may
// do, and the panel that replaces it when it cannot be loaded.
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

private Q_SLOTS:
    void init() { web_.reset(); }

    void titlesOfOneTaskKeepTheirOwnValues()
    {
        web_.show("<title>start</title><input id=session value=s0><input id=token>"
                  "<p id=mac_major>1</p><p id=mac_minor>2</p><script>onload = () => {"
                  "  const get = id => document.getElementById(id);"
                  "  const set = (id, v) => get(id).setAttribute('value', v);"
                  "  set('token', 'a'); document.title = 'upload';"
                  "  set('token', 'b'); document.title = 'token'; set('session', 's1');"
                  "  set('token', 'c'); document.querySelector('title').firstChild.data = 'cancel';"
                  "  get('token').remove(); get('mac_major').innerHTML = '<b>3</b>';"
                  "  document.querySelector('title').remove(); get('mac_minor').id = 'token';"
                  "  document.head.append(document.createElement('title')); set('token', 'd');"
                  "  document.title = 'end'; set('token', 'e'); };</script>");
        QStringList all;
        for (const PageSignal& signal : web_.received)
            all << signal.title + u' ' + *signal.session + u' ' + signal.token.value_or(u"-"_s) +
                       u' ' + signal.macMajor.value_or(u"-"_s) + signal.macMinor.value_or(u"-"_s);
        QCOMPARE(all.join(u'|'), u"start s0 - 12|upload s0 a 12|token s0 b 12|cancel s1 c 12|"
                                 "end s1 d 3-"_s);
    }

    void aTitleIsReportedAgainAfterAnEmptyOne()
    {
        web_.show("<script>onload = () => {"
                  "  document.title = 'token'; document.title = 'token';"
                  "  document.title = ''; document.title = ' to\\nken ';"
                  "  document.title = 'token'; document.title = ''; document.title = 'token';"
                  "  document.title = 'end'; };</script>");
        QCOMPARE(web_.titles(), u"token|to ken|token|token|end"_s);
    }

    void aTitleFromTheParsingIsReadAfterItEveryTimeThePageIsLoaded()
    {
        web_.show("<head><title>index</title><script>document.title = 'session';</script></head>"
                  "<input id=session value=s><span id=mac_major>3</span>"
                  "<script>document.title = 'end'</script><input id=token value=late>");
        web_.load(web_.service.url(kIndex));
        QCOMPARE(web_.titles(), u"index|session|end|index|session|end"_s);
        for (const PageSignal& signal : web_.received) {
            QCOMPARE(signal.session, u"s"_s);
            QCOMPARE(signal.macMajor, u"3"_s);
            QCOMPARE(signal.token, u"late"_s);
        }
    }

    void absentElementsAndTooLongValuesAreAbsentValues()
    {
        web_.show("<p>without a title element</p><input id=session><input id=token value=''>"
                  "<p id=mac_major> 1<b>2</b> </p><p id=mac_minor hidden>7</p>"
                  "<a id=update_url>https://x.example/?a&amp;b</a><script>onload = () => {"
                  "  document.getElementById('token').value = 'typed'; document.title = 'short';"
                  "  document.getElementById('token').setAttribute('value', 'x'.repeat(70000));"
                  "  document.title = 'end'; };</script>");
        QCOMPARE(web_.titles(), u"short|end"_s);
        const PageSignal& signal = web_.received[0];
        QVERIFY(!signal.session && !signal.macBuild);
        QCOMPARE(signal.token, u""_s);
        QCOMPARE(signal.macMajor->trimmed(), u"12"_s);
        QCOMPARE(signal.macMinor, u"7"_s);
        QCOMPARE(signal.updateUrl, u"https://x.example/?a&b"_s);
        QVERIFY(!web_.received[1].token);
    }

    void framesAndOtherOriginsAreIgnored()
    {
        web_.service.setPage("/frame",
                             {"<title>token</title><script>document.title='cancel'</script>", 200});
        web_.service.setPage("/other",
                             {"<title>token</title><script>"
                              "onload = () => { document.title = 'cancel';"
                              "  location = 'https://localhost:' + location.port + '/end'; };"
                              "</script>",
                              200});
        web_.service.setPage("/end", {"<title>end</title>", 200});
        web_.show("<iframe src=/frame></iframe><iframe srcdoc='<title>token</title>'></iframe>"
                  "<script>onload = () => document.title = 'end'</script>");
        web_.load(web_.service.url("/other", "127.0.0.1"));
        QCOMPARE(web_.titles(), u"end|end"_s);
    }

    void thePageCannotReachTheChannelOrHideItsElements()
    {
        web_.show("<form><input name=getElementById><input name=title></form>"
                  "<form id=token value=real><input name=getAttribute></form>"
                  "<img name=getElementById><img name=title>"
                  "<script>"
                  "Object.defineProperty(Document.prototype, 'title', { get: () => 'token' });"
                  "Element.prototype.getAttribute = () => 'forged';"
                  "JSON.stringify = () => 'forged'; Array.prototype.map = () => [];"
                  "onload = () => {"
                  "  const reach = [typeof qt, typeof QWebChannel, typeof kInvokeMethod];"
                  "  const title = document.createElement('title');"
                  "  title.append(reach.join()); document.head.append(title);"
                  "  title.firstChild.data = 'end'; };"
                  "</script>");
        QCOMPARE(web_.titles(), u"undefined,undefined,undefined|end"_s);
        QCOMPARE(web_.received[1].token, u"real"_s);
    }

    void aFailedLoadShowsThePanelAndReloadSendsTheSameRequest()
    {
        for (const ScriptedService::Page& failing :
             {ScriptedService::Page{"<title>token</title>The service's own text.", 404},
              ScriptedService::Page{{}, 204},
              ScriptedService::Page{"bytes", 200, "attachment; filename=unwanted.bin"}}) {
            web_.reset();
            web_.service.setPage(kIndex, failing);
            web_.page.load(
                pageUrl(web_.service.url(kIndex).toString(), u" \t@<\">"_s, "it's\xE9?.mov", 1));
            QVERIFY(waitForPanel(web_));
            QCOMPARE(panelReason(web_), u"The service responded, but not with its upload page."_s);

            web_.service.setPage(kIndex, {"<title>end</title>", 200});
            pressReload();
            const std::vector<std::string> targets = web_.service.targets();
            QCOMPARE(targets.size(), 2U);
            QCOMPARE(targets[0], targets[1]);
            QVERIFY(targets[0].starts_with(std::string(kIndex) + "?session="));
            QVERIFY(targets[0].ends_with("&filename=it%27s%E9?.mov&size=1"));
        }
    }

    void aLoadTimesOutUnlessTheWindowDeletedThePage()
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

    void aReplacedLoadIsNoFailure()
    {
        web_.service.setPage("/silent", {{}, ScriptedService::kSilent});
        web_.page.load(web_.service.url("/silent"));
        QTRY_VERIFY(!web_.service.targets().empty());
        web_.show("<title>end</title>");
        QTRY_VERIFY(!web_.view()->page()->isLoading());
        QVERIFY(!web_.isPanelShown());
    }

    void aCrashedRendererShowsThePanelAndReloadShowsThePageAgain()
    {
        web_.show("<title>end</title>");
        web_.received.clear();
        ::kill(static_cast<pid_t>(web_.view()->page()->renderProcessPid()), SIGKILL);
        QVERIFY(waitForPanel(web_));
        pressReload();
    }

    void anUntrustedCertificateIsNeverAccepted()
    {
        WebFixture web(home_.untrustedCertificate());
        web.page.load(web.service.url(kIndex));
        QVERIFY(waitForPanel(web));
        QVERIFY(panelReason(web).contains(u"certificate"_s));
        QVERIFY(web.service.targets().empty());
    }

    void linksToOtherWindowsAndSitesOpenInTheBrowser()
    {
        for (const char* link : {"<a target=_blank href='https://one.example/?x=1'>",
                                 "<a href='http://two.example/'>", "<a target=_blank href='/own'>",
                                 "<a target=_blank href='mailto:someone@three.example'>",
                                 "<a href='file:///etc/passwd'>"})
            showAndClick(std::string(link) + "link</a>");
        QCOMPARE(web_.opened,
                 (std::vector{QUrl(u"https://one.example/?x=1"_s), QUrl(u"http://two.example/"_s),
                              web_.service.url("/own")}));
        QVERIFY(!web_.isPanelShown());
    }

    void scriptsCannotOpenWindowsDialogsOrDevices()
    {
        web_.show(
            "<script>onload = async () => {"
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

    void aPageCannotPreventTheNextLoad()
    {
        // Only a page that the user has clicked may ask.
        showAndClick("<p>Text</p><script>onbeforeunload = event => { event.preventDefault();"
                     "  return event.returnValue = 'stay'; };</script>");
        web_.show("<title>end</title>");
        QCOMPARE(web_.titles(), u"end|clicked|end"_s);
    }

    void nothingIsStoredInTheHomeFolder()
    {
        web_.show(
            "<script>onload = async () => { document.cookie = 'a=b; max-age=99999';"
            "  localStorage.a = 'b'; await (await caches.open('c')).put('/d', new Response('e'));"
            "  indexedDB.open('f').onsuccess = () => document.title = 'end'; };</script>");
        QVERIFY(web_.view()->page()->profile()->isOffTheRecord());
        QVERIFY(home_.files() == files_);
    }
};

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    quenmoor::WebServicePageTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "web_service_page_test.moc"
