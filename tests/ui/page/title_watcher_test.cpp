// The signals that the titles of a page become in the browser engine.
#include "tests/fakes/quiet_log.h"
#include "tests/ui/page/web_fixture.h"

#include <QApplication>

namespace quenmoor {

using namespace Qt::StringLiterals;

class TitleWatcherTest : public QObject {
    Q_OBJECT

public:
    explicit TitleWatcherTest(const TrustingHome& home) : web_(home.certificate()) {}

private:
    const SilentLog log_;
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

    void theSameAddressLoadedTwiceSignalsTwice()
    {
        web_.show("<title>end</title><input id=token value=t>");
        web_.load(web_.service.url(kIndex));
        QCOMPARE(web_.titles(), u"end|end"_s);
        QCOMPARE(web_.received[1].token, u"t"_s);
    }

    void aTitleBeforeItsElementsWaitsForThem()
    {
        web_.show("<head><title>index</title><script>document.title = 'session';</script></head>"
                  "<input id=session value=s><span id=mac_major>3</span>"
                  "<script>document.title = 'end'</script><input id=token value=late>");
        QCOMPARE(web_.titles(), u"index|session|end"_s);
        for (const PageSignal& signal : web_.received) {
            QCOMPARE(signal.session, u"s"_s);
            QCOMPARE(signal.macMajor, u"3"_s);
            QCOMPARE(signal.token, u"late"_s);
        }
    }

    void absentElementsAndTooLongValuesAreAbsentValues()
    {
        web_.show("<p>no title at all, so the browser shows the address</p>"
                  "<script>setTimeout(() => document.title = 'end', 50)</script>"
                  "<input id=session><input id=token value=''>");
        QCOMPARE(web_.titles(), u"end"_s);
        const PageSignal signal = web_.received[0];
        QVERIFY(!signal.session && !signal.macMajor && !signal.macMinor && !signal.macBuild);
        QVERIFY(!signal.updateUrl);
        QCOMPARE(signal.token, u""_s);

        web_.show("<input id=session value=s><input id=token><script>onload = () => {"
                  "  document.getElementById('token').setAttribute('value', 'x'.repeat(5000000));"
                  "  document.title = 'end'; };</script>");
        QCOMPARE(web_.received.back().session, u"s"_s);
        QVERIFY(!web_.received.back().token);
    }

    void innerTextAndAttributesAreReadAsThePageHoldsThem()
    {
        web_.show(
            "<title>end</title><input id=token value=attribute><div id=session value=any></div>"
            "<p id=mac_major> 1<b>2</b> </p><p id=mac_minor hidden>7</p>"
            "<p id=mac_build><!-- 5 -->6</p><a id=update_url>https://x.example/?a&amp;b</a>"
            "<script>document.getElementById('token').value = 'typed';</script>");
        const PageSignal& signal = web_.received[0];
        QCOMPARE(signal.token, u"attribute"_s);
        QCOMPARE(signal.session, u"any"_s);
        QCOMPARE(signal.macMajor->trimmed(), u"12"_s);
        QCOMPARE(signal.macMinor, u"7"_s);
        QCOMPARE(signal.macBuild, u"6"_s);
        QCOMPARE(signal.updateUrl, u"https://x.example/?a&b"_s);
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
                  "  const event = document.createEvent('MutationEvent');"
                  "  event.initEvent('DOMSubtreeModified', true, false); dispatchEvent(event);"
                  "  const reach = [typeof qt, typeof QWebChannel, typeof kInvokeMethod];"
                  "  const title = document.createElement('title');"
                  "  title.append(reach.join()); document.head.append(title);"
                  "  title.firstChild.data = 'end'; };"
                  "</script>");
        QCOMPARE(web_.titles(), u"undefined,undefined,undefined|end"_s);
        QCOMPARE(web_.received[1].token, u"real"_s);
    }
};

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    quenmoor::TitleWatcherTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "title_watcher_test.moc"
