// The embedded page in the real browser engine: the signals that its titles become, what it may
// do, and the panel that replaces it when it cannot be loaded.
#include "tests/fakes/quiet_log.h"
#include "tests/ui/page/web_fixture.h"
#include "ui/page/page_input_filter.h"

#include <QApplication>
#include <QPushButton>

namespace quenmoor {

using namespace Qt::StringLiterals;

class WebServicePageTest : public QObject {
    Q_OBJECT

public:
    explicit WebServicePageTest(const TrustingHome& home) : home_(home), web_(home.certificate()) {}

private:
    const RecordingLog log_;
    const TrustingHome& home_;
    WebFixture web_;

private Q_SLOTS:
    void init() { web_.reset(); }

    void everyTitleIsReportedWithTheValuesOfItsMoment()
    {
        // A title of one task keeps its own values; an equal title is reported again after an empty
        // one; a title from the parsing has the values after it, in a second load too; an absent
        // and a long value is absent; no script can reach the channel or hide an element.
        for (
            const auto& [html, titles] : std::vector<std::pair<const char*, QString>>{
                {R"(<title>start</title><input id=session value=s0><input id=token>
                     <p id=mac_major>1</p><p id=mac_minor>2</p><script>onload = () => {
                     const get = id => document.getElementById(id);
                     const set = (id, value) => get(id).setAttribute('value', value);
                     set('token', 'a'); document.title = 'upload';
                     set('token', 'b'); document.title = 'token';
                     set('session', 's1'); set('token', 'c');
                     document.querySelector('title').firstChild.data = 'cancel';
                     get('token').remove(); get('mac_major').innerHTML = '<b>3</b>';
                     document.querySelector('title').remove(); get('mac_minor').id = 'token';
                     document.head.append(document.createElement('title')); set('token', 'd');
                     document.title = 'end'; set('token', 'e'); };</script>)",
                 u"start session=s0 major=1 minor=2|upload session=s0 token=a major=1 minor=2|"
                 "token session=s0 token=b major=1 minor=2|"
                 "cancel session=s1 token=c major=1 minor=2|end session=s1 token=d major=3"_s},
                {R"(<script>onload = () => ['token', 'token', '', ' to\nken ', 'token', '', 'token',
                     'end'].forEach(title => { document.title = title; });</script>)",
                 u"token|to ken|token|token|end"_s},
                {R"(<title>index</title><script>document.title = 'session';</script>
                     <input id=session value=s><span id=mac_major>3</span>
                     <script>document.title = 'end'</script><input id=token value=late>)",
                 u"index session=s token=late major=3|session session=s token=late major=3|"
                 "end session=s token=late major=3"_s},
                {R"(<p>without a title element</p><input id=session><input id=token value=''>
                     <p id=mac_major>1<b>2</b></p><p id=mac_minor hidden>7</p>
                     <a id=update_url>https://x/?a&amp;b</a><script>onload = () => {
                     const token = document.getElementById('token');
                     token.value = 'typed'; document.title = 'short';
                     token.setAttribute('value', 'x'.repeat(70000));
                     document.title = 'end'; };</script>)",
                 u"short token= major=12 minor=7 url=https://x/?a&b|"
                 "end major=12 minor=7 url=https://x/?a&b"_s},
                {R"(<form><input name=getElementById><input name=title></form>
                     <form id=token value=real><input name=getAttribute></form>
                     <img name=getElementById><img name=title><script>
                     Object.defineProperty(Document.prototype, 'title', { get: () => 'token' });
                     Element.prototype.getAttribute = () => 'forged';
                     JSON.stringify = () => 'forged'; Array.prototype.map = () => [];
                     onload = () => {
                         const title = document.createElement('title');
                         title.append([typeof qt, typeof QWebChannel, typeof transport].join());
                         document.head.append(title); title.firstChild.data = 'end'; };</script>)",
                 u"undefined,undefined,undefined token=real|end token=real"_s}}) {
            web_.reset();
            QCOMPARE(web_.show(html), titles);
            QCOMPARE(web_.load(web_.service.url(kIndex)), titles + u'|' + titles);
        }
    }

    void aFailedLoadShowsThePanelAndReloadSendsTheSameRequest()
    {
        for (const auto& [head, key] :
             {std::pair("404 Not Found", Qt::Key_Space),
              {"204 No Content", Qt::Key_F5},
              {"200 OK\r\nContent-Disposition: attachment; filename=unwanted", Qt::Key_Return}}) {
            web_.reset();
            web_.service.pages[kIndex] = "<title>token</title>The service's own text.";
            web_.service.head = head;
            web_.page.load(
                pageUrl(web_.service.url(kIndex).toString(), u" \t@<\">"_s, "it's\xE9?.mov", 1));
            QCOMPARE(web_.failure(), u"The service responded, but not with its upload page."_s);
            web_.service.pages[kIndex] = "<title>end</title>";
            web_.service.head = "200 OK";
            web_.reported.clear();
            web_.page.widget()->activateWindow(); // a shortcut needs the active window
            QVERIFY(QTest::qWaitForWindowActive(web_.page.widget()));
            QTest::keyClick(web_.page.widget()->findChild<QPushButton*>(u"reloadButton"_s), key);
            QVERIFY(web_.waitForTitle(u"end") && !web_.isPanelShown());
            QCOMPARE(web_.service.targets.size(), 2);
            QCOMPARE(web_.service.targets[0], web_.service.targets[1]);
            QVERIFY(web_.service.targets[0].startsWith("/files/upload/index.html?session="));
            QVERIFY(web_.service.targets[0].endsWith("&filename=it%27s%E9?.mov&size=1"));
        }
    }

    void aLoadThatBringsNoDocumentTimesOut()
    {
        WebFixture web(home_.certificate());
        auto* const timer = web.page.findChild<QTimer*>(u"loadTimer"_s);
        web.show("<title>end</title><img src=/silent>");
        QVERIFY(web.view()->page()->isLoading() && !timer->isActive() && !web.isPanelShown());
        web.page.load(web.service.url("/silent"));
        QVERIFY(timer->isActive() && !web.view()->isVisible());
        QVERIFY(web.page.widget()->findChild<QWidget*>(u"loadingPanel"_s)->isVisible());
        timer->start(0);
        QCOMPARE(web.failure(), u"The service does not respond."_s);
        web.page.load(web.service.url("/silent"));
        delete web.page.widget(); // as the window does
        QVERIFY(web.page.widget() == nullptr && !timer->isActive());
        web.page.load(web.service.url(kIndex));
    }

    void aNavigationThatEndsWithoutADocumentKeepsThePage()
    {
        web_.show("<title>end</title>");
        web_.service.pages["/own"] = "";
        web_.service.head = "204 No Content";
        web_.view()->page()->runJavaScript(u"location = '/own'"_s);
        QTRY_VERIFY(web_.service.targets.size() == 2 && !web_.view()->page()->isLoading());
        QCoreApplication::processEvents();
        QVERIFY(!web_.isPanelShown());
    }

    void inputThatBeganOnAnEarlierPageIsSwallowed()
    {
        QWidget area;
        QPushButton page(&area);
        PageInputFilter filter(&area);
        const auto reaches = [&](quint64 time, Qt::Key key, bool repeats = false,
                                 Qt::MouseButton button = Qt::NoButton) {
            QKeyEvent keyPress(QEvent::KeyPress, key, {}, {}, repeats);
            QMouseEvent mousePress(QEvent::MouseButtonPress, {}, {}, {}, button, button, {});
            QInputEvent& press = button == Qt::NoButton ? static_cast<QInputEvent&>(keyPress)
                                                        : static_cast<QInputEvent&>(mousePress);
            press.setTimestamp(time);
            return !filter.eventFilter(&page, &press);
        };
        QVERIFY(reaches(1000, {}, false, Qt::LeftButton) && reaches(1100, Qt::Key_Return));
        QVERIFY(!reaches(1200, {}, false, Qt::BackButton) && !reaches(1250, Qt::Key_Back));
        QVERIFY(reaches(1300, Qt::Key_Left) && reaches(1400, Qt::Key_Return, true));
        filter.beginLoad();
        QVERIFY(!reaches(1500, {}, false, Qt::LeftButton) && !reaches(1600, Qt::Key_A));
        QVERIFY(!reaches(9000, Qt::Key_Return, true)); // still held
        QVERIFY(reaches(9100, Qt::Key_Return) && reaches(9200, Qt::Key_Return, true));
        QVERIFY(reaches(9300, {}, false, Qt::LeftButton));
    }

    void anUntrustedCertificateIsNeverAccepted()
    {
        WebFixture web(home_.untrustedCertificate());
        web.page.load(web.service.url(kIndex));
        QVERIFY(web.failure().contains(u"certificate"_s));
        QVERIFY(web.service.targets.empty());
    }

    void linksToOtherWindowsAndSitesOpenInTheBrowser()
    {
        web_.service.pages["/own"] = "<title>clicked</title>";
        for (const char* link : {"<a target=_blank href='https://one.example/?x=1'>",
                                 "<a href='http://two.example/'>", "<a target=_blank href='/own'>",
                                 "<a target=_blank href='mailto:someone@three.example'>",
                                 "<a href='file:///etc/passwd'>", "<a href='/own'>"}) {
            // A page accepts clicks after it has been painted.
            web_.show("<style>a { position: fixed; inset: 0; }</style>" + QByteArray(link) +
                      "link</a><script>onclick = () => setTimeout("
                      "() => document.title = 'clicked', 50);"
                      "requestAnimationFrame(() => requestAnimationFrame(() => {"
                      "  document.title = 'end'; }));</script>");
            QTest::mouseClick(web_.view()->focusProxy(), Qt::LeftButton, {}, QPoint(50, 50));
            QVERIFY(web_.waitForTitle(u"clicked"));
        }
        QCOMPARE(web_.opened,
                 (std::vector{QUrl(u"https://one.example/?x=1"_s), QUrl(u"http://two.example/"_s),
                              web_.service.url("/own")}));
        QVERIFY(!web_.isPanelShown());
    }
};

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    quenmoor::prepareBrowserEngine();
    const QApplication application(argc, argv);
    quenmoor::WebServicePageTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "web_service_page_test.moc"
