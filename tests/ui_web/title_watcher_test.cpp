// What the page's titles become, by the browser engine itself.
#include "tests/fakes/quiet_log.h"
#include "tests/ui_web/web_fixture.h"

#include <QApplication>
#include <QWebEngineScript>
#include <QWebEngineScriptCollection>

namespace quenmoor {

using namespace Qt::StringLiterals;

class TitleWatcherTest : public QObject {
    Q_OBJECT

public:
    explicit TitleWatcherTest(const TrustingHome& home) : home_(home) {}

private Q_SLOTS:
    void titlesOfOneTaskKeepTheirOwnValues_data();
    void titlesOfOneTaskKeepTheirOwnValues();
    void anEmptiedTitleIsSaidAgain();
    void theSameAddressLoadedTwiceSignalsTwice();
    void aTitleBeforeItsElementsWaitsForThem();
    void absentElementsAreAbsentValues();
    void innerTextAndAttributesAreReadAsThePageHoldsThem();
    void framesAndOtherOriginsSayNothing();
    void thePageCannotReachTheChannelOrHideItsElements();
    void aTooLongValueCountsAsAbsent();

private:
    const TrustingHome& home_;
};

void TitleWatcherTest::titlesOfOneTaskKeepTheirOwnValues_data()
{
    QTest::addColumn<bool>("withMutationEvents");
    QTest::newRow("mutation events") << true;
    QTest::newRow("mutation records") << false;
}

void TitleWatcherTest::titlesOfOneTaskKeepTheirOwnValues()
{
    QFETCH(bool, withMutationEvents);
    WebFixture web(home_.certificate());
    if (!withMutationEvents) {
        // an engine that no longer has them
        QWebEngineScriptCollection& scripts = web.view()->page()->scripts();
        const QList<QWebEngineScript> own = scripts.toList();
        QWebEngineScript newer;
        newer.setWorldId(own.first().worldId());
        newer.setInjectionPoint(QWebEngineScript::DocumentCreation);
        newer.setSourceCode(u"delete window.MutationEvent;"_s);
        scripts.clear();
        scripts.insert(newer);
        scripts.insert(own);
    }
    web.show("<title>start</title><input id=session value=s0><input id=token>"
             "<script>onload = () => {"
             "  const set = (id, v) => document.getElementById(id).setAttribute('value', v);"
             "  set('token', 'a'); document.title = 'upload';"
             "  set('token', 'b'); document.title = 'token'; set('session', 's1');"
             "  set('token', 'c'); document.querySelector('title').firstChild.data = 'cancel';"
             "  set('token', 'd'); document.querySelector('title').textContent = 'end';"
             "  set('token', 'e');"
             "};</script>");

    QCOMPARE(web.titles(), u"start|upload|token|cancel|end"_s);
    const std::vector<const char*> tokens{"a", "b", "c", "d"};
    const std::vector<const char*> sessions{"s0", "s0", "s1", "s1"};
    for (std::size_t i = 0; i < tokens.size(); ++i) {
        QCOMPARE(web.signals_[i + 1].token, QString::fromLatin1(tokens[i]));
        QCOMPARE(web.signals_[i + 1].session, QString::fromLatin1(sessions[i]));
    }
}

void TitleWatcherTest::anEmptiedTitleIsSaidAgain()
{
    WebFixture web(home_.certificate());
    web.show("<script>onload = () => {"
             "  document.title = 'token'; document.title = 'token';"
             "  document.title = ''; document.title = ' to\\nken ';"
             "  document.title = 'token'; document.title = ''; document.title = 'token';"
             "  document.title = 'end'; };</script>");

    QCOMPARE(web.titles(), u"token|to ken|token|token|end"_s);
}

void TitleWatcherTest::theSameAddressLoadedTwiceSignalsTwice()
{
    WebFixture web(home_.certificate());
    web.show("<title>end</title><input id=token value=t>");
    web.load(web.service.url(kIndex));

    QCOMPARE(web.titles(), u"end|end"_s);
    QCOMPARE(web.signals_[1].token, u"t"_s);
}

void TitleWatcherTest::aTitleBeforeItsElementsWaitsForThem()
{
    WebFixture web(home_.certificate());
    web.show("<head><title>index</title><script>document.title = 'session';</script></head>"
             "<input id=session value=s><span id=mac_major>3</span>"
             "<script>document.title = 'end'</script><input id=token value=late>");

    QCOMPARE(web.titles(), u"index|session|end"_s);
    for (const PageSignal& signal : web.signals_) {
        QCOMPARE(signal.session, u"s"_s);
        QCOMPARE(signal.macMajor, u"3"_s);
        QCOMPARE(signal.token, u"late"_s);
    }
}

void TitleWatcherTest::absentElementsAreAbsentValues()
{
    WebFixture web(home_.certificate());
    web.show("<p>no title at all, so the browser shows the address</p>"
             "<script>setTimeout(() => document.title = 'end', 50)</script>"
             "<input id=session><input id=token value=''>");

    QCOMPARE(web.titles(), u"end"_s);
    const PageSignal& signal = web.signals_[0];
    QVERIFY(!signal.session && !signal.macMajor && !signal.macMinor && !signal.macBuild);
    QVERIFY(!signal.updateUrl);
    QCOMPARE(signal.token, u""_s);
}

void TitleWatcherTest::innerTextAndAttributesAreReadAsThePageHoldsThem()
{
    WebFixture web(home_.certificate());
    web.show("<title>end</title><input id=token value=attribute><div id=session value=any></div>"
             "<p id=mac_major> 1<b>2</b> </p><p id=mac_minor hidden>7</p>"
             "<p id=mac_build><!-- 5 -->6</p><a id=update_url>https://x.example/?a&amp;b</a>"
             "<script>document.getElementById('token').value = 'typed';</script>");

    const PageSignal& signal = web.signals_[0];
    QCOMPARE(signal.token, u"attribute"_s);
    QCOMPARE(signal.session, u"any"_s);
    QCOMPARE(signal.macMajor->trimmed(), u"12"_s);
    QCOMPARE(signal.macMinor, u"7"_s);
    QCOMPARE(signal.macBuild, u"6"_s);
    QCOMPARE(signal.updateUrl, u"https://x.example/?a&b"_s);
}

void TitleWatcherTest::framesAndOtherOriginsSayNothing()
{
    WebFixture web(home_.certificate());
    web.service.setPage("/frame", "<title>token</title><script>document.title='cancel'</script>");
    web.service.setPage("/other", "<title>token</title><script>"
                                  "onload = () => { document.title = 'cancel';"
                                  "  location = 'https://localhost:' + location.port + '/end'; };"
                                  "</script>");
    web.service.setPage("/end", "<title>end</title>");
    web.show("<iframe src=/frame></iframe><iframe srcdoc='<title>token</title>'></iframe>"
             "<script>onload = () => document.title = 'end'</script>");
    web.load(web.service.url("/other", "127.0.0.1"));

    QCOMPARE(web.titles(), u"end|end"_s);
}

void TitleWatcherTest::thePageCannotReachTheChannelOrHideItsElements()
{
    WebFixture web(home_.certificate());
    web.show("<form><input name=getElementById><input name=title></form>"
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

    QCOMPARE(web.titles(), u"undefined,undefined,undefined|end"_s);
    QCOMPARE(web.signals_[1].token, u"real"_s);
}

void TitleWatcherTest::aTooLongValueCountsAsAbsent()
{
    const SilentLog log;
    WebFixture web(home_.certificate());
    web.show("<input id=session value=s><input id=token><script>onload = () => {"
             "  document.getElementById('token').setAttribute('value', 'x'.repeat(5000000));"
             "  document.title = 'end'; };</script>");

    QCOMPARE(web.signals_[0].session, u"s"_s);
    QVERIFY(!web.signals_[0].token);
}

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    const QApplication application(argc, argv);
    quenmoor::TitleWatcherTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "title_watcher_test.moc"
