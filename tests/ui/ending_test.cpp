// The program's end in each phase of an upload, with the real engine, bridge, window and alerts.
#include "tests/ui/window_fixture.h"
#include "ui/desktop.h"
#include "ui/startup_and_exit.h"

#include <QApplication>
#include <QTest>
#include <QTimer>
#include <csignal>
#include <semaphore>

namespace quenmoor {

using namespace Qt::StringLiterals;

namespace {

enum class Phase { Connect, Rendezvous, Response, Send, Finish, Countdown, Question };

// Stands still in one phase until it is let go, as the real link does in its calls.
class StandingLink : public FakeTransferLink {
public:
    explicit StandingLink(Phase phase) : phase_(phase) {}

    std::binary_semaphore reached{0};
    std::binary_semaphore letGo{0};

    bool connectAndSendRequest(std::int32_t& socket, const std::string& text) override
    {
        stand(Phase::Connect);
        return FakeTransferLink::connectAndSendRequest(socket, text);
    }
    bool rendezvousWithServer(std::int32_t connected, std::int32_t& socket) override
    {
        stand(Phase::Rendezvous);
        return FakeTransferLink::rendezvousWithServer(connected, socket);
    }
    std::string receiveString(std::int32_t socket) override
    {
        stand(receives_++ == 0 ? Phase::Response : Phase::Finish);
        return FakeTransferLink::receiveString(socket);
    }
    std::int32_t send(std::int32_t socket, std::span<const char> block) override
    {
        stand(Phase::Send);
        return FakeTransferLink::send(socket, block);
    }

private:
    void stand(Phase phase)
    {
        if (phase != phase_)
            return;
        reached.release();
        letGo.acquire();
        letGo.release();
    }

    const Phase phase_;
    int receives_ = 0;
};

} // namespace

class EndingTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void theLoopEndsAtOnceAndTheThreadIsLetGo_data()
    {
        QTest::addColumn<int>("phase");
        QTest::addColumn<bool>("inLink");
        QTest::newRow("connecting") << int(Phase::Connect) << true;
        QTest::newRow("rendezvous") << int(Phase::Rendezvous) << true;
        QTest::newRow("waiting for the response") << int(Phase::Response) << true;
        QTest::newRow("sending") << int(Phase::Send) << true;
        QTest::newRow("waiting for the closing document") << int(Phase::Finish) << true;
        QTest::newRow("countdown") << int(Phase::Countdown) << false;
        QTest::newRow("open question") << int(Phase::Question) << false;
    }
    void theLoopEndsAtOnceAndTheThreadIsLetGo()
    {
        QFETCH(int, phase);
        QFETCH(bool, inLink);
        StandingLink link{Phase(phase)};
        WindowFixture with(&link);
        QObject::connect(&with.delegate, &AppDelegate::willTerminate, &with.delegate,
                         [&with] { with.bridge.close(); });
        if (Phase(phase) == Phase::Countdown)
            link.plans = {{LinkFault::Refuse}, {LinkFault::Refuse}};
        if (Phase(phase) == Phase::Question)
            link.copies["a"] = {"x", 10};
        with.start();
        with.controller.addFiles({with.file("a")});
        with.page.say(u"token"_s, u"s"_s, u"t"_s);

        const auto standing = [&] {
            if (Phase(phase) == Phase::Countdown)
                return with.queues.tableList().cell("Status", 0).starts_with("Retrying");
            if (Phase(phase) == Phase::Question)
                return with.desktop.openQuestion != nullptr;
            return link.reached.try_acquire();
        };
        QVERIFY(QTest::qWaitFor(standing));
        QTimer::singleShot(0, &with.delegate, [&with] { with.delegate.terminateAtOnce(143); });
        QCOMPARE(QApplication::exec(), 143);

        with.clock.end();
        QCOMPARE(with.engine.waitForEnd(std::chrono::milliseconds(inLink ? 50 : 60'000)), !inLink);
        link.letGo.release();
        QVERIFY(with.engine.waitForEnd(std::chrono::minutes(1)));
        // an abandoned question was not answered, least of all with "Cancel"
        QVERIFY(link.confirmations.empty());
        QCOMPARE(with.queues.uploadCount(), Phase(phase) == Phase::Finish ? 0U : 1U);
    }

    void aRealAlertThatStandsAtTheEndIsNoAnswer()
    {
        QtDesktop desktop;
        QtMainThreadBridge bridge;
        QtUploadView view(bridge);
        QWidget window;
        QObject::connect(&view, &QtUploadView::alertRaised, &window,
                         [&](const Alert& alert, const QtUploadView::AnswerCallback& answer) {
                             desktop.openModal(&window, {}, alert, answer);
                         });
        std::optional<std::int32_t> answer = kFirstButton;
        std::jthread asker([&] { answer = view.runModal({"Quit?", {}, {"No", "Yes"}}); });
        QVERIFY(QTest::qWaitFor([] { return QApplication::activeModalWidget() != nullptr; }));
        bridge.close();
        asker.join();
        QCOMPARE(answer, std::nullopt);
    }

    void signalsEndTheLoopWithTheShellsStatus()
    {
        for (const int number : {SIGTERM, SIGINT}) {
            const EndSignals endSignals;
            AppDelegate delegate;
            QObject::connect(&endSignals, &EndSignals::endRequested, &delegate,
                             &AppDelegate::terminateAtOnce);
            QTimer::singleShot(0, &delegate, [number] { static_cast<void>(std::raise(number)); });
            QCOMPARE(QApplication::exec(), 128 + number);
        }
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::EndingTest)
#include "ending_test.moc"
