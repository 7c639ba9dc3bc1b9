// What the programs do over D-Bus, on a real bus with stand-ins for the services of a desktop. The
// second start and quenmoor-put are the real programs.
#include "bench/process.h"
#include "tests/ui/window_fixture.h"
#include "ui/desktop_integration.h"

#include <fcntl.h>
#include <unistd.h>

#include <QAction>
#include <QClipboard>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QLocalServer>
#include <QProcess>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <algorithm>
#include <csignal>

namespace quenmoor {

using namespace Qt::StringLiterals;

// Login manager, desktop portal and notification service in one. Records the calls.
class StandIns : public QDBusVirtualObject {
    Q_OBJECT

public:
    QStringList absent; // functions that are answered with an error
    QStringList calls;
    QString caller;              // of the latest call
    QVariantList notice;         // the arguments of the latest Notify
    std::vector<int> inhibitors; // reading ends of pipes, whose writing ends were given away

    QString introspect(const QString& /*path*/) const override { return {}; }

    bool handleMessage(const QDBusMessage& call, const QDBusConnection& bus) override
    {
        const QString function = call.interface().section(u'.', 2) + u'.' + call.member();
        if (call.member() == u"Notify")
            notice = call.arguments();
        caller = call.service();
        QStringList arguments{function};
        for (const QVariant& argument : call.arguments())
            arguments << argument.toString();
        calls << arguments.join(u' ').simplified();
        return bus.send(absent.contains(function)
                            ? call.createErrorReply(QDBusError::AccessDenied, {})
                            : call.createReply(replyTo(function)));
    }

    int released() const
    {
        char byte = 0;
        return static_cast<int>(
            std::count_if(inhibitors.begin(), inhibitors.end(),
                          [&byte](int end) { return read(end, &byte, 1) == 0; }));
    }

private:
    const QHash<QString, QVariant> replies_{
        {u"portal.Inhibit.Inhibit"_s, QVariant::fromValue(QDBusObjectPath(u"/request"_s))},
        {u"Notifications.GetCapabilities"_s, QStringList{u"body-markup"_s, u"actions"_s}},
        {u"Notifications.Notify"_s, 7U}};

    QVariantList replyTo(const QString& function)
    {
        std::array<int, 2> ends{};
        if (function != u"login1.Manager.Inhibit" || pipe2(ends.data(), O_NONBLOCK) != 0)
            return {replies_.value(function, QString())};
        inhibitors.push_back(ends[0]);
        const QDBusUnixFileDescriptor lock(ends[1]);
        close(ends[1]);
        return {QVariant::fromValue(lock)};
    }
};

// A window that is not shown, so that it is not in front. The test plays the engine.
struct HiddenWindow : WindowFixture {
    ApplicationService service;
    const DesktopIntegration integration{{controller, view, queues, service}};

    void accept(const std::string& name)
    {
        queues.addFiles(std::array{FileUrl::fromPath(folder.file(name, "0123456789"))});
        queues.acceptToken("t");
        Q_EMIT controller.fileAccepted(10);
    }
    void report(AttemptEventKind kind, std::size_t row)
    {
        Q_EMIT view.attemptReported({.kind = kind, .row = row, .total = 10, .reason = "no"});
    }
};

class DesktopBusTest : public QObject {
    Q_OBJECT

    const QString kLogin =
        u"login1.Manager.Inhibit sleep Quenmoor Upload Files are being uploaded block"_s;

    RecordingLog log_;
    QProcess daemon_;
    StandIns standIns_;
    QDBusConnection bus_{QString()}; // of the stand-ins

    // In any order: a reply that is under way delays what follows it.
    bool awaitCalls(QStringList calls)
    {
        const bool complete =
            QTest::qWaitFor([&] { return standIns_.calls.size() >= calls.size(); });
        QStringList made = std::exchange(standIns_.calls, {});
        std::sort(made.begin(), made.end());
        std::sort(calls.begin(), calls.end());
        return complete && made == calls;
    }

private Q_SLOTS:
    void initTestCase()
    {
        daemon_.start(u"dbus-daemon"_s, {u"--session"_s, u"--nofork"_s, u"--print-address"_s});
        QVERIFY(daemon_.waitForReadyRead());
        const QByteArray address = daemon_.readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address);
        bus_ = QDBusConnection::connectToBus(QString::fromUtf8(address), u"desktop"_s);
        QVERIFY(bus_.registerVirtualObject(u"/"_s, &standIns_, QDBusConnection::SubPath));
        for (const QString& name :
             {u"login1"_s, u"portal.Desktop"_s, u"Notifications"_s, u"FileManager1"_s})
            QVERIFY(bus_.registerService(u"org.freedesktop."_s + name));
    }
    void cleanupTestCase()
    {
        daemon_.kill();
        daemon_.waitForFinished();
    }

    void aBusThatDoesNotRespondIsNotUsed()
    {
        const TempFolder folder;
        const QString path = QString::fromStdString(folder.path() / "a b");
        QLocalServer frozen; // never accepts
        QVERIFY(frozen.listen(path));
        const QByteArray running = qgetenv("DBUS_SYSTEM_BUS_ADDRESS");
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "disabled:");
        for (const auto& [address, result] :
             {std::pair(running, running),
              {"unix:path=" + path.toUtf8().replace(' ', "%20"), "disabled:"},
              {"unix:path=/gone", "unix:path=/gone"}}) {
            qputenv("DBUS_SESSION_BUS_ADDRESS", address);
            if (address == running)
                useRunningBusOnly(std::chrono::seconds(20)); // on a busy machine
            else
                useRunningBusOnly();
            QCOMPARE(qgetenv("DBUS_SESSION_BUS_ADDRESS"), result);
        }
        for (const char* variable : {"DBUS_SESSION_BUS_ADDRESS", "DBUS_SYSTEM_BUS_ADDRESS"})
            qputenv(variable, running);
    }

    void oneInhibitorLastsFromTheFirstFileToTheEndOfTheQueue()
    {
        const QString portal = u"portal.Inhibit.Inhibit 4"_s;
        standIns_.absent << u"Notifications.GetCapabilities"_s;
        for (const auto& [absent, asked, released] :
             std::vector<std::tuple<QStringList, QStringList, QStringList>>{
                 {{}, {kLogin}, {}},
                 {{u"login1.Manager.Inhibit"_s}, {kLogin, portal}, {u"portal.Request.Close"_s}},
                 {{u"portal.Inhibit.Inhibit"_s}, {kLogin, portal}, {}}}) {
            standIns_.absent << absent;
            for (const auto end : {AttemptEventKind::Finished, AttemptEventKind::Cancelled,
                                   AttemptEventKind::GaveUp}) {
                HiddenWindow with;
                with.accept("a");
                with.accept("b");
                for (const auto kind : {AttemptEventKind::Started, AttemptEventKind::Failed,
                                        AttemptEventKind::Waiting, AttemptEventKind::Finished})
                    with.report(kind, 0);
                QVERIFY(awaitCalls(asked));
                const auto granted = static_cast<int>(standIns_.inhibitors.size());
                QCOMPARE(standIns_.released(), granted - (asked.size() == 1 ? 1 : 0));
                with.report(end, 1);
                QVERIFY(awaitCalls(released + QStringList{u"Notifications.GetCapabilities"_s}));
                QTRY_COMPARE(standIns_.released(), granted);
            }
        }
        standIns_.absent.clear();
    }

    void quenmoorPutHoldsAnInhibitor()
    {
        const TempFolder folder;
        Process put(
            {QUENMOOR_PUT, "--host", "127.0.0.1:9", "--token", "t", folder.file("a.mov", "x")});
        QVERIFY(awaitCalls({QString(kLogin).replace(u"Quenmoor Upload"_s, u"quenmoor-put"_s)}));
        const auto granted = static_cast<int>(standIns_.inhibitors.size());
        // The inhibitor outlasts the connection, which ends once the answer was read.
        QTRY_VERIFY(!bus_.interface()->isServiceRegistered(standIns_.caller));
        QCOMPARE(standIns_.released(), granted - 1);
        put.signal(SIGTERM);
        QTRY_COMPARE(standIns_.released(), granted);
        QTRY_COMPARE(put.exitStatus(std::chrono::milliseconds(0)), 128 + SIGTERM);
    }

    void theNotificationIsReplacedEscapedClickedAndWithdrawn()
    {
        HiddenWindow with;
        with.accept("a<b>.mov");
        with.accept("c.mov");
        Q_EMIT with.view.alertRaised({"File Exists", "Same & <i>", {"Cancel", "Resume"}}, {});
        QTRY_COMPARE(standIns_.notice.value(3).toString(), u"File Exists"_s);
        QCOMPARE(standIns_.notice[4].toString(), u"a&lt;b&gt;.mov\nSame &amp; &lt;i&gt;"_s);
        with.report(AttemptEventKind::Finished, 0);
        with.queues.removeUploadHead();
        with.report(AttemptEventKind::Finished, 1);
        QTRY_COMPARE(standIns_.notice[3].toString(), u"2 uploads finished"_s);
        QCOMPARE(standIns_.notice[1].toUInt(), 7U);

        standIns_.calls.clear();
        const QString service = u"org.freedesktop.Notifications"_s;
        for (const auto& [name, text] :
             {std::pair(u"ActivationToken"_s, u"token"_s), {u"ActionInvoked"_s, u"default"_s}})
            bus_.send(QDBusMessage::createSignal(u"/org/freedesktop/Notifications"_s, service, name)
                      << 7U << text);
        QTRY_VERIFY(with.controller.window().isActiveWindow());
        QCOMPARE(qgetenv("XDG_ACTIVATION_TOKEN"), QByteArray("token"));
        QVERIFY(awaitCalls({u"Notifications.CloseNotification 7"_s}));
        for (const std::size_t row : {2U, 3U}) { // in front: no notification
            with.accept("d.mov");
            with.report(AttemptEventKind::GaveUp, row);
            QVERIFY(awaitCalls({kLogin}));
            QTRY_COMPARE(standIns_.released(), static_cast<int>(standIns_.inhibitors.size()));
        }
    }

    void theDetailsOfARowExplainItsState()
    {
        using enum AttemptEventKind;
        using enum AttemptStep;
        const FileUrl file = FileUrl::fromPath("/line\n.mov");
        const QString start = u"line␊.mov\n/line␊.mov\n"_s;
        const QString elapsed = u"\n1.0 MB of 3.0 MB, 3 min 20 s elapsed"_s;
        const QString failure = u"\nAttempt 12 failed at the step send: a<b> ␊"_s;
        RowHistory row;
        QCOMPARE(row.details(file), start + u"Waits for the uploads before it."_s);
        for (const auto& [kind, step, lines] :
             std::vector<std::tuple<AttemptEventKind, AttemptStep, QString>>{
                 {Progress, Send,
                  u"Attempt 2 of 10: sending (step: send)"_s + elapsed +
                      u", about 1 h 8 min left"_s},
                 {Failed, Send, u"Attempt 2 of 10 failed"_s + elapsed + failure},
                 {Waiting, Send,
                  u"Attempt 2 of 10 failed, the next one begins in 30 s"_s + elapsed + failure},
                 {Finished, Finish,
                  u"The server has confirmed the upload.\n3.0 MB of 3.0 MB, 3 min 20 s elapsed"_s +
                      failure + u"\nThe file has changed since it was queued."_s}}) {
            row.add({.kind = kind,
                     .attempt = 12,
                     .attemptInRow = 2,
                     .attemptLimit = 10,
                     .step = step,
                     .bytes = 1 << 20,
                     .total = 3 << 20,
                     .elapsed = std::chrono::seconds(200),
                     .averageRate = 2.0 / 4100,
                     .secondsLeft = std::chrono::seconds(30),
                     .sourceChanged = kind == Finished,
                     .reason = kind == Failed ? "a<b> \n" : ""});
            QCOMPARE(row.details(file), start + lines);
        }
    }

    void theMenuOfARowCopiesItAndShowsItInItsFolder()
    {
        UploadQueues queues;
        StatusTableModel model(queues);
        QTableView table;
        table.setModel(&model);
        addRowActions(table);
        queues.addFiles(std::array{FileUrl::fromPath(QUENMOOR_UPLOAD)});
        queues.acceptToken("t");
        model.appendRow(FileUrl::fromPath("/a b?\xFF.mov"));
        table.selectAll();
        table.actions().at(0)->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(),
                 model.index(0, 0).data(StatusTableModel::DetailsRole).toString());
        table.actions().at(1)->trigger();
        QCOMPARE(QGuiApplication::clipboard()->text(), u"quenmoor-upload\tQueued\t0%"_s);
        table.actions().at(2)->trigger();
        QVERIFY(awaitCalls({u"FileManager1.ShowItems file:///a%20b%3F%FF.mov"_s}));
    }

    void aSecondStartHandsEveryNameOverAndAnUnconfirmedRequestIsRefused()
    {
        ApplicationService window;
        QSignalSpy opened(&window, &ApplicationService::openRequested);
        QVERIFY(window.start({}, {}) == ApplicationService::Start::Window);
        const std::vector<std::string> names{"/a b.mov",      "/100%25.mov",
                                             "/a#?b&c=d.mov", "/line\nfeed\t\"'.mov",
                                             "/caf\xE9.mov",  "/日本.mov"};
        std::vector<std::string> command{QUENMOOR_UPLOAD, "--"};
        command.insert(command.end(), names.begin(), names.end());
        Process second(command, {.environment = {"XDG_ACTIVATION_TOKEN=t"}});
        QTRY_COMPARE(second.exitStatus(std::chrono::milliseconds(0)), 0);
        QCOMPARE(opened.count(), 1);
        const auto files = opened[0][0].value<std::vector<FileUrl>>();
        QVERIFY(std::ranges::equal(files, names, {},
                                   [](const FileUrl& file) { return file.path().native(); }));
        QCOMPARE(opened[0][1].value<ActivationToken>().wayland, u"t"_s);

        // The window cannot respond while its thread waits here. It must not open the files later,
        // because the second process shows them.
        ApplicationService third(bus_, std::chrono::milliseconds(50));
        QVERIFY(third.start({FileUrl::fromPath("/late")}, {}) == ApplicationService::Start::Window);
        QDBusMessage last =
            QDBusMessage::createMethodCall(kApplicationId.toString(), u"/com/quenmoor/Upload"_s,
                                           u"org.freedesktop.Application"_s, u"Activate"_s);
        bus_.send(last << QVariantMap());
        QTRY_COMPARE(opened.count(), 2);
        QVERIFY(opened[1][0].value<std::vector<FileUrl>>().empty());
        window.stop();
        QTRY_VERIFY(!bus_.interface()->isServiceRegistered(kApplicationId.toString()));
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::DesktopBusTest)
#include "desktop_bus_test.moc"
