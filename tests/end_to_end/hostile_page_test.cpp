// Pages that attack the window, one after the other in the same window. After each of them the user
// skips the files, and the ordinary page uploads another one. For each page the test prints the
// longest time for which the main thread did not run a timer, and the growth of the process.
#include "tests/ui/page/web_fixture.h"
#include "tests/ui/window_fixture.h"
#include "ui/drag_view.h"

#include <sys/resource.h>

#include <QApplication>
#include <QPushButton>
#include <QTableView>
#include <QTcpServer>
#include <QTest>
#include <csignal>

namespace quenmoor {

using namespace Qt::StringLiterals;
using namespace std::string_view_literals;

namespace {

using Beat = std::chrono::steady_clock;

constexpr auto kMaxPause = std::chrono::seconds(10); // of the main thread, on a busy machine
#ifdef __SANITIZE_ADDRESS__                          // keeps freed memory
constexpr long kMaxGrowth = 1500;                    // MB
#else
constexpr long kMaxGrowth = 400; // MB
#endif

// %1 is the script of the page. `read` tries every way in which a page could read a URL.
constexpr const char* kFrame = R"(<!doctype html><body>
<input id=session value=s><input id=token value=token><script>
const signal = title => { document.title = title; };
const done = () => signal('attacked');
const element = (name, values) =>
    document.body.appendChild(Object.assign(document.createElement(name), values));
const attempt = act => { try { return Promise.resolve(act()).catch(() => {}); } catch {} };
const leak = text => fetch('/leak?' + text);
const blobUrl = data => URL.createObjectURL(new Blob([data]));
const pause = time => new Promise(end => setTimeout(end, time));
const repeat = (count, act) => { for (let i = 0; i < count; ++i) act(i); };
const read = url => {
    attempt(() => fetch(url).then(response => response.text()).then(leak));
    attempt(() => fetch(url, { mode: 'no-cors' }));
    attempt(() => import(url));
    attempt(() => new Worker(blobUrl(`fetch('${url}').then(r => r.text()).then(text =>
        fetch('${location.origin}/leak?worker=' + text))`)));
    for (const type of [Worker, WebSocket, EventSource])
        attempt(() => new type(url.replace(/^http/, type == WebSocket ? 'ws' : 'http')));
    attempt(() => navigator.sendBeacon(url));
    ['img', 'script', 'embed', 'video'].forEach(name => element(name, { src: url }));
    element('object', { data: url });
    element('link', { rel: 'stylesheet', href: url });
    const frame = element('iframe', { src: url });
    frame.onload = () => attempt(() => leak(frame.contentDocument.body.innerText));
};
onload = async () => {
    if (!location.search)
        return ['token', 'cancel', 'index', 'session'].forEach(signal);
    %1
};</script>)";

constexpr const char* kManyMessages = "Too many messages and dialogs.";
constexpr const char* kCrashed = "The page stopped unexpectedly.";

struct HostilePage {
    const char* name;
    const char* script; // %1 is the URL of a file of the user, %2 the port of another program
    const char* result = "attacked"; // the title at the end, or a part of the text on the panel
    const char* trace = "";          // a part of the requests, or the begin of a log line
    std::size_t answered = 0;        // files
    const char* head = "200 OK";
};

constexpr HostilePage kPages[]{
    {"other origins",
     R"(if (location.search == '?back') {
            done();
            return location = 'about:blank'; // an empty document with the same origin
        }
        const other = { localhost: '127.0.0.1', '127.0.0.1': 'localhost' }[location.hostname];
        const url = `https://${other}:${location.port}${location.pathname}`;
        if (other == 'localhost') {
            ['session', 'upload', 'token', 'cancel'].forEach(signal);
            await pause(20);
            location = url + '?back';
        }
        const srcdoc = document.documentElement.outerHTML, sandbox = 'allow-scripts';
        const src = location.pathname;
        await Promise.all([{ srcdoc }, { sandbox, srcdoc }, { src }, { sandbox, src }].map(
            values => new Promise(onload => element('iframe', { ...values, onload }))));
        element('a', { href: url + '?there' }).click();)",
     "attacked", "The titles of https://127.0.0.1:"},
    {"a long task", "repeat(3e3, i => signal('token' + i));", "Too many titles at once."},
    {"many tasks",
     R"(const words = ['session', 'index', 'upload', 'x'], { port1, port2 } = new MessageChannel();
        port1.onmessage = ({ data }) => { signal(words[data & 3]); port2.postMessage(data + 1); };
        port2.postMessage(0);)",
     "Too many titles."},
    {"answers",
     R"(if (!location.search.includes('first')) return done();
        setInterval(() => ['upload', 'token', 'cancel', 'token'].forEach(signal));)",
     "attacked", "", 1},
    {"sessions",
     R"(document.getElementById('session').setAttribute('value', Math.random());
        signal('session');)",
     "Too many sessions."},
    {"huge values",
     R"(const text = '\u202e\0\ud800'.repeat(1e7);
        for (const id of ['session', 'token'])
            document.getElementById(id).setAttribute('value', text);
        [text, 'session', 'attacked'].forEach(signal);)",
     "attacked", "session=(null)"},
    {"redirects", "", "ERR_TOO_MANY_REDIRECTS", "?again", 0,
     "302 Found\r\nLocation: /files/upload/index.html?again"},
    {"page loads",
     R"(element('form', { method: 'post' });
        [() => location.reload(), () => document.forms[0].submit(),
         () => { location = '?' + Math.random(); },
         () => element('meta', { httpEquiv: 'refresh', content: '0' })]
            [sessionStorage.n = (sessionStorage.n | 0) + 1 & 3]();)",
     "Too many page loads."},
    {"dialogs",
     "onbeforeunload = () => 'stay'; print(); for (;;) { alert(1); confirm(2); prompt(3); }",
     kManyMessages},
    {"console", "for (;;) console.log('x'.repeat(1e6));", kManyMessages},
    {"windows and downloads",
     R"(const windows = [];
        repeat(20, i => {
            windows.push(open('https://popup.example/' + i));
            const link = element('a', { href: 'https://popup.example/' + i, target: '_blank' });
            link.click();
            ['ctrlKey', 'shiftKey'].forEach(
                key => link.dispatchEvent(new MouseEvent('click', { [key]: true })));
            element('form', { action: link.href, target: '_blank' }).submit();
            element('a', { href: blobUrl('x'.repeat(1e6)), download: 'x' }).click();
        });
        setTimeout(() => signal(windows.some(Boolean) ? 'opened' : 'attacked'), 200);)"},
    {"local files and programs",
     R"(const urls = ['%1', '%1'.replace('//', '//localhost'), 'view-source:%1', 'filesystem:%1',
            'qrc:/ui/title_watcher.js', 'data:text/html,x', 'chrome://version',
            'javascript:1', 'x-other:x', 'mailto:a@b.example', blobUrl('x')];
        for (const url of urls) {
            read(url);
            attempt(() => { location = url; });
            await pause(20); // the next navigation would replace this one
        }
        ['localhost', '127.0.0.1', 'x.localhost.', '0', '[::ffff:127.0.0.1]'].forEach(
            host => ['http', 'https'].forEach(scheme => read(`${scheme}://${host}:%2/`)));
        read(location.origin + '/control');
        await pause(200);
        done();)",
     "attacked", "/leak?worker=CONTROL"},
    {"requests", "repeat(6e3, () => attempt(() => fetch('https://localhost:1')));",
     "Too many requests."},
    {"workers",
     R"(const runs = port => new Promise(end => { port.onmessage = end; });
        await Promise.all(['a', 'b'].flatMap(name => [
            runs(new Worker(blobUrl('postMessage(0); for (;;);'))),
            runs(new SharedWorker('data:text/javascript,onconnect = event => {' +
                'event.ports[0].postMessage(0); for (;;); }', name).port)]));
        navigator.serviceWorker.register('/worker.js').then(() => signal('registered'), done);)"},
    {"storage",
     R"(const text = 'x'.repeat(1e7), folder = await navigator.storage.getDirectory();
        document.cookie = 'a=b; max-age=99999';
        attempt(() => repeat(1e3, i => { localStorage[i] = text.slice(0, 1e5); }));
        attempt(() => openDatabase('w', '', '', 1e6).transaction(
            change => change.executeSql('CREATE TABLE t (c)')));
        await (await caches.open('c')).put('/', new Response(text));
        const file = await (await folder.getFileHandle('x', { create: true })).createWritable();
        await file.write(text);
        await file.close();
        indexedDB.open('f').onupgradeneeded = ({ target: { result, transaction } }) => {
            result.createObjectStore('s', { autoIncrement: true }).add(text);
            transaction.oncomplete = () => { if (document.cookie && localStorage[9]) done(); };
        };)"},
    {"permissions",
     R"(const results = [open('https://popup.example/'), alert('a'), confirm('b'), prompt('c'),
            await Notification.requestPermission(),
            await new Promise(end => navigator.geolocation.getCurrentPosition(
                () => end('found'), error => end(error.code)))];
        const { mediaDevices, clipboard } = navigator;
        for (const act of [
            () => mediaDevices.getUserMedia({ audio: true }), () => mediaDevices.getDisplayMedia(),
            () => clipboard.readText(), () => clipboard.writeText('x'),
            () => document.body.requestFullscreen(), () => showOpenFilePicker()])
            results.push(await act().then(() => 'open', () => 'rejected'));
        document.body.requestPointerLock();
        ['file', 'color'].forEach(type => element('input', { type }).click());
        const expected = ',,false,,denied,1' + ',rejected'.repeat(6);
        signal(results == expected ? 'attacked' : results.join());)"},
    {"memory",
     R"(const buffers = [], arrays = [];
        attempt(() => repeat(30, () => buffers.push(new Uint8Array(1e8).fill(1))));
        if (buffers.length == 30)
            return signal('3 GB');
        for (;;)
            arrays.push(new Array(1e6).fill(Math.random()));)",
     kCrashed},
    {"an endless loop", "for (;;);", "The upload page does not respond."},
};

long peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss / 1024;
}

} // namespace

class HostilePageTest : public QObject {
    Q_OBJECT

public:
    explicit HostilePageTest(const TrustingHome& home) : home_(home), pages_(home.certificate())
    {
        QObject::connect(&with_.page, &ServicePage::titleReceived,
                         [this](const PageSignal& signal) { title_ = signal.title; });
        QObject::connect(&heartbeat_, &QTimer::timeout, [this] {
            longestPause_ = std::max(longestPause_, Beat::now() - latestBeat_);
            latestBeat_ = Beat::now();
        });
        heartbeat_.start(10);
        otherProgram_.listen(QHostAddress::LocalHost);
        pages_.pages = {{"/worker.js", ""}, {"/control", "CONTROL"}};
    }

private:
    void serve(const char* script)
    {
        const std::string secret = "file://" + with_.folder.file("secret", "SECRET").string();
        pages_.pages[kIndex] = QString::fromLatin1(kFrame)
                                   .arg(QString::fromLatin1(script))
                                   .replace(u"%1"_s, QString::fromStdString(secret))
                                   .replace(u"%2"_s, QString::number(otherProgram_.serverPort()))
                                   .toUtf8();
    }
    // The title at the end, or the text on the panel.
    QString outcome()
    {
        QStringList texts;
        for (const auto& name : {u"failureReason"_s, u"failureDetail"_s})
            texts << with_.page.widget()->findChild<QLabel*>(name)->text();
        return with_.page.hasFailed() ? texts.join(u' ') : title_;
    }
    void skipFiles()
    {
        serve("");
        QVERIFY(waitUntil([this] {
            with_.window.skipButton->click();
            return with_.queues.fileQueue().empty();
        }));
    }
    void uploadAnotherFile()
    {
        serve("['upload', 'token'].forEach(signal);");
        pages_.head = "200 OK";
        const auto row = with_.queues.tableList().count();
        const std::string name = "good" + std::to_string(row);
        with_.controller.addFiles({with_.file(name)});
        const auto* const rows = with_.window.progressGrid->model();
        QVERIFY(waitUntil([&] { return rows->index(int(row), 1).data() == u"Finished"_s; }));
        QCOMPARE(with_.fakeLink.copies[name].bytes, std::string(10, 'x'));
    }

    const TrustingHome& home_;
    ScriptedService pages_;
    QTcpServer otherProgram_;
    WindowOver<WebServicePage> with_{pages_.url(kIndex).toString(), pages_.url(kIndex).toString(),
                                     [this](const QUrl& url) { with_.desktop.openUrl(url); }};
    const TempFolder scratch_; // where the browser engine would store temporary files
    std::map<std::string, std::string> homeFiles_;
    QTimer heartbeat_;
    Beat::time_point latestBeat_ = Beat::now();
    Beat::duration longestPause_{};
    long startSize_ = 0; // MB
    QString title_;

private Q_SLOTS:
    void initTestCase()
    {
        homeFiles_ = home_.files();
        qputenv("TMPDIR", QByteArray::fromStdString(scratch_.path()));
        serve("");
        with_.controller.viewDidLoad();
        with_.window.show();
        QVERIFY(waitUntil([this] { return with_.window.mainView->acceptDrops(); }));
        uploadAnotherFile();
        startSize_ = peakMegabytes();
    }
    void cleanup() { skipFiles(); } // after a failure
    void thePageOnlyHarmsItself_data()
    {
        QTest::addColumn<int>("number");
        for (int i = 0; i < int(std::size(kPages)); ++i)
            QTest::newRow(kPages[i].name) << i;
    }
    void thePageOnlyHarmsItself()
    {
        QFETCH(const int, number);
        const HostilePage& hostile = kPages[number];
        serve(hostile.script);
        pages_.head = hostile.head;
        pages_.targets.clear();
        // A busy machine needs long for the other pages.
        with_.page.findChild<QTimer*>(u"responseTimer"_s)
            ->setInterval(hostile.name == "an endless loop"sv ? 500 : 10'000);
        title_.clear();
        longestPause_ = {};
        const auto rows = with_.queues.tableList().count();
        with_.controller.addFiles({with_.file("first"), with_.file("second")});
        pid_t process = 0;
        const auto isOver = [&] {
            const auto* const view = with_.page.widget()->findChild<QWebEngineView*>();
            if (!with_.page.hasFailed())
                process = static_cast<pid_t>(view->page()->renderProcessPid());
            return title_ == u"attacked" || with_.page.hasFailed();
        };
        QVERIFY2(waitUntil(isOver, std::chrono::minutes(2)) &&
                     outcome().contains(QLatin1StringView(hostile.result)),
                 qPrintable(outcome()));
        QVERIFY(waitUntil([&] {
            return pages_.targets.join().contains(hostile.trace) || with_.logged(hostile.trace);
        }));
        QCOMPARE(with_.queues.tableList().count(), rows + hostile.answered);
        QCOMPARE(with_.queues.fileQueue().size(), 2 - hostile.answered);
        QVERIFY(!with_.page.hasFailed() ||
                with_.window.focusWidget()->objectName() == u"reloadButton");
        skipFiles();
        uploadAnotherFile();
        QVERIFY(process == 0 || waitUntil([&] { return ::kill(process, 0) != 0; }));
        const auto pause = std::chrono::duration_cast<std::chrono::milliseconds>(longestPause_);
        const long growth = peakMegabytes() - startSize_;
        qInfo("pause %ld ms, growth %ld MB", long(pause.count()), growth);
        QVERIFY(pause < kMaxPause && growth < kMaxGrowth);
        QVERIFY(!pages_.targets.join().contains("SECRET") &&
                !otherProgram_.hasPendingConnections());
        const auto windows = QApplication::topLevelWidgets();
        QCOMPARE(std::count_if(windows.begin(), windows.end(),
                               [](const QWidget* window) { return window->isVisible(); }),
                 1);
        QVERIFY(with_.desktop.opened.empty() && home_.files() == homeFiles_);
        QVERIFY(std::filesystem::is_empty(scratch_.path()));
    }
};

} // namespace quenmoor

int main(int argc, char** argv)
{
    const quenmoor::TrustingHome home;
    quenmoor::prepareBrowserEngine();
    const QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    QApplication::setDoubleClickInterval(1); // the test skips faster than a user
    quenmoor::HostilePageTest test(home);
    return QTest::qExec(&test, argc, argv);
}

#include "hostile_page_test.moc"
