// What a drop delivers, and the alerts.
#include "tests/fakes/quiet_log.h"
#include "ui/desktop.h"
#include "ui/drag_view.h"

#include <QApplication>
#include <QDropEvent>
#include <QFileDialog>
#include <QLabel>
#include <QMimeData>
#include <QPointer>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <algorithm>

namespace quenmoor {

using namespace Qt::StringLiterals;

// Delivers the bytes of a desktop's list; QMimeData::setData() would parse them with QUrl.
struct UriList : QMimeData {
    QByteArray bytes;
    QStringList formats() const override { return {u"text/uri-list"_s}; }
    QVariant retrieveData(const QString& /*format*/, QMetaType /*type*/) const override
    {
        return bytes;
    }
};

class WidgetsTest : public QObject {
    Q_OBJECT

private:
    RecordingLog log_;

    using Action = std::function<void(AlertBox&)>;

    const Alert question_{"File Exists", "Same <b>file</b>.", {"Cancel", "Overwrite", "Resume"}};
    const Alert notice_{"The end.", {}, {}};
    AnswerGuard::Time time_;
    QtDesktop desktop_{[this] { return time_; }};

    static AlertBox* openBox()
    {
        for (QWidget* const widget : QApplication::topLevelWidgets()) {
            if (auto* const box = qobject_cast<AlertBox*>(widget); box && box->isVisible())
                return box;
        }
        return nullptr;
    }
    static QPushButton* button(const AlertBox& box, qsizetype position)
    {
        return box.findChildren<QPushButton*>().value(position);
    }

    // Opens `alert`, applies `act` to its box and returns the answers after the box is destroyed.
    std::vector<std::int32_t> answersTo(const Alert& alert, const Action& act)
    {
        std::vector<std::int32_t> answers;
        QWidget window;
        window.show();
        desktop_.openModal(&window, u"a.mov"_s, alert,
                           [&answers](std::int32_t answer) { answers.push_back(answer); });
        const QPointer<AlertBox> box = openBox();
        if (box == nullptr || !QTest::qWaitForWindowActive(box))
            return {};
        time_ += AnswerGuard::kDelay;
        act(*box);
        return QTest::qWaitFor([&box] { return box.isNull(); }) ? answers
                                                                : std::vector<std::int32_t>{-1};
    }

private Q_SLOTS:
    void aDropIsACopyAndDeliversOneListOfLocalFilesByTheirBytes()
    {
        DragView view;
        view.registerForDraggedTypes();
        QSignalSpy dropped(&view, &DragView::filesDropped);
        const auto enter = [&view](const QMimeData& data) {
            QDragEnterEvent event({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton,
                                  {});
            event.ignore();
            QApplication::sendEvent(&view, &event);
            return event.isAccepted() && event.dropAction() == Qt::CopyAction;
        };
        for (const auto& [list, paths] :
             std::vector<std::pair<const char*, std::vector<std::filesystem::path>>>{
                 {"file:///tmp/a%20b%231.mov\r\n", {"/tmp/a b#1.mov"}},
                 {"file:///caf%E9\nfile:///caf\xE9", {"/caf\xE9", "/caf\xE9"}},
                 {"file:/a%20b.mov\nfile://localhost/a", {"/a b.mov", "/a"}},
                 {"# comment\r\nhttps://host/two\r\n\r\nfile://elsewhere/three\r\n"
                  "file:///four%00\r\nfile:///five",
                  {"/five"}}}) {
            UriList data;
            data.bytes = list;
            QVERIFY(enter(data));
            QDropEvent drop({1, 1}, Qt::MoveAction | Qt::CopyAction, &data, Qt::LeftButton, {});
            QApplication::sendEvent(&view, &drop);
            QCOMPARE(drop.dropAction(), Qt::CopyAction);
            QCOMPARE(dropped.count(), 1);
            const auto files = dropped.takeFirst()[0].value<std::vector<FileUrl>>();
            QVERIFY2(std::ranges::equal(files, paths, {}, &FileUrl::path), list);
        }
        QCOMPARE(log_.system().front(), std::string("File dropped in DragView: /tmp/a b#1.mov"));
        QMimeData text;
        text.setText(u"words"_s);
        QVERIFY(!enter(text));
    }

    void anAnswerIsTheButtonsPositionAndEveryOtherExitIsNoButton()
    {
        const auto click = [](int position) {
            return [position](AlertBox& box) { button(box, position)->click(); };
        };
        const auto key = [](Qt::Key code) {
            return [code](AlertBox& box) { QTest::keyClick(&box, code); };
        };
        for (const std::int32_t position : {0, 1, 2})
            QCOMPARE(answersTo(question_, click(position)), std::vector{kFirstButton + position});
        QCOMPARE(answersTo(question_, key(Qt::Key_Return)), std::vector{kFirstButton});
        for (const Alert& alert : {question_, notice_})
            QCOMPARE(answersTo(alert, key(Qt::Key_Escape)), std::vector{kNoButton});
        QCOMPARE(answersTo(notice_, click(0)), std::vector{kFirstButton}); // OK
    }

    void anAlertIgnoresKeysAndClicksThatWereMeantForThePage()
    {
        const auto press = [this](const AlertBox& box, int milliseconds, Qt::Key key,
                                  const QString& text, bool repeated = false) {
            time_ += std::chrono::milliseconds(milliseconds);
            for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
                QKeyEvent event(type, key, {}, text, repeated);
                QApplication::sendEvent(box.focusWidget(), &event);
            }
            return !box.isVisible();
        };
        const auto answer = [&](AlertBox& box) {
            QEvent activation(QEvent::WindowActivate);
            QApplication::sendEvent(&box, &activation);
            QVERIFY(!press(box, 0, Qt::Key_Escape, u"\x1b"_s));
            QVERIFY(!press(box, 690, Qt::Key_Space, u" "_s));
            QVERIFY(!press(box, 690, Qt::Key_Space, u" "_s)); // typing continues
            QVERIFY(!press(box, 800, Qt::Key_Space, u" "_s, true));
            QVERIFY(!press(box, 690, Qt::Key_Return, u"\r"_s));
            QVERIFY(!press(box, 10, Qt::Key_Return, u"\r"_s, true));
            QVERIFY(press(box, 10, Qt::Key_Space, u" "_s));
        };
        QCOMPARE(answersTo(question_, answer), std::vector{kFirstButton});
        desktop_.openModal(nullptr, {}, question_, [](auto) {});
        QTest::mouseClick(button(*openBox(), 1), Qt::LeftButton);
        QVERIFY(openBox() != nullptr);
        openBox()->reject();
    }

    void anAlertBlocksInputButNotTheCloseButtonAndReturnsTheKeyboardToAChooser()
    {
        QWidget window;
        QPushButton below(&window);
        QSignalSpy clicks(&below, &QPushButton::clicked);
        window.show();
        const auto clickBelow = [&] {
            QTest::mouseClick(window.windowHandle(), Qt::LeftButton, {}, below.geometry().center());
            return clicks.count();
        };
        QCOMPARE(clickBelow(), 1);
        desktop_.openModal(&window, {}, question_, [](auto) {});
        QVERIFY(QTest::qWaitForWindowActive(openBox()));
        QCOMPARE(clickBelow(), 1);
        QCOMPARE(QGuiApplication::modalWindow(), nullptr); // it would keep `window` from closing
        openBox()->reject();
        QCOMPARE(clickBelow(), 2);

        desktop_.chooseFiles(&window, {});
        auto* const chooser = window.findChild<QFileDialog*>();
        QVERIFY(QTest::qWaitForWindowActive(chooser));
        const QWidget* const focus = QApplication::focusWidget();
        desktop_.openModal(&window, {}, question_, [](auto) {});
        QVERIFY(QTest::qWaitForWindowActive(openBox()));
        QCOMPARE(openBox()->parentWidget(), chooser);
        openBox()->reject();
        QVERIFY(QTest::qWaitForWindowActive(chooser));
        QCOMPARE(QApplication::focusWidget(), focus);
    }

    void everyButtonLayoutKeepsTheOrderAndAllTextIsPlain()
    {
        const auto inspect = [](AlertBox& box) {
            for (const QLabel* const label : box.findChildren<QLabel*>())
                QVERIFY(label->textFormat() == Qt::PlainText);
            QVERIFY(button(box, 0)->x() < button(box, 1)->x());
            QVERIFY(button(box, 1)->x() < button(box, 2)->x());
            QVERIFY(button(box, 0)->isDefault() && button(box, 0)->hasFocus());
            QCOMPARE(box.windowTitle(), u"a.mov"_s);
            QCOMPARE(box.informativeText(), u"a.mov\n\nSame <b>file</b>."_s);
            QCOMPARE(box.accessibleName(), u"File Exists"_s);
            box.close();
        };
        for (const int layout : {0, 1, 2, 3}) { // Windows, macOS, KDE, GNOME
            qApp->setStyleSheet(u"QDialogButtonBox { button-layout: %1; }"_s.arg(layout));
            QCOMPARE(answersTo(question_, inspect), std::vector{kNoButton}); // closed
        }
        qApp->setStyleSheet({});
    }

    void runModalWaitsForTheAnswerAndTheEndOfTheProgramIsNone()
    {
        QTimer::singleShot(0, this, [] { button(*openBox(), 1)->click(); });
        QCOMPARE(desktop_.runModal(nullptr, question_), kSecondButton);

        std::optional<std::int32_t> answer = kFirstButton;
        QTimer::singleShot(0, this, [this, &answer] {
            QTimer::singleShot(0, this, [] { QCoreApplication::exit(3); });
            answer = desktop_.runModal(nullptr, question_);
        });
        QCOMPARE(QApplication::exec(), 3);
        QCOMPARE(answer, std::nullopt);
        QCOMPARE(openBox(), nullptr);
    }
};

} // namespace quenmoor

QTEST_MAIN(quenmoor::WidgetsTest)
#include "widgets_test.moc"
